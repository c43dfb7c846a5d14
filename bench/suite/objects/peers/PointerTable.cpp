// A table of pointers with pin counts, inlined into the loop: the least that any store of movable
// objects has to do.

#include <cstdlib>
#include <cstring>
#include <numeric>

#include "objects/Resident.h"

namespace objects {

namespace {

class PointerTable {
 public:
  static constexpr bool kHandleIsKey = false;  // hosts keep handles; here they are table indices
  explicit PointerTable(const Space& space)
      : m_objectBytes(space.objectBytes), m_handles(space.objects) {
    m_table.reserve(space.objects);
    std::iota(m_handles.begin(), m_handles.end(), 0U);
  }
  ~PointerTable() {
    for (const Entry& entry : m_table) {
      std::free(entry.object);
    }
  }
  PointerTable(const PointerTable&) = delete;
  PointerTable& operator=(const PointerTable&) = delete;

  void add(const void* object) {
    void* const copy = std::malloc(m_objectBytes);
    require(copy != nullptr, "out of memory");
    std::memcpy(copy, object, m_objectBytes);
    m_table.push_back({copy, 0});
  }
  std::uint64_t handle(std::uint64_t key) const { return m_handles[key]; }
  void finish() {}

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    Entry& pinned = m_table[handle];
    ++pinned.pins;
    use(pinned.object);
    asm volatile("" ::: "memory");  // a host may do anything between pin and dismissal
    --m_table[handle].pins;
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

  std::uint32_t m_objectBytes;
  std::vector<std::uint64_t> m_handles;  // by key
  std::vector<Entry> m_table;            // by handle
};

const Registration kRegistration({.name = "pointer table",
                                  .resident = measureResident<PointerTable>});

}  // namespace

}  // namespace objects
