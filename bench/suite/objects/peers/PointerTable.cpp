// A table of pointers with pin counts: the least that any store of movable objects has to do, once
// inlined into the loop, and once behind calls that look at their arguments, as a library's are.

#include <cstdlib>
#include <cstring>
#include <numeric>
#include <vector>

#include "Resident.h"

namespace {

template <bool called>
class PointerTable {
 public:
  static constexpr bool kHandleIsKey = false;
  explicit PointerTable(const Space& space)
      : m_objectBytes(space.objectBytes), m_handles(space.objects) {
    std::iota(m_handles.begin(), m_handles.end(), 0U);
  }

  /// Objects stay allocated to the end of the process.
  void add(const void* object) {
    void* const copy = std::malloc(m_objectBytes);
    suite::require(copy != nullptr, "out of memory");
    std::memcpy(copy, object, m_objectBytes);
    m_entries.push_back({copy, 0});
    ++m_size;
  }
  std::uint64_t handle(std::uint64_t key) const { return m_handles[key]; }
  void finish() {}

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    use(called ? calledPin(handle) : pin(handle));
    asm volatile("" ::: "memory");  // a host may do anything between pin and dismissal
    called ? calledUnpin(handle) : unpin(handle);
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    read(handle, change);
  }

 private:
  struct Entry {
    void* object;
    std::uint32_t pins;
  };

  void* pin(std::uint64_t handle) {
    ++m_entries[handle].pins;
    return m_entries[handle].object;
  }
  void unpin(std::uint64_t handle) { --m_entries[handle].pins; }
  [[gnu::noinline]] void* calledPin(std::uint64_t handle) {
    return handle < m_size ? pin(handle) : nullptr;
  }
  [[gnu::noinline]] void calledUnpin(std::uint64_t handle) {
    if (handle < m_size) {
      unpin(handle);
    }
  }

  std::uint32_t m_objectBytes;
  std::vector<std::uint64_t> m_handles;  // by key: hosts keep handles; here they are table indices
  std::vector<Entry> m_entries;          // by handle
  std::uint64_t m_size = 0;              // of them
};

}  // namespace

void addPointerTables(const AddPeer& add) {
  addResident<PointerTable<false>>(add, "pointer table");
  addResident<PointerTable<true>>(add, "pointer table, called");
}
