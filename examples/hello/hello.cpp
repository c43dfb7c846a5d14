#include <cstring>
#include <iostream>

#include "QRTVirtualMemoryMgr.h"

int main() {
  QRTVirtualMemoryMgr store(16U << 20);  // keeps at most 16 MiB in memory
  QRTVirtualPageItem item;               // a 16-byte handle, yours to keep

  const char greeting[] = "hello from the store";
  std::memcpy(store.alloc(sizeof greeting, item), greeting, sizeof greeting);
  store.dismiss(item);  // unpinned: may now live in the paging file

  const void* text = store.getAddress(item, 1);  // pinned again, perhaps at another address
  std::cout << static_cast<const char*>(text) << '\n';
  store.dismiss(item);
  store.free(item);
}
