#ifndef BENCH_SUITE_COMMON_LMDBENVIRONMENT_H
#define BENCH_SUITE_COMMON_LMDBENVIRONMENT_H

#include <lmdb.h>

#include <cstddef>
#include <string>

#include "common/Figure.h"
#include "common/ScratchDirectory.h"

namespace suite {

inline void checkLmdb(int result) {
  if (result != MDB_SUCCESS) [[unlikely]] {
    fail(std::string("LMDB: ") + ::mdb_strerror(result));
  }
}

/// An environment of LMDB for one process: a map that is written in place and never synchronised.
class LmdbEnvironment {
 public:
  /// @param mapBytes  the most that it can hold
  /// @param flags     of mdb_env_open, beside those that all have
  explicit LmdbEnvironment(std::size_t mapBytes, unsigned int flags = 0) {
    checkLmdb(::mdb_env_create(&m_environment));
    checkLmdb(::mdb_env_set_mapsize(m_environment, mapBytes));
    checkLmdb(::mdb_env_open(m_environment, scratchPath("lmdb").c_str(),
                             flags | MDB_NOSUBDIR | MDB_NOLOCK | MDB_WRITEMAP | MDB_NOSYNC, 0600));
  }
  ~LmdbEnvironment() { ::mdb_env_close(m_environment); }
  LmdbEnvironment(const LmdbEnvironment&) = delete;
  LmdbEnvironment& operator=(const LmdbEnvironment&) = delete;

  MDB_env* get() const { return m_environment; }

 private:
  MDB_env* m_environment = nullptr;  // owned
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_LMDBENVIRONMENT_H
