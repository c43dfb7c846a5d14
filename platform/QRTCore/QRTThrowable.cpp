#include "QRTCore/QRTThrowable.h"

#include <algorithm>
#include <cstring>
#include <new>

// A copy of std::exception that is being thrown must not fail, so text and trace are arrays inside
// the error, a long text is cut where there is no memory for a copy of it, and the list handed out
// by getBackTrace is never copied along.

QRTThrowable::QRTThrowable(int code, const char* text) noexcept
    : m_code(code),
      m_hasText(text != nullptr),
      m_text(),
      m_longText(nullptr),
      m_traceSize(0),
      m_trace() {
  if (text == nullptr) {
    return;
  }
  std::size_t length = std::strlen(text);
  if (length >= kTextCapacity) {
    keepLongText(text);
    // Cut in front of a character, not inside one: back over UTF-8 continuation bytes.
    length = kTextCapacity - 1;
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U) {
      --length;
    }
  }
  std::memcpy(m_text, text, length);
}

QRTThrowable::QRTThrowable(const QRTThrowable& other) noexcept
    : std::exception(other),
      m_code(other.m_code),
      m_hasText(other.m_hasText),
      m_longText(nullptr),
      m_traceSize(other.m_traceSize) {
  std::copy(std::begin(other.m_text), std::end(other.m_text), m_text);
  keepLongText(other.m_longText);
  std::copy(std::begin(other.m_trace), std::end(other.m_trace), m_trace);
}

QRTThrowable& QRTThrowable::operator=(const QRTThrowable& other) noexcept {
  if (this != &other) {
    m_code = other.m_code;
    m_hasText = other.m_hasText;
    m_traceSize = other.m_traceSize;
    std::copy(std::begin(other.m_text), std::end(other.m_text), m_text);
    keepLongText(other.m_longText);
    std::copy(std::begin(other.m_trace), std::end(other.m_trace), m_trace);
    m_list.clear();
  }
  return *this;
}

QRTThrowable::~QRTThrowable() {
  delete[] m_longText;
  m_longText = nullptr;
}

/// Makes the long text a copy of this one, if there is memory for it.
/// @param text  null for none
void QRTThrowable::keepLongText(const char* text) noexcept {
  delete[] m_longText;
  m_longText = nullptr;
  if (text != nullptr) {
    const std::size_t size = std::strlen(text) + 1;
    m_longText = new (std::nothrow) char[size];
    if (m_longText != nullptr) {
      std::memcpy(m_longText, text, size);
    }
  }
}

const char* QRTThrowable::what() const noexcept {
  const char* const text = getText();
  return text != nullptr ? text : getClassName();
}

const char* QRTThrowable::getClassName() const noexcept {
  return "QRTThrowable";
}

void QRTThrowable::hurl(const QRTFileLocation& where, const char* function, const char* macro) {
  addBackTrace(where, function, macro);
  throw QRTThrowable(*this);
}

void QRTThrowable::addBackTrace(const QRTFileLocation& where, const char* function,
                                const char* macro) noexcept {
  if (m_traceSize < kTraceCapacity) {
    m_trace[m_traceSize] = {where, function, macro};
    ++m_traceSize;
  }
}

const QRTStd::vector<QRTBackTraceEntry>& QRTThrowable::getBackTrace() const noexcept {
  try {
    while (m_list.size() < m_traceSize) {
      m_list.push_back(m_trace[m_list.size()]);
    }
  } catch (const std::exception&) {
    // No memory for the list: what is in it by now is handed out.
  }
  return m_list;
}

const char* QRTAssertError::getClassName() const noexcept {
  return "QRTAssertError";
}

void QRTAssertError::hurl(const QRTFileLocation& where, const char* function, const char* macro) {
  addBackTrace(where, function, macro);
  throw QRTAssertError(*this);
}

void QRTAssertError::raise(const char* check, QRTFileLocation where) {
  QRTAssertError(0, check).hurl(where, nullptr, "QRT_THROW");
}

const char* QRTOutOfMemoryError::getClassName() const noexcept {
  return "QRTOutOfMemoryError";
}

void QRTOutOfMemoryError::hurl(const QRTFileLocation& where, const char* function,
                               const char* macro) {
  addBackTrace(where, function, macro);
  throw QRTOutOfMemoryError(*this);
}

const char* QRTIllegalStateError::getClassName() const noexcept {
  return "QRTIllegalStateError";
}

void QRTIllegalStateError::hurl(const QRTFileLocation& where, const char* function,
                                const char* macro) {
  addBackTrace(where, function, macro);
  throw QRTIllegalStateError(*this);
}

const char* QRTStdExceptionError::getClassName() const noexcept {
  return "QRTStdExceptionError";
}

void QRTStdExceptionError::hurl(const QRTFileLocation& where, const char* function,
                                const char* macro) {
  addBackTrace(where, function, macro);
  throw QRTStdExceptionError(*this);
}
