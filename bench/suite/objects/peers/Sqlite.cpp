// SQLite: a table by rowid, prepared statements, a bounded page cache, no journal.

#include <sqlite3.h>

#include <cstring>
#include <string>

#include "ByKey.h"
#include "common/ScratchDirectory.h"

namespace {

class Sqlite : public ByKey {
 public:
  explicit Sqlite(const Space& space) : ByKey(space) {
    check(::sqlite3_open(suite::scratchPath("objects").c_str(), &m_database));
    run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
        "PRAGMA locking_mode=EXCLUSIVE");
    run(("PRAGMA cache_size=-" + std::to_string(space.budget / 1024)).c_str());
    run("CREATE TABLE objects(id INTEGER PRIMARY KEY, object BLOB)");
    m_insert = prepare("INSERT INTO objects VALUES(?1, ?2)");
    m_select = prepare("SELECT object FROM objects WHERE id = ?1");
    m_scan = prepare("SELECT object FROM objects ORDER BY id");
    m_update = prepare("UPDATE objects SET object = ?2 WHERE id = ?1");
  }
  ~Sqlite() {
    for (sqlite3_stmt* const statement : {m_insert, m_select, m_scan, m_update}) {
      ::sqlite3_finalize(statement);
    }
    ::sqlite3_close(m_database);
  }

  void add(const void* object) { write(m_insert, m_added++, object); }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    check(::sqlite3_bind_int64(m_select, 1, static_cast<sqlite3_int64>(handle)));
    use(next(m_select));
    check(::sqlite3_reset(m_select));
  }

  template <class Use>
  void scan(Use use) {
    while (use(next(m_scan))) {
    }
    check(::sqlite3_reset(m_scan));
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    char object[4096];
    read(handle,
         [this, &object](const void* stored) { std::memcpy(object, stored, m_objectBytes); });
    change(object);
    write(m_update, handle, object);
  }

  void finish() {
    if (isInTransaction()) {
      run("COMMIT");
    }
  }

 private:
  /// One holds all adds or updates until they are finished.
  bool isInTransaction() const { return ::sqlite3_get_autocommit(m_database) == 0; }

  void check(int result) { suite::require(result == SQLITE_OK, ::sqlite3_errmsg(m_database)); }

  void run(const char* statement) {
    check(::sqlite3_exec(m_database, statement, nullptr, nullptr, nullptr));
  }

  sqlite3_stmt* prepare(const char* text) {
    sqlite3_stmt* statement = nullptr;
    check(
        ::sqlite3_prepare_v3(m_database, text, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr));
    return statement;
  }

  /// The object in the next row of a query.
  const void* next(sqlite3_stmt* query) {
    suite::require(::sqlite3_step(query) == SQLITE_ROW, "sqlite does not find an object");
    const void* const object = ::sqlite3_column_blob(query, 0);
    suite::require(object != nullptr, "sqlite has an empty object");
    return object;
  }

  void write(sqlite3_stmt* statement, std::uint64_t key, const void* object) {
    if (!isInTransaction()) {
      run("BEGIN");
    }
    check(::sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(key)));
    check(
        ::sqlite3_bind_blob(statement, 2, object, static_cast<int>(m_objectBytes), SQLITE_STATIC));
    suite::require(::sqlite3_step(statement) == SQLITE_DONE, ::sqlite3_errmsg(m_database));
    check(::sqlite3_reset(statement));
  }

  sqlite3* m_database = nullptr;
  sqlite3_stmt* m_insert = nullptr;
  sqlite3_stmt* m_select = nullptr;
  sqlite3_stmt* m_scan = nullptr;
  sqlite3_stmt* m_update = nullptr;
};

}  // namespace

void addSqlite(const AddPeer& add) {
  addByKey<Sqlite>(add, "sqlite");
}
