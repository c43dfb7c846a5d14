#ifndef QRTVIRTUALPIN_H
#define QRTVIRTUALPIN_H

#include <cstddef>
#include <type_traits>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPageItem.h"

/// A stored object, pinned while this stands: the dismiss that a pin owes happens by itself, also
/// when an error passes through. Moves like a unique_ptr and can be empty. Header-only, C++17.
///
///     QRTVirtualPin<QRTVirtualTreeNode> child(parent->getFirstChild());  // takes the pin over
///     QRTVirtualPin<Record> record(manager, item);                       // pins an object
///     QRTVirtualPin<const Record> constant(manager, item);               // pins it for reading
///     QRTVirtualPin<Record> byOffset(manager, item.getOffset());         // of a size you know
///     QRTVirtualPin<int> count(std::move(record), &record->count);       // names a part of it
///
/// @tparam T  what lives at the object's address: a node class, or any type that may be kept as
///            bytes. With a const type the object is pinned for reading only.
template <class T>
class QRTVirtualPin {
 public:
  /// Makes an empty pin.
  QRTVirtualPin() noexcept = default;
  explicit QRTVirtualPin(std::nullptr_t) noexcept {}

  /// Takes over the pin of a node, as `createNode`, `getNode` and the navigation of a tree give it.
  /// @tparam Node  T, or a node class that T derives from
  /// @param node   a pinned node of class T, which is not checked; null makes an empty pin
  /// @throws QRTAssertError, with the pin left to the caller, when the node has no container
  template <class Node>
  explicit QRTVirtualPin(Node* node) : m_object(static_cast<T*>(node)) {
    if (node != nullptr) {
      QRT_ASSERT(node->getContainer());
      m_memMgr = node->getContainer()->getMemoryMgr();
      m_offset = node->getPageOffset();
    }
  }

  /// Pins an object.
  /// @param memMgr  the store it lives in; must outlive the pin
  /// @param item    names the object
  /// The pin is empty when the item names nothing or the object cannot be read back. Cost: as
  /// QRTVirtualMemoryMgr::getAddress.
  QRTVirtualPin(QRTVirtualMemoryMgr& memMgr, const QRTVirtualPageItem& item)
      : QRTVirtualPin(memMgr, item.getOffset()) {}

  /// Pins the object at a bare offset, as above.
  QRTVirtualPin(QRTVirtualMemoryMgr& memMgr, unsigned long long offset)
      : QRTVirtualPin(memMgr, offset, memMgr.getAddress(offset, std::is_const<T>::value ? 0 : 1)) {}

  /// Pins an object that may not be the one its item was made for, since the item was used with
  /// another manager than its own: the pin is empty as well when the object is smaller than the
  /// item says, so that nobody reaches past its end. Cost: as above, and
  /// QRTVirtualMemoryMgr::getObjectSize.
  static QRTVirtualPin whole(QRTVirtualMemoryMgr& memMgr, const QRTVirtualPageItem& item) {
    QRTVirtualPin pin(memMgr, item);
    if (pin && memMgr.getObjectSize(item.getOffset()) < item.getSize()) {
      pin.reset();
    }
    return pin;
  }

  /// Takes over the pin of an object, to name a part of it from now on.
  /// @param whole  left empty; an empty one makes an empty pin
  /// @param part   a part of that object
  template <class Whole>
  QRTVirtualPin(QRTVirtualPin<Whole>&& whole, T* part) noexcept
      : m_memMgr(whole.m_memMgr),
        m_offset(whole.m_offset),
        m_object(whole.release() != nullptr ? part : nullptr) {
    static_assert(std::is_const<T>::value || !std::is_const<Whole>::value,
                  "a part of what is pinned for reading is for reading, too");
  }

  /// Makes an item name an object of `size` bytes and pins it; see QRTVirtualMemoryMgr::alloc.
  /// @return a pin that is not empty
  /// @throws what QRTVirtualMemoryMgr::alloc throws
  static QRTVirtualPin alloc(QRTVirtualMemoryMgr& memMgr, unsigned int size,
                             QRTVirtualPageItem& item) {
    void* const address = memMgr.alloc(size, item);
    return QRTVirtualPin(memMgr, item.getOffset(), address);
  }

  /// Dismisses the object.
  ~QRTVirtualPin() { reset(); }

  QRTVirtualPin(QRTVirtualPin&& other) noexcept
      : m_memMgr(other.m_memMgr), m_offset(other.m_offset), m_object(other.release()) {}
  QRTVirtualPin& operator=(QRTVirtualPin&& other) noexcept {
    QRTVirtualPin(std::move(other)).swap(*this);
    return *this;
  }
  QRTVirtualPin(const QRTVirtualPin&) = delete;
  QRTVirtualPin& operator=(const QRTVirtualPin&) = delete;

  /// @return the object's address, good while the pin stands; null for an empty pin
  T* get() const noexcept { return m_object; }

  /// @return the object. @throws QRTAssertError when nothing is pinned
  T* operator->() const { return &**this; }
  T& operator*() const {
    QRT_ASSERT_NAMED(m_object, "an empty pin has no object");
    return *m_object;
  }

  /// @return whether an object is pinned
  explicit operator bool() const noexcept { return m_object != nullptr; }

  /// Gives the pin up without dismissing: the caller owes that now.
  /// @return the object's address; null for an empty pin
  T* release() noexcept {
    T* const object = m_object;
    m_object = nullptr;
    return object;
  }

  /// Dismisses the object now; the pin is empty then.
  void reset() noexcept {
    if (m_object != nullptr) {
      m_object = nullptr;
      if (m_memMgr != nullptr) {
        m_memMgr->dismiss(m_offset);
      }
    }
  }

  void swap(QRTVirtualPin& other) noexcept {
    std::swap(m_memMgr, other.m_memMgr);
    std::swap(m_offset, other.m_offset);
    std::swap(m_object, other.m_object);
  }

 private:
  template <class Part>
  friend class QRTVirtualPin;

  QRTVirtualPin(QRTVirtualMemoryMgr& memMgr, unsigned long long offset, void* address) noexcept
      : m_memMgr(&memMgr), m_offset(offset), m_object(static_cast<T*>(address)) {}

  QRTVirtualMemoryMgr* m_memMgr = nullptr;  // whose pin this is; null for a root without a store
  unsigned long long m_offset = 0;          // offset of the object
  T* m_object = nullptr;                    // address of it, or of a part; null for an empty pin
};

#endif  // QRTVIRTUALPIN_H
