#ifndef BENCH_SUITE_COMMON_BERKELEYPOOL_H
#define BENCH_SUITE_COMMON_BERKELEYPOOL_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "common/BerkeleyEnvironment.h"

// What DB_MPOOLFILE->get calls. In release 5.3 that one drops DB_MPOOL_DIRTY on the way, so that
// changes to a page that was read back would be lost.
extern "C" int __memp_fget(DB_MPOOLFILE* file, db_pgno_t* number, void* thread, DB_TXN* transaction,
                           u_int32_t flags, void* address);

namespace suite {

/// Pages of 4 KiB in a memory pool of Berkeley DB that is the process's own, without locks. Those
/// that do not fit are in a nameless file.
class BerkeleyPool {
 public:
  static constexpr std::uint32_t kPageBytes = BerkeleyEnvironment::kPageBytes;

  /// A pinned page; gives its pin back when it goes.
  class Pin {
   public:
    Pin(DB_MPOOLFILE* file, void* page) : m_file(file), m_page(static_cast<char*>(page)) {}
    ~Pin() {
      if (m_page != nullptr) {
        checkBerkeley(m_file->put(m_file, m_page, DB_PRIORITY_UNCHANGED, 0));
      }
    }
    Pin(Pin&& other) noexcept
        : m_file(other.m_file), m_page(std::exchange(other.m_page, nullptr)) {}
    Pin& operator=(Pin&& other) noexcept {
      std::swap(m_file, other.m_file);
      std::swap(m_page, other.m_page);
      return *this;
    }
    char* bytes() const { return m_page; }

   private:
    DB_MPOOLFILE* m_file;  // not owned
    char* m_page;          // null when the pin has moved on
  };

  /// @param budget  bytes of memory that it may take
  explicit BerkeleyPool(std::size_t budget) : m_environment(budget) {
    DB_ENV* const environment = m_environment.get();
    checkBerkeley(environment->memp_fcreate(environment, &m_file, 0));
    checkBerkeley(m_file->open(m_file, nullptr, DB_CREATE, 0600, kPageBytes));
  }
  ~BerkeleyPool() { m_file->close(m_file, 0); }
  BerkeleyPool(const BerkeleyPool&) = delete;
  BerkeleyPool& operator=(const BerkeleyPool&) = delete;

  /// Adds a page; they are numbered from 0 on. @return the page, to be changed
  Pin create() { return get(m_pages++, DB_MPOOL_CREATE | DB_MPOOL_DIRTY); }
  /// Pins a page to read it.
  Pin read(std::uint32_t number) { return get(number, 0); }
  /// Pins a page to change it.
  Pin edit(std::uint32_t number) { return get(number, DB_MPOOL_DIRTY); }

 private:
  Pin get(std::uint32_t number, std::uint32_t flags) {
    void* page = nullptr;
    checkBerkeley(__memp_fget(m_file, &number, nullptr, nullptr, flags, &page));
    return Pin(m_file, page);
  }

  BerkeleyEnvironment m_environment;
  DB_MPOOLFILE* m_file = nullptr;  // owned
  std::uint32_t m_pages = 0;       // how many there are
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_BERKELEYPOOL_H
