#ifndef EXAMPLES_COMMON_PINNEDOBJECT_H
#define EXAMPLES_COMMON_PINNEDOBJECT_H

#include <cstddef>

#include "QRTVirtualMemoryMgr.h"

namespace example {

/// An object of a store, pinned while this stands. Its bytes must not be touched after that.
class PinnedObject {
 public:
  /// Pins the object `item` names; `bytes()` is null when the store cannot read it back.
  PinnedObject(QRTVirtualMemoryMgr& manager, const QRTVirtualPageItem& item)
      : m_manager(manager), m_item(item), m_bytes(manager.getAddress(m_item, 1)) {}

  ~PinnedObject() {
    if (m_bytes != nullptr) {
      m_manager.dismiss(m_item);
    }
  }

  PinnedObject(const PinnedObject&) = delete;
  PinnedObject& operator=(const PinnedObject&) = delete;

  std::byte* bytes() const { return static_cast<std::byte*>(m_bytes); }
  std::size_t size() const { return m_item.getSize(); }

 private:
  QRTVirtualMemoryMgr& m_manager;  // not owned
  QRTVirtualPageItem m_item;       // a copy: it names the same object
  void* m_bytes;                   // the object's address; null when it could not be pinned
};

}  // namespace example

#endif  // EXAMPLES_COMMON_PINNEDOBJECT_H
