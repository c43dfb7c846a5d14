// Page-aligned memory on POSIX systems.

#include <sys/mman.h>

#include <cstdint>

#include "libtcmalloc_virtualmm/PageMemory.h"

namespace tcmalloc {

namespace {

char* Map(std::size_t bytes) {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
}

}  // namespace

char* MapPageMemory(std::size_t bytes, [[maybe_unused]] bool huge) noexcept {
#ifdef MADV_HUGEPAGE
  if (huge && bytes % kHugePageBytes == 0) {
    // Map more than is needed, and give back what stands before and behind the aligned part.
    if (char* wide = Map(bytes + kHugePageBytes)) {
      const std::size_t before =
          (kHugePageBytes - reinterpret_cast<std::uintptr_t>(wide) % kHugePageBytes) %
          kHugePageBytes;
      char* aligned = wide + before;
      if (before > 0) {
        munmap(wide, before);
      }
      munmap(aligned + bytes, kHugePageBytes - before);
      madvise(aligned, bytes, MADV_HUGEPAGE);
      return aligned;
    }
  }
#endif
  return Map(bytes);
}

void UnmapPageMemory(char* memory, std::size_t bytes) noexcept {
  munmap(memory, bytes);
}

}  // namespace tcmalloc
