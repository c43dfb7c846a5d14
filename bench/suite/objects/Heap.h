#ifndef BENCH_SUITE_OBJECTS_HEAP_H
#define BENCH_SUITE_OBJECTS_HEAP_H

#include <cstdint>
#include <cstdlib>

#include "ObjectWork.h"

/// Objects from an allocator; a handle is an address. `Functions` has the static functions get and
/// put. What is allocated at the end stays so: the process is about to end.
template <class Functions>
class Heap {
 public:
  explicit Heap(const Space&) {}

  template <class Fill>
  std::uint64_t make(std::uint32_t bytes, Fill fill) {
    void* const object = Functions::get(bytes);
    if (object == nullptr) [[unlikely]] {
      suite::require(false, "out of memory");
    }
    fill(object);
    return reinterpret_cast<std::uintptr_t>(object);
  }
  void end(std::uint64_t handle) { Functions::put(reinterpret_cast<void*>(handle)); }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    use(reinterpret_cast<void*>(handle));
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    read(handle, change);
  }
};

#endif  // BENCH_SUITE_OBJECTS_HEAP_H
