#ifndef BENCH_SUITE_COMMON_BERKELEYENVIRONMENT_H
#define BENCH_SUITE_COMMON_BERKELEYENVIRONMENT_H

#include <db.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Figure.h"
#include "common/ScratchDirectory.h"

namespace suite {

inline void checkBerkeley(int result) {
  if (result != 0) [[unlikely]] {
    fail(std::string("Berkeley DB: ") + ::db_strerror(result));
  }
}

/// An environment of Berkeley DB for one process, with nothing but a cache of 4 KiB pages. Its
/// files are in the scratch directory.
class BerkeleyEnvironment {
 public:
  static constexpr std::uint32_t kPageBytes = 4096;

  /// @param budget  bytes of memory that the cache may take
  explicit BerkeleyEnvironment(std::size_t budget) {
    constexpr std::size_t kGiB = std::size_t{1} << 30;
    // It adds a quarter to caches below this size for its own structures.
    constexpr std::size_t kRaisedBelow = std::size_t{500} << 20;
    const std::size_t cache = budget < kRaisedBelow ? budget / 5 * 4 : budget;
    const std::string directory = scratchPath("");
    checkBerkeley(::db_env_create(&m_environment, 0));
    checkBerkeley(m_environment->set_cachesize(m_environment,
                                               static_cast<std::uint32_t>(cache / kGiB),
                                               static_cast<std::uint32_t>(cache % kGiB), 1));
    checkBerkeley(m_environment->set_mp_pagesize(m_environment, kPageBytes));
    checkBerkeley(m_environment->set_tmp_dir(m_environment, directory.c_str()));
    checkBerkeley(m_environment->open(m_environment, directory.c_str(),
                                      DB_CREATE | DB_PRIVATE | DB_INIT_MPOOL, 0600));
  }
  ~BerkeleyEnvironment() { m_environment->close(m_environment, 0); }
  BerkeleyEnvironment(const BerkeleyEnvironment&) = delete;
  BerkeleyEnvironment& operator=(const BerkeleyEnvironment&) = delete;

  DB_ENV* get() const { return m_environment; }

 private:
  DB_ENV* m_environment = nullptr;  // owned
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_BERKELEYENVIRONMENT_H
