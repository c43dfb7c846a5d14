// Boost.Interprocess: objects in a mapped file, found through offset pointers that are stored there
// as well. It has no budget: its map is the system's page cache.

#include <sys/mman.h>

#include <boost/interprocess/offset_ptr.hpp>
#include <cstring>

#include "Churn.h"
#include "Paging.h"
#include "Resident.h"
#include "common/MappedFile.h"
#include "common/ScratchDirectory.h"

namespace {

namespace bi = boost::interprocess;

/// Objects of any size; a handle is the distance from the map's start.
class MappedHeap {
 public:
  explicit MappedHeap(const Space& space) : MappedHeap(space.budget) {}
  explicit MappedHeap(std::uint64_t fileBytes) {
    const std::string path = suite::scratchPath("objects");
    m_file = suite::MappedFile(bi::create_only, path.c_str(), fileBytes);
    std::filesystem::remove(path);
  }

  template <class Fill>
  std::uint64_t make(std::uint32_t bytes, Fill fill) {
    void* const object = m_file.allocate(bytes);
    fill(object);
    return static_cast<std::uint64_t>(m_file.get_handle_from_address(object));
  }
  void end(std::uint64_t handle) { m_file.deallocate(at(handle)); }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    use(at(handle));
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    change(at(handle));
  }

 protected:
  void* at(std::uint64_t handle) const {
    return m_file.get_address_from_handle(static_cast<suite::MappedFile::handle_t>(handle));
  }

  suite::MappedFile m_file;
};

class IndexedHeap : public MappedHeap {
 public:
  static constexpr bool kHandleIsKey = false;
  explicit IndexedHeap(const Space& space)
      : MappedHeap(space.objects * (space.objectBytes + kOverhead) + (64U << 20)),
        m_objectBytes(space.objectBytes),
        m_index(m_file.construct<Pointer>(bi::anonymous_instance)[space.objects]()) {
    expect(MADV_RANDOM);
  }

  void add(const void* object) {
    make(m_objectBytes, [this, object](void* stored) {
      std::memcpy(stored, object, m_objectBytes);
      m_index[m_added++] = stored;
    });
  }
  std::uint64_t handle(std::uint64_t key) const {
    return static_cast<std::uint64_t>(m_file.get_handle_from_address(m_index[key].get()));
  }
  void finish() {}

  template <class Use>
  void scan(Use use) {
    expect(MADV_SEQUENTIAL);
    for (std::uint64_t key = 0; use(static_cast<const void*>(m_index[key].get()));) {
      ++key;
    }
    expect(MADV_RANDOM);
  }

 private:
  using Pointer = bi::offset_ptr<void>;
  /// Tells the system how the map will be accessed: else it reads far more than is asked for.
  void expect(int advice) { ::madvise(m_file.get_address(), m_file.get_size(), advice); }

  static constexpr std::uint64_t kOverhead = 16 + sizeof(Pointer);  // of an object

  std::uint32_t m_objectBytes;
  std::uint64_t m_added = 0;  // objects, and so the next key
  Pointer* m_index;           // by key
};

}  // namespace

void addInterprocess(const AddPeer& add) {
  addResident<IndexedHeap>(add, "boost interprocess");
  add("paging", "boost interprocess", measurePaging<IndexedHeap>);
  add("churn", "boost interprocess", measureChurn<MappedHeap>);
}
