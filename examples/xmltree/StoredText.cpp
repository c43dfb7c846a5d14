#include "StoredText.h"

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "QRTCore/QRTThrowable.h"

namespace example {

namespace stored_text {

QRTVirtualPageItem put(QRTVirtualMemoryMgr& manager, std::string_view text) {
  QRTVirtualPageItem item;
  if (text.size() > std::numeric_limits<unsigned int>::max()) {
    throw std::length_error("a text of 4 GiB or more cannot be stored");
  }
  if (!text.empty()) {
    const auto pin =
        QRTVirtualPin<char>::alloc(manager, static_cast<unsigned int>(text.size()), item);
    std::memcpy(pin.get(), text.data(), text.size());
  }
  return item;
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
    : m_pin(manager, item) {
  if (m_pin) {
    m_view = std::string_view(m_pin.get(), item.getSize());
  } else if (item.getOffset() != 0) {
    throw std::runtime_error(std::string("a stored text cannot be read back: ") +
                             manager.getLastStoreError());
  }
}

}  // namespace example
