#include "QRTCore/QRTUtUtf8.h"

#include <cstring>

#include <utf8.h>

// Most text is ASCII, so runs of it go through plain loops over fixed blocks, which the compiler
// turns into vector code, and only what lies between them goes to the UTF library. bench/strings
// shows what that is worth.

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr char kReplacementBytes[] = {'\xEF', '\xBF', '\xBD'};
constexpr std::ptrdiff_t kBlock = 16;  // characters that a step of the fast loops takes

bool isAscii(char byte) {
  return static_cast<unsigned char>(byte) < 0x80U;
}
bool isTrail(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}
bool isHighSurrogate(std::uint32_t unit) {
  return (unit & 0xFFFFFC00U) == 0xD800U;
}
bool isLowSurrogate(std::uint32_t unit) {
  return (unit & 0xFFFFFC00U) == 0xDC00U;
}

// The end of the run of ASCII bytes that begins at `at`.
const char* asciiEnd(const char* at, const char* end) {
  for (; end - at >= kBlock; at += kBlock) {
    std::uint64_t words[2];
    std::memcpy(words, at, sizeof words);
    if (((words[0] | words[1]) & 0x8080808080808080U) != 0) {
      break;
    }
  }
  while (at != end && isAscii(*at)) {
    ++at;
  }
  return at;
}

const char* otherEnd(const char* at, const char* end) {
  while (at != end && !isAscii(*at)) {
    ++at;
  }
  return at;
}

// The end of the ill-formed sequence that begins at `at`.
const char* invalidEnd(const char* at, const char* end) {
  do {
    ++at;
  } while (at != end && isTrail(*at));
  return at;
}

// The end of the well-formed text that begins at `at`. Adds its length in UTF-16.
const char* scan(const char* at, const char* end, std::size_t& units) {
  while (true) {
    const char* const other = asciiEnd(at, end);
    units += static_cast<std::size_t>(other - at);
    at = other;
    if (at == end) {
      return at;
    }
    const char* const next = otherEnd(at, end);
    const char* const bad = utf8::find_invalid(at, next);
    for (; at != bad; ++at) {
      units += isTrail(*at) ? 0U : (static_cast<unsigned char>(*at) >= 0xF0U ? 2U : 1U);
    }
    if (bad != next) {
      return bad;
    }
  }
}

// Walks a text: `text(from, to, units)` for each well-formed stretch, `mark()` for each ill-formed
// sequence. Stops when one of them returns false.
template <class Text, class Mark>
void walk(std::string_view utf8, Text&& text, Mark&& mark) {
  const char* at = utf8.data();
  const char* const end = at + utf8.size();
  while (at != end) {
    std::size_t units = 0;
    const char* const bad = scan(at, end, units);
    if (bad != at && !text(at, bad, units)) {
      return;
    }
    if (bad == end || !mark()) {
      return;
    }
    at = invalidEnd(bad, end);
  }
}

// The code point that begins at `at`, U+FFFD for an unpaired surrogate. Steps over it.
std::uint32_t takeCodePoint(const char16_t*& at, const char16_t* end) {
  const std::uint32_t unit = *at++;
  if (isHighSurrogate(unit) && at != end && isLowSurrogate(*at)) {
    return 0x10000U + ((unit - 0xD800U) << 10U) + (*at++ - 0xDC00U);
  }
  return isHighSurrogate(unit) || isLowSurrogate(unit) ? kReplacement : unit;
}

}  // namespace

std::size_t QRTUtUtf8::findInvalid(std::string_view utf8) noexcept {
  std::size_t units = 0;
  return static_cast<std::size_t>(scan(utf8.data(), utf8.data() + utf8.size(), units) -
                                  utf8.data());
}

std::uint64_t QRTUtUtf8::repairedLength(std::string_view utf8) noexcept {
  std::uint64_t length = 0;
  walk(
      utf8,
      [&](const char* from, const char* to, std::size_t) {
        length += static_cast<std::size_t>(to - from);
        return true;
      },
      [&] {
        length += sizeof kReplacementBytes;
        return true;
      });
  return length;
}

void QRTUtUtf8::repair(std::string_view utf8, char* out) noexcept {
  walk(
      utf8,
      [&](const char* from, const char* to, std::size_t) {
        std::memcpy(out, from, static_cast<std::size_t>(to - from));
        out += to - from;
        return true;
      },
      [&] {
        std::memcpy(out, kReplacementBytes, sizeof kReplacementBytes);
        out += sizeof kReplacementBytes;
        return true;
      });
}

