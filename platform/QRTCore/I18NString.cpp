#include "QRTCore/I18NString.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string_view>

#include <utf8.h>

#include "QRTCore/QRTAssert.h"

// Most text is ASCII, so both conversions move runs of it with plain loops that the compiler turns
// into vector code, and hand only what lies between to the UTF library.

namespace {

constexpr char16_t kReplacement = 0xFFFD;

// The longest string whose size in bytes fits an int.
constexpr std::size_t kMaxUnits = static_cast<std::size_t>(INT_MAX) / sizeof(char16_t);

bool isAscii(char byte) {
  return static_cast<unsigned char>(byte) < 0x80U;
}
bool isTrail(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}
bool isHighSurrogate(char16_t unit) {
  return unit >= 0xD800U && unit <= 0xDBFFU;
}
bool isLowSurrogate(char16_t unit) {
  return unit >= 0xDC00U && unit <= 0xDFFFU;
}

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

// The end of the run of ASCII bytes that begins at `at`.
const char* asciiEnd(const char* at, const char* end) {
  for (std::uint64_t word = 0; end - at >= 8; at += 8) {
    std::memcpy(&word, at, sizeof word);
    if ((word & 0x8080808080808080U) != 0) {
      break;
    }
  }
  while (at != end && isAscii(*at)) {
    ++at;
  }
  return at;
}

std::u16string unitsFromUtf8(const char* data, std::size_t length) {
  // A byte never gives more than one unit.
  std::u16string units(length, u'\0');
  char16_t* out = units.data();
  const char* at = data;
  const char* const end = data + length;
  while (at != end) {
    const char* const runEnd = asciiEnd(at, end);
    const std::size_t run = static_cast<std::size_t>(runEnd - at);
    for (std::size_t i = 0; i < run; ++i) {
      out[i] = static_cast<unsigned char>(at[i]);
    }
    out += run;
    at = runEnd;

    const char* otherEnd = at;
    while (otherEnd != end && !isAscii(*otherEnd)) {
      ++otherEnd;
    }
    while (at != otherEnd) {
      const char* const bad = utf8::find_invalid(at, otherEnd);
      out = utf8::unchecked::utf8to16(at, bad, out);
      at = bad;
      if (bad != otherEnd) {
        // One mark for the lead byte and whatever continuation bytes follow it.
        *out++ = kReplacement;
        do {
          ++at;
        } while (at != otherEnd && isTrail(*at));
      }
    }
  }
  units.resize(static_cast<std::size_t>(out - units.data()));
  if (units.size() > kMaxUnits) {
    raiseTooLong();
  }
  return units;
}

// The end of the run of ASCII units that begins at `at`.
const char16_t* asciiEnd(const char16_t* at, const char16_t* end) {
  for (std::uint64_t word = 0; end - at >= 4; at += 4) {
    std::memcpy(&word, at, sizeof word);
    if ((word & 0xFF80FF80FF80FF80U) != 0) {
      break;
    }
  }
  while (at != end && *at < 0x80U) {
    ++at;
  }
  return at;
}

std::string utf8FromUnits(const std::u16string& units) {
  // An upper bound, exact but for surrogate pairs: they count six bytes and take four. 32-bit sums
  // let this loop become vector code.
  std::uint32_t extra = 0;
  for (const char16_t unit : units) {
    extra += (unit >= 0x80U ? 1U : 0U) + (unit >= 0x800U ? 1U : 0U);
  }
  const std::size_t bound = units.size() + extra;
  if (bound >= static_cast<std::size_t>(INT_MAX)) {
    raiseTooLong();
  }
  std::string bytes(bound, '\0');
  char* out = bytes.data();
  const char16_t* at = units.data();
  const char16_t* const end = at + units.size();
  while (at != end) {
    const std::size_t run = static_cast<std::size_t>(asciiEnd(at, end) - at);
    for (std::size_t i = 0; i < run; ++i) {
      out[i] = static_cast<char>(at[i]);
    }
    out += run;
    at += run;
    while (at != end && *at >= 0x80U) {
      std::uint32_t codePoint = *at++;
      if (isHighSurrogate(static_cast<char16_t>(codePoint)) && at != end && isLowSurrogate(*at)) {
        codePoint = 0x10000U + ((codePoint - 0xD800U) << 10U) + (*at++ - 0xDC00U);
      } else if (codePoint >= 0xD800U && codePoint <= 0xDFFFU) {
        codePoint = kReplacement;
      }
      out = utf8::unchecked::append(codePoint, out);
    }
  }
  bytes.resize(static_cast<std::size_t>(out - bytes.data()));
  return bytes;
}

}  // namespace

I18NString::I18NString(const char* utf8)
    : m_units(utf8 == nullptr ? std::u16string() : unitsFromUtf8(utf8, std::strlen(utf8))) {}

I18NString::I18NString(const char* data, const char* encoding, int length,
                       ConversionFunction function, void* /*context*/) {
  requireUtf8(encoding, function != nullptr);
  if (data != nullptr && length > 0) {
    m_units = unitsFromUtf8(data, static_cast<std::size_t>(length));
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
    m_utf8 = utf8FromUnits(m_units);
    m_hasUtf8 = true;
  }
  if (length != nullptr) {
    *length = static_cast<int>(m_utf8.size()) + 1;
  }
  return m_utf8.c_str();
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
  int length = 0;
  const char* const bytes = text.c_str(nullptr, &length, nullptr, nullptr);
  return os << std::string_view(bytes, static_cast<std::size_t>(length - 1));
}
