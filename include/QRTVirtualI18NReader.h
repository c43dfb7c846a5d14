#ifndef QRTVIRTUALI18NREADER_H
#define QRTVIRTUALI18NREADER_H

#include <string_view>

#include "QRTVirtualContainer.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPin.h"

/// The code units of a stored I18N string, pinned for reading while this stands: the way to look at
/// a string without a copy. Since nothing is written through it, reading leaves no work for the
/// time when the string's page leaves memory. Can be moved, not copied.
///
/// Must end before its manager does.
class QRTVirtualI18NReader {
 public:
  /// Reads nothing.
  QRTVirtualI18NReader() noexcept = default;

  /// Pins a string.
  /// @param string  may change or go while it is read, unless its object is freed or replaced
  /// @param memMgr  the string's manager; null reads nothing
  /// Cost: a few nanoseconds when the string is in memory; otherwise one read
  QRTVirtualI18NReader(const QRTVirtualI18NString& string, QRTVirtualMemoryMgr* memMgr)
      : m_size(string.getSize() / static_cast<unsigned int>(sizeof(char16_t))) {
    if (memMgr != nullptr) {
      m_units = QRTVirtualPin<const char16_t>::whole(*memMgr, string);
    }
  }

  /// Pins a string of a container's manager.
  QRTVirtualI18NReader(const QRTVirtualI18NString& string, QRTVirtualContainer* container)
      : QRTVirtualI18NReader(string, container == nullptr ? nullptr : container->getMemoryMgr()) {}

  /// @return whether a string is pinned; false for an empty handle and for one that the manager
  ///         does not know or cannot read back
  bool isPinned() const noexcept { return bool(m_units); }

  /// @return the string's code units, valid until the reader ends; empty when nothing is pinned
  std::u16string_view view() const noexcept {
    return isPinned() ? std::u16string_view(m_units.get(), m_size) : std::u16string_view();
  }

  /// Unpins the string early; `view` is empty from then on.
  void release() noexcept { m_units.reset(); }

 private:
  QRTVirtualPin<const char16_t> m_units;  // the string's code units; empty when nothing is pinned
  unsigned int m_size = 0;                // how many
};

#endif  // QRTVIRTUALI18NREADER_H
