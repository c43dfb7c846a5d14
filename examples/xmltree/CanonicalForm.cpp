#include "CanonicalForm.h"

#include <algorithm>

namespace example {

void CanonicalForm::startElement(std::string_view name, const char* const* attributes) {
  m_attributes.clear();
  for (; *attributes != nullptr; attributes += 2) {
    m_attributes.emplace_back(attributes[0], attributes[1]);
  }
  std::sort(m_attributes.begin(), m_attributes.end());
  m_pending.append("\x01").append(name);
  for (const auto& [attribute, value] : m_attributes) {
    m_pending.append("\x02").append(attribute).append("\x03").append(value);
  }
  m_pending.append("\x04");
}

void CanonicalForm::endElement(std::string_view) {
  m_pending.append("\x05");
}

void CanonicalForm::text(std::string_view text) {
  m_pending.append(text);
}

void CanonicalForm::comment(std::string_view text) {
  m_pending.append("\x06").append(text).append("\x05");
}

void CanonicalForm::instruction(std::string_view target, std::string_view data) {
  m_pending.append("\x07").append(target).append("\x03").append(data).append("\x05");
}

}  // namespace example
