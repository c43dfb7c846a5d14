// Memory for keys on Windows.

#include <windows.h>

#include "libtcmalloc_virtualmm/SecretMemory.h"

namespace tcmalloc {

// Locked pages are not written to the system's own paging file. There is no fork, and nothing keeps
// a page out of a dump.
char* MapSecretMemory(std::size_t bytes) noexcept {
  void* memory = VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (memory != nullptr) {
    (void)VirtualLock(memory, bytes);
  }
  return static_cast<char*>(memory);
}

void UnmapSecretMemory(char* memory, std::size_t bytes) noexcept {
  SecureZeroMemory(memory, bytes);
  VirtualFree(memory, 0, MEM_RELEASE);
}

}  // namespace tcmalloc
