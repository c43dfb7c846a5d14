// LMDB: a B-tree in a memory map, written in place and without synchronising. It has no budget: its
// map is the system's page cache.

#include <cstring>

#include "MapWork.h"
#include "common/LmdbEnvironment.h"

namespace {

class LmdbMap {
 public:
  static constexpr bool kHasBudget = false;

  LmdbMap(std::uint64_t pairs, std::size_t)
      : m_environment(pairs * 128 + (1U << 30), MDB_NORDAHEAD) {
    begin(true);
    suite::checkLmdb(::mdb_dbi_open(m_transaction, nullptr, MDB_INTEGERKEY, &m_table));
    finish();
  }
  ~LmdbMap() { finish(); }
  LmdbMap(const LmdbMap&) = delete;
  LmdbMap& operator=(const LmdbMap&) = delete;

  void insert(std::uint64_t key, std::uint64_t value) { assign(key, value); }

  bool find(std::uint64_t key, std::uint64_t& value) {
    begin(false);
    MDB_val name{sizeof key, &key};
    MDB_val found{};
    const int result = ::mdb_get(m_transaction, m_table, &name, &found);
    if (result == MDB_NOTFOUND) {
      return false;
    }
    suite::checkLmdb(result);
    std::memcpy(&value, found.mv_data, sizeof value);
    return true;
  }

  void assign(std::uint64_t key, std::uint64_t value) {
    begin(true);
    MDB_val name{sizeof key, &key};
    MDB_val kept{sizeof value, &value};
    suite::checkLmdb(::mdb_put(m_transaction, m_table, &name, &kept, 0));
    if (++m_changes == kChangesInTransaction) {
      finish();
    }
  }

  template <class Use>
  void forEach(Use use) {
    begin(false);
    MDB_cursor* cursor = nullptr;
    suite::checkLmdb(::mdb_cursor_open(m_transaction, m_table, &cursor));
    MDB_val name{};
    MDB_val kept{};
    while (::mdb_cursor_get(cursor, &name, &kept, MDB_NEXT) == MDB_SUCCESS) {
      std::uint64_t key = 0;
      std::uint64_t value = 0;
      std::memcpy(&key, name.mv_data, sizeof key);
      std::memcpy(&value, kept.mv_data, sizeof value);
      use(key, value);
    }
    ::mdb_cursor_close(cursor);
  }

  void finish() {
    if (m_transaction != nullptr) {
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
  }

  suite::LmdbEnvironment m_environment;
  MDB_txn* m_transaction = nullptr;  // null when none is open
  MDB_dbi m_table = 0;
  bool m_writing = false;       // whether the transaction can write
  std::uint64_t m_changes = 0;  // in it
};

}  // namespace

void measureLmdb(const MapOptions& options) {
  measureMap<LmdbMap>("lmdb", options);
}
