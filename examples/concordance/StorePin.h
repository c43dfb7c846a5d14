#ifndef EXAMPLES_CONCORDANCE_STOREPIN_H
#define EXAMPLES_CONCORDANCE_STOREPIN_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "QRTVirtualMemoryMgr.h"

namespace example {

/// An object of a store, known by its offset, pinned while this stands. One that the store cannot
/// read back is an exception: the index cannot go on without it.
class StorePin {
 public:
  enum Mode { eRead = 0, eWrite = 1 };

  /// @throws std::runtime_error with the store's reason
  StorePin(QRTVirtualMemoryMgr& manager, std::uint64_t offset, Mode mode)
      : m_manager(manager), m_offset(offset), m_address(manager.getAddress(offset, mode)) {
    if (m_address == nullptr) {
      throw std::runtime_error("the store cannot read back a part of the index: " +
                               std::string(manager.getLastStoreError()));
    }
  }

  ~StorePin() { m_manager.dismiss(m_offset); }

  StorePin(const StorePin&) = delete;
  StorePin& operator=(const StorePin&) = delete;

  /// The object as what was stored in it.
  template <class T>
  T& as() const {
    return *static_cast<T*>(m_address);
  }

 private:
  QRTVirtualMemoryMgr& m_manager;  // not owned
  std::uint64_t m_offset;          // of the object
  void* m_address;                 // where it is while pinned
};

/// Makes an object in a store from a value and leaves it unpinned.
/// @return its offset
template <class T>
std::uint64_t storeValue(QRTVirtualMemoryMgr& manager, const T& value) {
  QRTVirtualPageItem item;
  *static_cast<T*>(manager.alloc(sizeof(T), item)) = value;
  manager.dismiss(item);
  return item.getOffset();
}

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_STOREPIN_H
