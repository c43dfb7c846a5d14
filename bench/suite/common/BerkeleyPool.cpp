#include "common/BerkeleyPool.h"

#include <filesystem>

#include "common/Figure.h"

namespace suite {

void BerkeleyPool::check(int result) {
  if (result != 0) {
    fail(std::string("Berkeley DB: ") + db_strerror(result));
  }
}

BerkeleyPool::BerkeleyPool(std::size_t budget) {
  const std::string home = std::filesystem::temp_directory_path().string();
  constexpr std::size_t kGiB = std::size_t{1} << 30;
  constexpr std::size_t kRaised = std::size_t{500} << 20;  // it adds a quarter to caches below
  budget = budget < kRaised ? budget / 5 * 4 : budget;
  check(db_env_create(&m_environment, 0));
  check(m_environment->set_tmp_dir(m_environment, home.c_str()));
  check(m_environment->set_cachesize(m_environment, static_cast<std::uint32_t>(budget / kGiB),
                                     static_cast<std::uint32_t>(budget % kGiB), 1));
  check(m_environment->open(m_environment, home.c_str(), DB_CREATE | DB_INIT_MPOOL | DB_PRIVATE,
                            0600));
  check(m_environment->memp_fcreate(m_environment, &m_file, 0));
  check(m_file->open(m_file, nullptr, DB_CREATE, 0600, kPageBytes));
}

BerkeleyPool::~BerkeleyPool() {
  m_file->close(m_file, 0);
  m_environment->close(m_environment, 0);
}

BerkeleyPool::Pin BerkeleyPool::create() {
  return get(m_pages++, DB_MPOOL_CREATE | DB_MPOOL_DIRTY);
}

}  // namespace suite
