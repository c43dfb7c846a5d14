#ifndef QRTVIRTUALUTF8READER_H
#define QRTVIRTUALUTF8READER_H

#include <string_view>
#include <utility>

#include "QRTVirtualContainer.h"
#include "QRTVirtualMemoryMgr.h"
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
      : m_item(string), m_memMgr(memMgr) {
    if (m_memMgr != nullptr) {
      m_bytes = static_cast<const char*>(m_memMgr->getAddress(m_item, 0));
      if (m_memMgr->getObjectSize(m_item.getOffset()) < m_item.getSize()) {
        release();
      }
    }
  }

  /// Pins a string of a container's manager.
  QRTVirtualUTF8Reader(const QRTVirtualUTF8String& string, QRTVirtualContainer* container)
      : QRTVirtualUTF8Reader(string, container == nullptr ? nullptr : container->getMemoryMgr()) {}

  QRTVirtualUTF8Reader(QRTVirtualUTF8Reader&& other) noexcept
      : m_item(other.m_item), m_memMgr(other.m_memMgr), m_bytes(other.m_bytes) {
    other.m_bytes = nullptr;
  }

  QRTVirtualUTF8Reader& operator=(QRTVirtualUTF8Reader&& other) noexcept {
    if (this != &other) {
      release();
      m_item = other.m_item;
      m_memMgr = other.m_memMgr;
      m_bytes = std::exchange(other.m_bytes, nullptr);
    }
    return *this;
  }

  ~QRTVirtualUTF8Reader() { release(); }

  QRTVirtualUTF8Reader(const QRTVirtualUTF8Reader&) = delete;
  QRTVirtualUTF8Reader& operator=(const QRTVirtualUTF8Reader&) = delete;

  /// @return whether a string is pinned; false for an empty handle and for one that the manager
  ///         does not know or cannot read back
  bool isPinned() const noexcept { return m_bytes != nullptr; }

  /// @return the string's bytes, valid until the reader ends; empty when nothing is pinned
  std::string_view view() const noexcept {
    return m_bytes == nullptr ? std::string_view() : std::string_view(m_bytes, m_item.getSize());
  }

  /// Unpins the string early; `view` is empty from then on. Lets no error out.
  void release() noexcept {
    if (m_bytes != nullptr) {
      m_bytes = nullptr;
      try {
        m_memMgr->dismiss(m_item);
      } catch (...) {  // NOLINT(bugprone-empty-catch): there is nothing left to undo
      }
    }
  }

 private:
  QRTVirtualPageItem m_item;                // names the pinned object
  QRTVirtualMemoryMgr* m_memMgr = nullptr;  // not owned
  const char* m_bytes = nullptr;            // the pinned bytes; null when nothing is pinned
};

#endif  // QRTVIRTUALUTF8READER_H
