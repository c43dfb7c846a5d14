#include "XmlElement.h"

namespace example {

void XmlElement::setTag(std::string_view names, std::string_view values) {
  QRTVirtualMemoryMgr& manager = storeOf(*this);
  m_names = stored_text::putShared(manager, names);
  m_values = stored_text::put(manager, values);
}

bool XmlElement::isNamed(std::string_view name) const {
  const StoredTextView names(storeOf(*this), m_names);
  return TextParts(names.view()).next() == name;
}

bool XmlElement::hasAttribute(std::string_view name,
                              const std::optional<std::string>& value) const {
  const StoredTextView names(storeOf(*this), m_names);
  TextParts namesLeft(names.view());
  namesLeft.next();
  for (std::size_t number = 0; !namesLeft.atEnd(); ++number) {
    if (namesLeft.next() != name) {
      continue;
    }
    if (!value) {
      return true;
    }
    const StoredTextView values(storeOf(*this), m_values);
    TextParts valuesLeft(values.view());
    for (; number > 0; --number) {
      valuesLeft.next();
    }
    return valuesLeft.next() == *value;
  }
  return false;
}

void XmlElement::freeTexts(QRTVirtualMemoryMgr& manager) {
  stored_text::freeShared(manager, m_names);
  stored_text::free(manager, m_values);
}

}  // namespace example
