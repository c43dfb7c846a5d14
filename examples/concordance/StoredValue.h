#ifndef EXAMPLES_CONCORDANCE_STOREDVALUE_H
#define EXAMPLES_CONCORDANCE_STOREDVALUE_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "QRTVirtualPin.h"

namespace example {

/// Pins an object of a store that is known by its offset, for reading only when T is const.
/// @throws std::runtime_error with the store's reason when the object cannot be read back: the
///         index cannot go on without it
template <class T>
QRTVirtualPin<T> pinValue(QRTVirtualMemoryMgr& manager, std::uint64_t offset) {
  QRTVirtualPin<T> pin(manager, offset);
  if (!pin) {
    throw std::runtime_error("the store cannot read back a part of the index: " +
                             std::string(manager.getLastStoreError()));
  }
  return pin;
}

/// Makes an object in a store from a value and leaves it unpinned.
/// @return its offset
template <class T>
std::uint64_t storeValue(QRTVirtualMemoryMgr& manager, const T& value) {
  QRTVirtualPageItem item;
  *QRTVirtualPin<T>::alloc(manager, sizeof(T), item) = value;
  return item.getOffset();
}

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_STOREDVALUE_H
