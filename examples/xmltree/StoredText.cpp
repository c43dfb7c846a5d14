#include "StoredText.h"

#include <stdexcept>
#include <string>

namespace example {

namespace stored_text {

QRTVirtualPageItem put(QRTVirtualMemoryMgr& manager, std::string_view text) {
  QRTVirtualUTF8String string;
  string.setString(text, &manager);
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
