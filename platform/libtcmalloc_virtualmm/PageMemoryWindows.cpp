// Page-aligned memory on Windows.

#include <windows.h>

#include "libtcmalloc_virtualmm/PageMemory.h"

namespace tcmalloc {

// Large pages need a privilege that hosts do not have, so `huge` asks for nothing here.
char* MapPageMemory(std::size_t bytes, bool /*huge*/) noexcept {
  return static_cast<char*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
}

void UnmapPageMemory(char* memory, std::size_t /*bytes*/) noexcept {
  VirtualFree(memory, 0, MEM_RELEASE);
}

}  // namespace tcmalloc
