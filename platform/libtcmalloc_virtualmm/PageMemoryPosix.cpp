// Page-aligned memory on POSIX systems.

#include <sys/mman.h>

#include "libtcmalloc_virtualmm/PageMemory.h"

namespace tcmalloc {

char* MapPageMemory(std::size_t bytes) noexcept {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}

void UnmapPageMemory(char* memory, std::size_t bytes) noexcept {
  munmap(memory, bytes);
}

}  // namespace tcmalloc
