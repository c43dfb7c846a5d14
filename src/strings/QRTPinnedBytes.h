#ifndef QRTPINNEDBYTES_H
#define QRTPINNEDBYTES_H

#include <cstring>

#include "QRTVirtualMemoryMgr.h"

/// The bytes of a stored string, pinned while one operation looks at them. The destructor takes the
/// pin back when an error passes; an operation that ends well calls `dismiss`, whose errors pass
/// on.
class QRTPinnedBytes {
 public:
  /// Pins what the item names; `get()` is null when it names nothing, cannot be read back, or is
  /// too small to be what the item was made for, as under another manager than the item's own.
  QRTPinnedBytes(const QRTVirtualPageItem& item, QRTVirtualMemoryMgr& memMgr)
      : m_memMgr(memMgr), m_item(item), m_bytes(memMgr.getAddress(m_item, 1)) {
    if (m_bytes != nullptr && memMgr.getObjectSize(item.getOffset()) < item.getSize()) {
      dismiss();
    }
  }

  ~QRTPinnedBytes() {
    try {
      dismiss();
    } catch (...) {  // NOLINT(bugprone-empty-catch): an error is on its way already
    }
  }

  QRTPinnedBytes(const QRTPinnedBytes&) = delete;
  QRTPinnedBytes& operator=(const QRTPinnedBytes&) = delete;

  const char* get() const { return static_cast<const char*>(m_bytes); }

  void dismiss() {
    if (m_bytes != nullptr) {
      m_bytes = nullptr;
      m_memMgr.dismiss(m_item);
    }
  }

  /// Whether two items name objects of the same bytes. Sizes are compared before anything is
  /// pinned.
  static bool equal(const QRTVirtualPageItem& a, const QRTVirtualPageItem& b,
                    QRTVirtualMemoryMgr& memMgr) {
    if (a.getSize() != b.getSize()) {
      return false;
    }
    QRTPinnedBytes pinnedA(a, memMgr);
    QRTPinnedBytes pinnedB(b, memMgr);
    const bool same = pinnedA.get() != nullptr && pinnedB.get() != nullptr &&
                      std::memcmp(pinnedA.get(), pinnedB.get(), a.getSize()) == 0;
    pinnedA.dismiss();
    pinnedB.dismiss();
    return same;
  }

 private:
  QRTVirtualMemoryMgr& m_memMgr;  // not owned
  QRTVirtualPageItem m_item;      // a copy: it names the same object
  void* m_bytes;                  // the object's address while it is pinned
};

#endif  // QRTPINNEDBYTES_H
