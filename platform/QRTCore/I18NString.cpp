#include "QRTCore/I18NString.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string_view>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTUtUtf8.h"

namespace {

// The longest string whose size in bytes fits an int.
constexpr std::size_t kMaxUnits = static_cast<std::size_t>(INT_MAX) / sizeof(char16_t);

void requireUtf8(const char* encoding, bool hasFunction) {
  if (encoding != nullptr && std::strcmp(encoding, "UTF-8") != 0) {
    char text[QRTThrowable::kTextCapacity];
    std::snprintf(text, sizeof text,
                  "I18NString does not know the encoding \"%.200s\"; pass null or \"UTF-8\"",
                  encoding);
    QRT_THROW(QRTIllegalStateError(0, text));
  }
  if (hasFunction) {
    QRT_THROW(QRTIllegalStateError(
        0, "I18NString does not use conversion functions; pass null and convert to UTF-8 first"));
  }
}

[[noreturn]] void raiseTooLong() {
  QRT_THROW(QRTOutOfMemoryError(0, "I18NString: a string is limited to 2147483647 bytes"));
}

// Goes through a buffer on the stack, piece by piece, so that the string's memory is neither
// cleared first nor larger than well-formed text needs.
std::u16string unitsFromUtf8(std::string_view utf8) {
  char16_t piece[1024];
  std::u16string units;
  if (utf8.size() > sizeof piece / sizeof *piece) {
    const std::size_t estimate = QRTUtUtf8::utf16Estimate(utf8);
    if (estimate > kMaxUnits) {
      raiseTooLong();
    }
    units.reserve(estimate);
  }
  while (!utf8.empty()) {
    const std::size_t count = QRTUtUtf8::toUtf16(utf8, piece, sizeof piece / sizeof *piece);
    if (count > kMaxUnits - units.size()) {
      raiseTooLong();
    }
    units.append(piece, count);
  }
  return units;
}

}  // namespace

I18NString::I18NString(const char* utf8)
    : I18NString(utf8 == nullptr ? std::string_view() : std::string_view(utf8)) {}

I18NString::I18NString(std::string_view utf8) : m_units(unitsFromUtf8(utf8)) {}

I18NString::I18NString(std::u16string_view units) {
  if (units.size() > kMaxUnits) {
    raiseTooLong();
  }
  m_units = units;
}

I18NString::I18NString(const char* data, const char* encoding, int length,
                       ConversionFunction function, void* /*context*/) {
  requireUtf8(encoding, function != nullptr);
  if (data != nullptr && length > 0) {
    m_units = unitsFromUtf8({data, static_cast<std::size_t>(length)});
  }
}

I18NString::I18NString(const void* buffer, int size, ConversionFunction function,
                       void* /*context*/) {
  requireUtf8(nullptr, function != nullptr);
  if (buffer != nullptr && size > 0) {
    m_units.resize(static_cast<std::size_t>(size) / sizeof(char16_t));
    std::memcpy(m_units.data(), buffer, m_units.size() * sizeof(char16_t));
  }
}

// A copy makes its own UTF-8 when it is asked for it.
I18NString::I18NString(const I18NString& other) : m_units(other.m_units) {}

I18NString::I18NString(I18NString&& other) noexcept
    : m_units(std::move(other.m_units)),
      m_utf8(std::move(other.m_utf8)),
      m_hasUtf8(other.m_hasUtf8) {
  other.clear();
}

I18NString& I18NString::operator=(const I18NString& other) {
  if (this != &other) {
    m_units = other.m_units;
    m_hasUtf8 = false;
  }
  return *this;
}

I18NString& I18NString::operator=(I18NString&& other) noexcept {
  if (this != &other) {
    m_units = std::move(other.m_units);
    m_utf8 = std::move(other.m_utf8);
    m_hasUtf8 = other.m_hasUtf8;
    other.clear();
  }
  return *this;
}

I18NString::~I18NString() = default;

const char* I18NString::c_str(const char* encoding, int* length, ConversionFunction function,
                              void* /*context*/) const {
  requireUtf8(encoding, function != nullptr);
  if (!m_hasUtf8) {
    std::string bytes(static_cast<std::size_t>(getUtf8Length()), '\0');
    QRTUtUtf8::toUtf8(m_units, bytes.data());
    m_utf8 = std::move(bytes);
    m_hasUtf8 = true;
  }
  if (length != nullptr) {
    *length = static_cast<int>(m_utf8.size()) + 1;
  }
  return m_utf8.c_str();
}

std::string_view I18NString::viewUtf8() const {
  int length = 0;
  const char* const bytes = c_str(nullptr, &length, nullptr, nullptr);
  return {bytes, static_cast<std::size_t>(length - 1)};
}

std::string I18NString::toUtf8() const {
  std::string bytes(static_cast<std::size_t>(getUtf8Length()), '\0');
  copyUtf8(bytes.data());
  return bytes;
}

int I18NString::getUtf8Length() const {
  const std::uint64_t length = m_hasUtf8 ? m_utf8.size() : QRTUtUtf8::utf8Length(m_units);
  if (length >= static_cast<std::uint64_t>(INT_MAX)) {
    raiseTooLong();
  }
  return static_cast<int>(length);
}

void I18NString::copyUtf8(char* out) const noexcept {
  if (out == nullptr) {
    return;
  }
  if (m_hasUtf8) {
    std::memcpy(out, m_utf8.data(), m_utf8.size());
  } else {
    QRTUtUtf8::toUtf8(m_units, out);
  }
}

bool I18NString::hasUtf8Length(std::size_t length) const noexcept {
  if (m_hasUtf8) {
    return length == m_utf8.size();
  }
  // A unit takes one to three bytes, which tells most other lengths without counting.
  return length >= m_units.size() && length / 3 <= m_units.size() &&
         length == QRTUtUtf8::utf8Length(m_units);
}

bool I18NString::equalsUtf8(const char* bytes) const noexcept {
  if (bytes == nullptr) {
    return empty();
  }
  return m_hasUtf8 ? std::memcmp(m_utf8.data(), bytes, m_utf8.size()) == 0
                   : QRTUtUtf8::equalsUtf8(m_units, bytes);
}

void I18NString::clear() noexcept {
  m_units.clear();
  m_utf8.clear();
  m_hasUtf8 = false;
}

I18NString& I18NString::append(const I18NString& other) {
  if (other.m_units.size() > kMaxUnits - m_units.size()) {
    raiseTooLong();
  }
  m_units.append(other.m_units);
  m_hasUtf8 = false;
  return *this;
}

std::ostream& operator<<(std::ostream& os, const I18NString& text) {
  return os << text.viewUtf8();
}
