#ifndef TESTS_ALLOC_FAILINGHEAP_H
#define TESTS_ALLOC_FAILINGHEAP_H

#include <cstddef>

/// Lets requests to the heap fail while it lives: in a program that compiles FailingHeapMalloc.cpp
/// those of operator new and of malloc, in the library too; with FailingHeapNew.cpp, where a
/// program cannot stand in for malloc, those of operator new alone.
class FailingHeap {
 public:
  enum Mode { eOnce, eFromThenOn };

  /// @param nth   the request that fails, from 1
  /// @param mode  whether later ones work again
  explicit FailingHeap(std::size_t nth, Mode mode = eOnce);
  ~FailingHeap();
  FailingHeap(const FailingHeap&) = delete;
  FailingHeap& operator=(const FailingHeap&) = delete;

  /// @return requests since the object was made
  std::size_t count() const;

  /// Whether malloc fails too.
  static bool hasMalloc();
};

#endif  // TESTS_ALLOC_FAILINGHEAP_H
