#ifndef BENCH_SUITE_OBJECTS_BERKELEYENVIRONMENT_H
#define BENCH_SUITE_OBJECTS_BERKELEYENVIRONMENT_H

#include <db.h>

#include "objects/Peer.h"

namespace objects {

inline void checkBerkeley(int result) {
  require(result == 0, ::db_strerror(result));
}

/// An environment of Berkeley DB for one process, with nothing but a cache of 4 KiB pages.
class BerkeleyEnvironment {
 public:
  static constexpr std::uint32_t kPageBytes = 4096;

  explicit BerkeleyEnvironment(const Space& space) {
    // It adds a quarter to caches below this size for its own structures.
    constexpr std::uint64_t kRaisedBelow = 500U << 20;
    const std::uint64_t cache = space.budget < kRaisedBelow ? space.budget / 5 * 4 : space.budget;
    checkBerkeley(::db_env_create(&m_env, 0));
    checkBerkeley(m_env->set_cachesize(m_env, static_cast<u_int32_t>(cache >> 30),
                                       static_cast<u_int32_t>(cache & ((1U << 30) - 1)), 1));
    checkBerkeley(m_env->set_mp_pagesize(m_env, kPageBytes));
    checkBerkeley(
        m_env->open(m_env, space.directory.c_str(), DB_CREATE | DB_PRIVATE | DB_INIT_MPOOL, 0600));
  }
  ~BerkeleyEnvironment() { m_env->close(m_env, 0); }
  BerkeleyEnvironment(const BerkeleyEnvironment&) = delete;
  BerkeleyEnvironment& operator=(const BerkeleyEnvironment&) = delete;

  DB_ENV* get() const { return m_env; }

 private:
  DB_ENV* m_env = nullptr;
};

}  // namespace objects

#endif  // BENCH_SUITE_OBJECTS_BERKELEYENVIRONMENT_H
