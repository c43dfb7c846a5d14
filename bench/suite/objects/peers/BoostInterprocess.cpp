// Boost.Interprocess: objects in a mapped file, found through offset pointers that are stored there
// as well. It has no budget: its map is the system's page cache.

#include <sys/mman.h>

#include <boost/interprocess/indexes/iset_index.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/offset_ptr.hpp>
#include <boost/interprocess/sync/mutex_family.hpp>
#include <cstring>

#include "objects/Churn.h"
#include "objects/Paging.h"
#include "objects/Resident.h"

namespace objects {

namespace {

namespace bi = boost::interprocess;

/// Without locks, as only one process maps it.
using File =
    bi::basic_managed_mapped_file<char, bi::rbtree_best_fit<bi::null_mutex_family>, bi::iset_index>;

/// Objects of any size; a handle is the distance from the map's start.
class MappedHeap {
 public:
  explicit MappedHeap(const Space& space) : MappedHeap(space, space.budget) {}
  MappedHeap(const Space& space, std::uint64_t fileBytes) : m_path(space.directory / "objects") {
    std::filesystem::remove(m_path);
    m_file = File(bi::create_only, m_path.c_str(), fileBytes);
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
    return m_file.get_address_from_handle(static_cast<File::handle_t>(handle));
  }
  File& file() { return m_file; }
  const File& file() const { return m_file; }

 private:
  std::filesystem::path m_path;
  File m_file;
};

class BoostInterprocess : public MappedHeap {
 public:
  static constexpr bool kHandleIsKey = false;
  explicit BoostInterprocess(const Space& space)
      : MappedHeap(space, space.objects * (space.objectBytes + kOverhead) + (64U << 20)),
        m_objectBytes(space.objectBytes),
        m_index(file().construct<Pointer>(bi::anonymous_instance)[space.objects]()) {
    expect(MADV_RANDOM);
  }

  void add(const void* object) {
    make(m_objectBytes, [this, object](void* stored) {
      std::memcpy(stored, object, m_objectBytes);
      m_index[m_added++] = stored;
    });
  }
  std::uint64_t handle(std::uint64_t key) const {
    return static_cast<std::uint64_t>(file().get_handle_from_address(m_index[key].get()));
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
  void expect(int advice) { ::madvise(file().get_address(), file().get_size(), advice); }

  static constexpr std::uint64_t kOverhead = 16 + sizeof(Pointer);  // of an object

  std::uint32_t m_objectBytes;
  std::uint64_t m_added = 0;  // objects, and so the next key
  Pointer* m_index;           // by key
};

const Registration kRegistration({.name = "boost interprocess",
                                  .resident = measureResident<BoostInterprocess>,
                                  .paging = measurePaging<BoostInterprocess>,
                                  .churn = measureChurn<MappedHeap>});

}  // namespace

}  // namespace objects
