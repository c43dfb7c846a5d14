// Memory for keys on POSIX systems, with what Linux adds.

#include <sys/mman.h>

#include <cstring>

#include "libtcmalloc_virtualmm/SecretMemory.h"

namespace tcmalloc {

// What the system refuses is gone without: a process that may lock no memory (ulimit -l) has its
// paging file encrypted all the same, and its key is where everything else of the process is.
char* MapSecretMemory(std::size_t bytes) noexcept {
  void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  (void)mlock(memory, bytes);
#ifdef MADV_DONTDUMP
  (void)madvise(memory, bytes, MADV_DONTDUMP);
#endif
#ifdef MADV_WIPEONFORK
  (void)madvise(memory, bytes, MADV_WIPEONFORK);
#endif
  return static_cast<char*>(memory);
}

void UnmapSecretMemory(char* memory, std::size_t bytes) noexcept {
  explicit_bzero(memory, bytes);  // which no compiler leaves out, though nobody reads it any more
  munmap(memory, bytes);
}

}  // namespace tcmalloc
