// The mistake that a build with QRT_CHECK_PINS is for: an object is read after its last dismiss.

#include "QRTVirtualMemoryMgr.h"

int main() {
  QRTVirtualMemoryMgr store(1U << 20);
  QRTVirtualPageItem item;
  auto* const value = static_cast<volatile int*>(store.alloc(sizeof(int), item));
  *value = 1;
  store.dismiss(item);
  return *value - 1;
}
