#include "QRTCore/QRTI18NBuffer.h"

#include <utility>

QRTI18NBuffer& QRTI18NBuffer::operator=(const I18NString& text) {
  m_text = text;
  return *this;
}

QRTI18NBuffer& QRTI18NBuffer::operator=(I18NString&& text) noexcept {
  m_text = std::move(text);
  return *this;
}

QRTI18NBuffer& QRTI18NBuffer::append(const I18NString& text) {
  m_text.append(text);
  return *this;
}

QRTI18NBuffer& QRTI18NBuffer::append(const char* utf8) {
  return append(I18NString(utf8));
}
