#ifndef TESTS_CORE_FAILINGMALLOC_H
#define TESTS_CORE_FAILINGMALLOC_H

#include <cstddef>

/// Lets malloc fail for one block of a given size while it lives. The program is linked with
/// --wrap=malloc, which sends its calls through FailingMalloc.cpp.
class FailingMalloc {
 public:
  /// @param size  the size in bytes, other sizes do not count
  /// @param nth   which block of that size fails, from 1
  explicit FailingMalloc(std::size_t size, int nth = 1);
  ~FailingMalloc();
  FailingMalloc(const FailingMalloc&) = delete;
  FailingMalloc& operator=(const FailingMalloc&) = delete;
};

#endif  // TESTS_CORE_FAILINGMALLOC_H
