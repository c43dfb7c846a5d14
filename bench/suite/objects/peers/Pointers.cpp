// Plain pointers to objects from malloc and its like: what a program does that keeps everything in
// memory.

#include <cstdint>

#include "ByHandle.h"
#include "Churn.h"
#include "Resident.h"
#include "common/Heaps.h"

namespace {

/// Objects from an allocator; a handle is an address. `Functions` has the static functions get and
/// put. What is allocated at the end stays so: the process is about to end.
template <class Functions>
class Heap {
 public:
  explicit Heap(const Space&) {}

  template <class Fill>
  std::uint64_t make(std::uint32_t bytes, Fill fill) {
    void* const object = Functions::get(bytes);
    suite::require(object != nullptr, "out of memory");
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

}  // namespace

void addPointers(const AddPeer& add) {
  addResident<ByHandle<Heap<suite::Malloc>>>(add, "pointer");
  suite::eachHeap([&]<class Functions>(const char* peer, Functions) {
    add("churn", peer, measureChurn<Heap<Functions>>);
  });
}
