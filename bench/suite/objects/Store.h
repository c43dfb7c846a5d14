#ifndef BENCH_SUITE_OBJECTS_STORE_H
#define BENCH_SUITE_OBJECTS_STORE_H

#include <cstdint>
#include <limits>

#include "ObjectWork.h"
#include "QRTVirtualMemoryMgr.h"
#include "common/PageTraffic.h"

/// This library. Objects are pinned for writing even where they are only read, as its own classes
/// do: a page that did not change must not be written for it.
class Store {
 public:
  explicit Store(const Space& space) : Store(space.budget) {}
  explicit Store(std::uint64_t budget) : m_manager(checked(budget), 0, 0) {}

  template <class Fill>
  std::uint64_t make(std::uint32_t bytes, Fill fill) {
    QRTVirtualPageItem item;
    fill(m_manager.alloc(bytes, item));
    m_manager.dismiss(item.getOffset());
    return item.getOffset();
  }

  void end(std::uint64_t handle) {
    QRTVirtualPageItem item(handle, 0);
    m_manager.free(item);
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    update(handle, use);
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    change(checked(m_manager.getAddress(handle, 1)));
    m_manager.dismiss(handle);
  }

  /// Uses several objects that are pinned in one call.
  template <class Use>
  void readAll(const unsigned long long* handles, std::uint32_t count, Use use) {
    void* objects[kMostAtOnce];
    if (m_manager.getAddresses(handles, objects, count, 1) != count) [[unlikely]] {
      suite::require(false, m_manager.getLastStoreError());
    }
    for (std::uint32_t i = 0; i < count; ++i) {
      use(i, objects[i]);
    }
    m_manager.dismiss(handles, count);
  }
  static constexpr std::uint32_t kMostAtOnce = 1024;

  /// Tells that an object will be used soon.
  void announce(std::uint64_t handle) { m_manager.prefetch(handle); }

  /// For walks: unpins an object, 0 for none, and pins the next one.
  void* movePin(std::uint64_t from, std::uint64_t to) {
    return checked(m_manager.movePin(from, to));
  }
  void dismiss(std::uint64_t handle) { m_manager.dismiss(handle); }

  std::uint64_t pageReads() { return pageTrafficOf(m_manager).reads; }
  std::uint64_t pageWrites() { return pageTrafficOf(m_manager).writes; }

 private:
  void* checked(void* object) {
    if (object == nullptr) [[unlikely]] {
      suite::require(false, m_manager.getLastStoreError());
    }
    return object;
  }

  static unsigned checked(std::uint64_t budget) {
    suite::require(budget <= std::numeric_limits<unsigned>::max(),
                   "a budget of the store is below 4 GiB");
    return static_cast<unsigned>(budget);
  }

  QRTVirtualMemoryMgr m_manager;
};

#endif  // BENCH_SUITE_OBJECTS_STORE_H
