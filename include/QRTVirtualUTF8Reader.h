#ifndef QRTVIRTUALUTF8READER_H
#define QRTVIRTUALUTF8READER_H

#include <string_view>

#include "QRTVirtualContainer.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualUTF8String.h"

/// The bytes of a stored UTF-8 string, pinned for reading while this stands: the way to look at a
/// string without a copy or a conversion. Since nothing is written through it, reading leaves no
/// work for the time when the string's page leaves memory. Can be moved, not copied.
///
/// Must end before its manager does.
class QRTVirtualUTF8Reader {
 public:
  /// Reads nothing.
  QRTVirtualUTF8Reader() noexcept = default;

  /// Pins a string.
  /// @param string  may change or go while it is read, unless its object is freed or replaced
  /// @param memMgr  the string's manager; null reads nothing
  /// Cost: a few nanoseconds when the string is in memory; otherwise one read
  QRTVirtualUTF8Reader(const QRTVirtualUTF8String& string, QRTVirtualMemoryMgr* memMgr)
      : m_size(string.getSize()) {
    if (memMgr != nullptr) {
      m_bytes = QRTVirtualPin<const char>::whole(*memMgr, string);
    }
  }

  /// Pins a string of a container's manager.
  QRTVirtualUTF8Reader(const QRTVirtualUTF8String& string, QRTVirtualContainer* container)
      : QRTVirtualUTF8Reader(string, container == nullptr ? nullptr : container->getMemoryMgr()) {}

  /// @return whether a string is pinned; false for an empty handle and for one that the manager
  ///         does not know or cannot read back
  bool isPinned() const noexcept { return bool(m_bytes); }

  /// @return the string's bytes, valid until the reader ends; empty when nothing is pinned
  std::string_view view() const noexcept {
    return isPinned() ? std::string_view(m_bytes.get(), m_size) : std::string_view();
  }

  /// Unpins the string early; `view` is empty from then on.
  void release() noexcept { m_bytes.reset(); }

 private:
  QRTVirtualPin<const char> m_bytes;  // the string's bytes; empty when nothing is pinned
  unsigned int m_size = 0;            // how many
};

#endif  // QRTVIRTUALUTF8READER_H
