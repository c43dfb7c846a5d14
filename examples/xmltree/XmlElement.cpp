#include "XmlElement.h"

namespace example {

void XmlElement::setTag(std::string_view names, std::string_view values) {
  QRTVirtualMemoryMgr& manager = storeOf(*this);
  m_names = stored_text::putShared(manager, names);
  m_values = stored_text::put(manager, values);
}

void XmlElement::freeTexts(QRTVirtualMemoryMgr& manager) {
  stored_text::freeShared(manager, m_names);
  stored_text::free(manager, m_values);
}

}  // namespace example
