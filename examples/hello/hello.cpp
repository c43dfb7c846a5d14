#include <cstring>
#include <iostream>

#include "QRTVirtualMemoryMgr.h"

int main() {
  QRTVirtualMemoryMgr store(16U << 20, 0, 0);  // keeps at most 16 MiB in memory
  QRTVirtualPageItem item;                     // a 16-byte handle, yours to keep

  std::strcpy(static_cast<char*>(store.alloc(64, item)), "hello from the store");
  store.dismiss(item);  // unpinned: may now live in the paging file

  const void* text = store.getAddress(item, 1);  // pinned again, perhaps at another address
  std::cout << static_cast<const char*>(text) << '\n';
  store.dismiss(item);
  store.free(item);
}
