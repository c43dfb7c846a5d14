// LMDB: a B-tree in a memory map, written in place and without synchronising. It has no budget: its
// map is the system's page cache. The system's read-ahead is off, which random accesses need; it
// cannot be changed for a scan.

#include <lmdb.h>

#include <cstring>

#include "objects/ByKey.h"
#include "objects/Paging.h"
#include "objects/Resident.h"

namespace objects {

namespace {

void check(int result) {
  require(result == MDB_SUCCESS, ::mdb_strerror(result));
}

class Lmdb : public ByKey {
 public:
  explicit Lmdb(const Space& space) : ByKey(space) {
    check(::mdb_env_create(&m_env));
    check(::mdb_env_set_mapsize(m_env, 3 * space.objects * space.objectBytes + (1U << 30)));
    check(::mdb_env_open(m_env, space.directory.c_str(),
                         MDB_WRITEMAP | MDB_NOSYNC | MDB_NOMETASYNC | MDB_NOLOCK | MDB_NORDAHEAD,
                         0600));
    begin(true);
    check(::mdb_dbi_open(m_transaction, nullptr, MDB_INTEGERKEY, &m_table));
    finish();
  }
  ~Lmdb() {
    finish();
    ::mdb_env_close(m_env);
  }

  void add(const void* object) {
    begin(true);
    MDB_val key{sizeof m_added, &m_added};
    MDB_val value{m_objectBytes, const_cast<void*>(object)};
    check(::mdb_cursor_put(m_cursor, &key, &value, MDB_APPEND));
    ++m_added;
    count();
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    begin(false);
    MDB_val key{sizeof handle, &handle};
    MDB_val value{};
    check(::mdb_cursor_get(m_cursor, &key, &value, MDB_SET));
    use(value.mv_data);
  }

  template <class Use>
  void scan(Use use) {
    begin(false);
    MDB_val key{};
    MDB_val value{};
    check(::mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST));
    while (use(value.mv_data)) {
      check(::mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT));
    }
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    begin(true);
    MDB_val key{sizeof handle, &handle};
    MDB_val value{};
    check(::mdb_cursor_get(m_cursor, &key, &value, MDB_SET));
    char object[4096];
    std::memcpy(object, value.mv_data, m_objectBytes);
    change(object);
    value.mv_data = object;
    check(::mdb_cursor_put(m_cursor, &key, &value, MDB_CURRENT));
    count();
  }

  void finish() {
    if (m_transaction != nullptr) {
      if (m_cursor != nullptr) {
        ::mdb_cursor_close(m_cursor);
        m_cursor = nullptr;
      }
      check(::mdb_txn_commit(m_transaction));
      m_transaction = nullptr;
    }
  }

 private:
  // A commit costs little beside them, and the list of changed pages stays within its bounds.
  static constexpr std::uint64_t kChangesInTransaction = 10'000;

  /// Makes sure that a transaction is open which can do what is asked for.
  void begin(bool writing) {
    if (m_transaction != nullptr && (m_writing || !writing)) {
      if (m_cursor == nullptr) {
        check(::mdb_cursor_open(m_transaction, m_table, &m_cursor));
      }
      return;
    }
    finish();
    check(::mdb_txn_begin(m_env, nullptr, writing ? 0U : MDB_RDONLY, &m_transaction));
    m_writing = writing;
    m_changes = 0;
    if (m_table != 0) {
      check(::mdb_cursor_open(m_transaction, m_table, &m_cursor));
    }
  }

  void count() {
    if (++m_changes == kChangesInTransaction) {
      finish();
    }
  }

  std::uint64_t m_changes = 0;  // in the transaction
  bool m_writing = false;       // whether the transaction can write
  MDB_env* m_env = nullptr;
  MDB_txn* m_transaction = nullptr;  // null when none is open
  MDB_cursor* m_cursor = nullptr;    // of the transaction
  MDB_dbi m_table = 0;               // 0 until it is opened
};

const Registration kRegistration({.name = "lmdb",
                                  .resident = measureResident<Lmdb>,
                                  .paging = measurePaging<Lmdb>});

}  // namespace

}  // namespace objects
