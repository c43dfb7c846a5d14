// Berkeley DB's memory pool: objects are packed in its pages. Of all peers this is the one that is
// most like a store of pinned pages.

#include <cstring>
#include <optional>

#include "ByKey.h"
#include "common/BerkeleyPool.h"

namespace {

class BerkeleyPages : public ByKey {
 public:
  explicit BerkeleyPages(const Space& space)
      : ByKey(space),
        m_inPage(suite::BerkeleyPool::kPageBytes / space.objectBytes),
        m_pool(space.budget) {}

  void add(const void* object) {
    if (m_added % m_inPage == 0) {
      finish();
      m_filled.emplace(m_pool.create());
    }
    std::memcpy(place(*m_filled, m_added++), object, m_objectBytes);
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    const suite::BerkeleyPool::Pin page = m_pool.read(pageOf(handle));
    use(static_cast<const void*>(place(page, handle)));
  }
  /// Gets each page once.
  template <class Use>
  void scan(Use use) {
    bool more = true;
    for (std::uint32_t number = 0; more; ++number) {
      const suite::BerkeleyPool::Pin page = m_pool.read(number);
      for (std::uint32_t i = 0; i < m_inPage && more; ++i) {
        more = use(static_cast<const void*>(place(page, i)));
      }
    }
  }
  template <class Change>
  void update(std::uint64_t handle, Change change) {
    const suite::BerkeleyPool::Pin page = m_pool.edit(pageOf(handle));
    change(place(page, handle));
  }

  void finish() { m_filled.reset(); }

 private:
  std::uint32_t pageOf(std::uint64_t key) const {
    return static_cast<std::uint32_t>(key / m_inPage);
  }
  void* place(const suite::BerkeleyPool::Pin& page, std::uint64_t key) const {
    return page.bytes() + key % m_inPage * m_objectBytes;
  }

  std::uint32_t m_inPage;  // objects in a page
  suite::BerkeleyPool m_pool;
  std::optional<suite::BerkeleyPool::Pin> m_filled;  // the page that new objects go to
};

}  // namespace

void addBerkeleyPages(const AddPeer& add) {
  addByKey<BerkeleyPages>(add, "bdb pool");
}
