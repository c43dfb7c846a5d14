#ifndef BENCH_SUITE_COMMON_HEAPS_H
#define BENCH_SUITE_COMMON_HEAPS_H

#include <cstddef>
#include <cstdlib>

#include "common/Program.h"

namespace suite {

/// The functions of a heap that is loaded at run time; null when its library is not installed.
struct LoadedHeap {
  void* (*get)(std::size_t) = nullptr;
  void (*put)(void*) = nullptr;
};

/// mimalloc and jemalloc would replace malloc if they were linked; loaded privately they do not.
extern LoadedHeap g_mimalloc;
extern LoadedHeap g_jemalloc;

/// Loads both, with room for jemalloc's thread-local data, which takes a new start of the process.
/// @param program  remarks which of them is not here
void loadHeaps(char** argv, Program& program);

struct Malloc {
  static void* get(std::size_t size) { return std::malloc(size); }
  static void put(void* p) { std::free(p); }
};

template <LoadedHeap& heap>
struct Loaded {
  static void* get(std::size_t size) { return heap.get(size); }
  static void put(void* p) { heap.put(p); }
};

/// Calls visit(name, Heap()) for malloc and each heap that is loaded.
template <class Visit>
void eachHeap(Visit visit) {
  visit("malloc", Malloc());
  if (g_mimalloc.get != nullptr) {
    visit("mimalloc", Loaded<g_mimalloc>());
  }
  if (g_jemalloc.get != nullptr) {
    visit("jemalloc", Loaded<g_jemalloc>());
  }
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_HEAPS_H
