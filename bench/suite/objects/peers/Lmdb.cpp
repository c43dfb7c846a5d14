// LMDB: a B-tree in a memory map, written in place and without synchronising. It has no budget: its
// map is the system's page cache. The system's read-ahead is off, which random accesses need; it
// cannot be changed for a scan.

#include <cstring>

#include "ByKey.h"
#include "common/LmdbEnvironment.h"

namespace {

class Lmdb : public ByKey {
 public:
  explicit Lmdb(const Space& space)
      : ByKey(space),
        m_environment(3 * space.objects * space.objectBytes + (1U << 30), MDB_NORDAHEAD) {
    MDB_txn* making = nullptr;
    suite::checkLmdb(::mdb_txn_begin(m_environment.get(), nullptr, 0, &making));
    suite::checkLmdb(::mdb_dbi_open(making, nullptr, MDB_INTEGERKEY, &m_table));
    suite::checkLmdb(::mdb_txn_commit(making));
  }
  ~Lmdb() { finish(); }

  void add(const void* object) {
    begin(true);
    MDB_val key{sizeof m_added, &m_added};
    MDB_val value{m_objectBytes, const_cast<void*>(object)};
    suite::checkLmdb(::mdb_cursor_put(m_cursor, &key, &value, MDB_APPEND));
    ++m_added;
    count();
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    begin(false);
    MDB_val key{sizeof handle, &handle};
    MDB_val value{};
    suite::checkLmdb(::mdb_cursor_get(m_cursor, &key, &value, MDB_SET));
    use(value.mv_data);
  }

  template <class Use>
  void scan(Use use) {
    begin(false);
    MDB_val key{};
    MDB_val value{};
    suite::checkLmdb(::mdb_cursor_get(m_cursor, &key, &value, MDB_FIRST));
    while (use(value.mv_data)) {
      suite::checkLmdb(::mdb_cursor_get(m_cursor, &key, &value, MDB_NEXT));
    }
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    begin(true);
    MDB_val key{sizeof handle, &handle};
    MDB_val value{};
    suite::checkLmdb(::mdb_cursor_get(m_cursor, &key, &value, MDB_SET));
    char object[4096];
    std::memcpy(object, value.mv_data, m_objectBytes);
    change(object);
    value.mv_data = object;
    suite::checkLmdb(::mdb_cursor_put(m_cursor, &key, &value, MDB_CURRENT));
    count();
  }

  void finish() {
    if (m_transaction != nullptr) {
      ::mdb_cursor_close(m_cursor);
      suite::checkLmdb(::mdb_txn_commit(m_transaction));
      m_transaction = nullptr;
    }
  }

 private:
  // A commit costs little beside them, and the list of changed pages stays within its bounds.
  static constexpr std::uint64_t kChangesInTransaction = 10'000;

  /// Makes sure that a transaction is open which can do what is asked for.
  void begin(bool writing) {
    if (m_transaction != nullptr && (m_writing || !writing)) {
      return;
    }
    finish();
    suite::checkLmdb(
        ::mdb_txn_begin(m_environment.get(), nullptr, writing ? 0U : MDB_RDONLY, &m_transaction));
    m_writing = writing;
    m_changes = 0;
    suite::checkLmdb(::mdb_cursor_open(m_transaction, m_table, &m_cursor));
  }

  void count() {
    if (++m_changes == kChangesInTransaction) {
      finish();
    }
  }

  std::uint64_t m_changes = 0;  // in the transaction
  bool m_writing = false;       // whether the transaction can write
  suite::LmdbEnvironment m_environment;
  MDB_txn* m_transaction = nullptr;  // null when none is open
  MDB_cursor* m_cursor = nullptr;    // of the transaction
  MDB_dbi m_table = 0;
};

}  // namespace

void addLmdb(const AddPeer& add) {
  addByKey<Lmdb>(add, "lmdb");
}
