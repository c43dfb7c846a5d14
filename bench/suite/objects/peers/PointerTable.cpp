// A table of pointers with pin counts: the least that any store of movable objects has to do, once
// inlined into the loop, and once behind calls that look at their arguments, as a library's are.

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "objects/Resident.h"

namespace objects {

namespace {

class InlinedTable {
 public:
  void push_back(void* object) { m_entries.push_back({object, 0}); }
  void* pin(std::uint64_t handle) {
    ++m_entries[handle].pins;
    return m_entries[handle].object;
  }
  void unpin(std::uint64_t handle) { --m_entries[handle].pins; }

 private:
  struct Entry {
    void* object;
    std::uint32_t pins;
  };
  std::vector<Entry> m_entries;  // by handle
};

class CalledTable {
 public:
  void push_back(void* object) {
    m_table.push_back(object);
    ++m_size;
  }
  [[gnu::noinline]] void* pin(std::uint64_t handle) {
    return handle < m_size ? m_table.pin(handle) : nullptr;
  }
  [[gnu::noinline]] void unpin(std::uint64_t handle) {
    if (handle < m_size) {
      m_table.unpin(handle);
    }
  }

 private:
  InlinedTable m_table;
  std::uint64_t m_size = 0;
};

template <class Table>
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
    require(copy != nullptr, "out of memory");
    std::memcpy(copy, object, m_objectBytes);
    m_table.push_back(copy);
  }
  std::uint64_t handle(std::uint64_t key) const { return m_handles[key]; }
  void finish() {}

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    use(m_table.pin(handle));
    asm volatile("" ::: "memory");  // a host may do anything between pin and dismissal
    m_table.unpin(handle);
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    read(handle, change);
  }

 private:
  std::uint32_t m_objectBytes;
  std::vector<std::uint64_t> m_handles;  // by key: hosts keep handles; here they are table indices
  Table m_table;
};

const Registration kInlined({.name = "pointer table",
                             .resident = measureResident<PointerTable<InlinedTable>>});
const Registration kCalled({.name = "pointer table, called",
                            .resident = measureResident<PointerTable<CalledTable>>});

}  // namespace

}  // namespace objects
