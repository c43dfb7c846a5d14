#ifndef BENCH_SUITE_COMMON_WARMMEMORY_H
#define BENCH_SUITE_COMMON_WARMMEMORY_H

#include <sys/mman.h>

#include <cstddef>

namespace suite {

/// Touches so much memory and gives it back. A virtual machine hands large free blocks back to its
/// host, and whoever touches them next waits for the host, fifteen times as long as for the system
/// alone. That is nobody's merit, so it comes before the work.
inline void warmMemory(std::size_t bytes) {
  void* const memory =
      ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory != MAP_FAILED) {
    ::madvise(memory, bytes, MADV_HUGEPAGE);
    for (std::size_t at = 0; at < bytes; at += 4096) {
      static_cast<volatile char*>(memory)[at] = 1;
    }
    ::munmap(memory, bytes);
  }
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_WARMMEMORY_H
