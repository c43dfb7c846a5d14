// Berkeley DB's memory pool called directly: pages of a file are got and put, objects are packed in
// them. Of all peers this is the one that is most like a store of pinned pages.

#include <cstring>

#include "objects/BerkeleyEnvironment.h"
#include "objects/ByKey.h"
#include "objects/Paging.h"
#include "objects/Resident.h"

// What DB_MPOOLFILE->get ends in. In release 5.3 that one drops DB_MPOOL_DIRTY on the way, so that
// pages read back and changed leave the pool without being written: the updates would be lost.
extern "C" int __memp_fget(DB_MPOOLFILE* file, db_pgno_t* page, void* thread, DB_TXN* transaction,
                           u_int32_t flags, void* address);

namespace objects {

namespace {

class BdbPool : public ByKey {
 public:
  explicit BdbPool(const Space& space)
      : ByKey(space),
        m_inPage(BerkeleyEnvironment::kPageBytes / space.objectBytes),
        m_environment(space) {
    DB_ENV* const env = m_environment.get();
    checkBerkeley(env->memp_fcreate(env, &m_file, 0));
    checkBerkeley(
        m_file->open(m_file, "objects", DB_CREATE, 0600, BerkeleyEnvironment::kPageBytes));
  }
  ~BdbPool() { m_file->close(m_file, 0); }

  void add(const void* object) {
    if (m_added % m_inPage == 0) {
      finish();
      db_pgno_t page = 0;
      m_filled = get(page, DB_MPOOL_NEW);
      if (m_added == 0) {
        m_firstPage = page;
      }
      require(page == m_firstPage + m_added / m_inPage, "bdb gave another page than the next");
    }
    std::memcpy(m_filled + m_added++ % m_inPage * m_objectBytes, object, m_objectBytes);
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    db_pgno_t page = pageOf(handle);
    char* const bytes = get(page, 0);
    use(static_cast<const void*>(bytes + handle % m_inPage * m_objectBytes));
    put(bytes);
  }
  /// Gets each page once.
  template <class Use>
  void scan(Use use) {
    bool more = true;
    for (db_pgno_t page = m_firstPage; more; ++page) {
      char* const bytes = get(page, 0);
      for (std::uint32_t i = 0; i < m_inPage && more; ++i) {
        more = use(static_cast<const void*>(bytes + i * m_objectBytes));
      }
      put(bytes);
    }
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    db_pgno_t page = pageOf(handle);
    char* bytes = nullptr;
    checkBerkeley(::__memp_fget(m_file, &page, nullptr, nullptr, DB_MPOOL_DIRTY, &bytes));
    change(static_cast<void*>(bytes + handle % m_inPage * m_objectBytes));
    put(bytes);
  }

  void finish() {
    if (m_filled != nullptr) {
      put(m_filled);
      m_filled = nullptr;
    }
  }

 private:
  db_pgno_t pageOf(std::uint64_t key) const {
    return static_cast<db_pgno_t>(m_firstPage + key / m_inPage);
  }

  char* get(db_pgno_t& page, u_int32_t flags) {
    void* bytes = nullptr;
    checkBerkeley(m_file->get(m_file, &page, nullptr, flags, &bytes));
    return static_cast<char*>(bytes);
  }
  void put(char* bytes) { checkBerkeley(m_file->put(m_file, bytes, DB_PRIORITY_UNCHANGED, 0)); }

  std::uint32_t m_inPage;     // objects in a page
  db_pgno_t m_firstPage = 0;  // of the objects
  char* m_filled = nullptr;   // the page that new objects go to, pinned
  BerkeleyEnvironment m_environment;
  DB_MPOOLFILE* m_file = nullptr;
};

const Registration kRegistration({.name = "bdb pool",
                                  .resident = measureResident<BdbPool>,
                                  .paging = measurePaging<BdbPool>});

}  // namespace

}  // namespace objects
