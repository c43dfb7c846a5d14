// SQLite: a table by rowid, prepared statements, a bounded page cache, no journal.

#include <sqlite3.h>

#include <algorithm>
#include <string>

#include "MapWork.h"
#include "common/ScratchDirectory.h"

namespace {

class SqliteMap {
 public:
  static constexpr bool kHasBudget = true;

  SqliteMap(std::uint64_t, std::size_t budget) {
    check(::sqlite3_open(suite::scratchPath("map").c_str(), &m_database));
    run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
        "PRAGMA locking_mode=EXCLUSIVE");
    const std::size_t pages = std::min(budget, std::size_t{1} << 40);
    run(("PRAGMA cache_size=-" + std::to_string(pages / 1024)).c_str());
    run("CREATE TABLE map(key INTEGER PRIMARY KEY, value INTEGER)");
    m_insert = prepare("INSERT INTO map VALUES(?1, ?2)");
    m_find = prepare("SELECT value FROM map WHERE key = ?1");
    m_assign = prepare("UPDATE map SET value = ?2 WHERE key = ?1");
    m_walk = prepare("SELECT key, value FROM map");
  }
  ~SqliteMap() {
    for (sqlite3_stmt* const statement : {m_insert, m_find, m_assign, m_walk}) {
      ::sqlite3_finalize(statement);
    }
    ::sqlite3_close(m_database);
  }
  SqliteMap(const SqliteMap&) = delete;
  SqliteMap& operator=(const SqliteMap&) = delete;

  void insert(std::uint64_t key, std::uint64_t value) { write(m_insert, key, value); }
  void assign(std::uint64_t key, std::uint64_t value) { write(m_assign, key, value); }

  bool find(std::uint64_t key, std::uint64_t& value) {
    check(::sqlite3_bind_int64(m_find, 1, static_cast<sqlite3_int64>(key)));
    const bool there = ::sqlite3_step(m_find) == SQLITE_ROW;
    if (there) {
      value = static_cast<std::uint64_t>(::sqlite3_column_int64(m_find, 0));
    }
    check(::sqlite3_reset(m_find));
    return there;
  }

  template <class Use>
  void forEach(Use use) {
    while (::sqlite3_step(m_walk) == SQLITE_ROW) {
      use(static_cast<std::uint64_t>(::sqlite3_column_int64(m_walk, 0)),
          static_cast<std::uint64_t>(::sqlite3_column_int64(m_walk, 1)));
    }
    check(::sqlite3_reset(m_walk));
  }

  void finish() {
    if (::sqlite3_get_autocommit(m_database) == 0) {
      run("COMMIT");
    }
  }

 private:
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

  /// One transaction holds all changes until they are finished.
  void write(sqlite3_stmt* statement, std::uint64_t key, std::uint64_t value) {
    if (::sqlite3_get_autocommit(m_database) != 0) {
      run("BEGIN");
    }
    check(::sqlite3_bind_int64(statement, 1, static_cast<sqlite3_int64>(key)));
    check(::sqlite3_bind_int64(statement, 2, static_cast<sqlite3_int64>(value)));
    suite::require(::sqlite3_step(statement) == SQLITE_DONE, ::sqlite3_errmsg(m_database));
    check(::sqlite3_reset(statement));
  }

  sqlite3* m_database = nullptr;
  sqlite3_stmt* m_insert = nullptr;
  sqlite3_stmt* m_find = nullptr;
  sqlite3_stmt* m_assign = nullptr;
  sqlite3_stmt* m_walk = nullptr;
};

}  // namespace

void measureSqlite(const MapOptions& options) {
  measureMap<SqliteMap>("sqlite", options);
}
