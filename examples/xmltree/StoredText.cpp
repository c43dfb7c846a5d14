#include "StoredText.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "QRTVirtualPin.h"

namespace example {

namespace stored_text {

// Writes the string's bytes by itself: what comes from the parser is well-formed, and setString
// would look at every byte of it once more.
QRTVirtualPageItem put(QRTVirtualMemoryMgr& manager, std::string_view text) {
  QRTVirtualUTF8String string;
  if (text.size() > std::numeric_limits<unsigned int>::max()) {
    throw std::length_error("a text of 4 GiB or more cannot be stored");
  }
  if (!text.empty()) {
    const auto bytes =
        QRTVirtualPin<char>::alloc(manager, static_cast<unsigned int>(text.size()), string);
    std::memcpy(bytes.get(), text.data(), text.size());
  }
  return string;
}

QRTVirtualPageItem putShared(QRTVirtualMemoryMgr& manager, std::string_view text) {
  if (text.size() > kMostSharedBytes) {
    return put(manager, text);
  }
  QRTVirtualPageItem item;
  manager.allocUsingPool(text.data(), static_cast<unsigned int>(text.size()), item);
  return item;
}

void free(QRTVirtualMemoryMgr& manager, QRTVirtualPageItem& item) {
  manager.free(item);
  item.clear();
}

void freeShared(QRTVirtualMemoryMgr& manager, QRTVirtualPageItem& item) {
  if (item.getSize() > kMostSharedBytes) {
    manager.free(item);
  }
  item.clear();
}

}  // namespace stored_text

StoredTextView::StoredTextView(QRTVirtualMemoryMgr& manager, const QRTVirtualPageItem& item)
    : m_reader(QRTVirtualUTF8String(item), &manager) {
  if (!m_reader.isPinned() && item.getOffset() != 0) {
    throw std::runtime_error(std::string("a stored text cannot be read back: ") +
                             manager.getLastStoreError());
  }
}

}  // namespace example