bool QRTUtUtf8::equalsRepaired(std::string_view utf8, const char* bytes) noexcept {
  bool equal = true;
  const auto compare = [&](const char* with, std::size_t count) {
    equal = std::memcmp(bytes, with, count) == 0;
    bytes += count;
    return equal;
  };
  walk(
      utf8,
      [&](const char* from, const char* to, std::size_t) {
        return compare(from, static_cast<std::size_t>(to - from));
      },
      [&] { return compare(kReplacementBytes, sizeof kReplacementBytes); });
  return equal;
}

std::size_t QRTUtUtf8::utf16Length(std::string_view utf8) noexcept {
  std::size_t length = 0;
  walk(
      utf8,
      [&](const char*, const char*, std::size_t units) {
        length += units;
        return true;
      },
      [&] {
        ++length;
        return true;
      });
  return length;
}

void QRTUtUtf8::toUtf16(std::string_view utf8, char16_t* out) noexcept {
  const char* at = utf8.data();
  const char* const end = at + utf8.size();
  while (at != end) {
    for (; end - at >= kBlock && asciiEnd(at, at + kBlock) == at + kBlock; at += kBlock) {
      for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        out[i] = static_cast<unsigned char>(at[i]);
      }
      out += kBlock;
    }
    for (; at != end && isAscii(*at); ++at) {
      *out++ = static_cast<unsigned char>(*at);
    }
    const char* const next = otherEnd(at, end);
    while (at != next) {
      const char* const bad = utf8::find_invalid(at, next);
      out = utf8::unchecked::utf8to16(at, bad, out);
      at = bad;
      if (bad != next) {
        *out++ = kReplacement;
        at = invalidEnd(bad, next);
      }
    }
  }
}

std::uint64_t QRTUtUtf8::utf8Length(std::u16string_view units) noexcept {
  const char16_t* const at = units.data();
  const std::size_t count = units.size();
  std::uint64_t length = count;
  // Blocks whose sums fit 16 bits: eight or more units a vector step.
  constexpr std::size_t kStep = 8192;
  for (std::size_t from = 0; from < count; from += kStep) {
    const std::size_t to = count - from > kStep ? from + kStep : count;
    std::uint16_t extra = 0;
    std::uint16_t surrogates = 0;
    for (std::size_t i = from; i < to; ++i) {
      extra = static_cast<std::uint16_t>(extra + (at[i] >= 0x80U) + (at[i] >= 0x800U));
      surrogates = static_cast<std::uint16_t>(surrogates + ((at[i] & 0xFC00U) == 0xD800U));
    }
    length += extra;
    // Two units of three bytes each make a pair of four.
    for (std::size_t i = from; surrogates != 0 && i < to; ++i) {
      if (isHighSurrogate(at[i])) {
        --surrogates;
        length -= i + 1 < count && isLowSurrogate(at[i + 1]) ? 2U : 0U;
      }
    }
  }
  return length;
}

void QRTUtUtf8::toUtf8(std::u16string_view units, char* out) noexcept {
  const char16_t* at = units.data();
  const char16_t* const end = at + units.size();
  while (at != end) {
    for (; end - at >= kBlock; at += kBlock, out += kBlock) {
      std::uint32_t all = 0;
      for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        all |= at[i];
      }
      if (all >= 0x80U) {
        break;
      }
      for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        out[i] = static_cast<char>(at[i]);
      }
    }
    for (; at != end && *at < 0x80U; ++at) {
      *out++ = static_cast<char>(*at);
    }
    while (at != end && *at >= 0x80U) {
      out = utf8::unchecked::append(takeCodePoint(at, end), out);
    }
  }
}

bool QRTUtUtf8::equalsUtf8(std::u16string_view units, const char* bytes) noexcept {
  const char16_t* at = units.data();
  const char16_t* const end = at + units.size();
  while (at != end) {
    for (; end - at >= kBlock; at += kBlock, bytes += kBlock) {
      std::uint32_t all = 0;
      std::uint32_t difference = 0;
      for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        all |= at[i];
        difference |= at[i] ^ static_cast<unsigned char>(bytes[i]);
      }
      if (all >= 0x80U) {
        break;
      }
      if (difference != 0) {
        return false;
      }
    }
    for (; at != end && *at < 0x80U; ++at, ++bytes) {
      if (*at != static_cast<unsigned char>(*bytes)) {
        return false;
      }
    }
    while (at != end && *at >= 0x80U) {
      char encoded[4];
      const auto count = static_cast<std::size_t>(
          utf8::unchecked::append(takeCodePoint(at, end), encoded) - encoded);
      if (std::memcmp(bytes, encoded, count) != 0) {
        return false;
      }
      bytes += count;
    }
  }
  return true;
}
