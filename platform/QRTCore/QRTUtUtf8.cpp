#include "QRTCore/QRTUtUtf8.h"

#include <cstring>

#include <utf8.h>

// Most text is ASCII, so runs of it go through plain loops over fixed blocks, which the compiler
// turns into vector code. What lies between them is decoded here too: the UTF library checks
// without exceptions only in a pass of its own, which took two to three times as long altogether.
// The tests hold one to the other; bench/strings compares the times.

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

bool isAsciiBlock(const char* at) {
  std::uint64_t words[2];
  static_assert(sizeof words == kBlock);
  std::memcpy(words, at, sizeof words);
  return ((words[0] | words[1]) & 0x8080808080808080U) == 0;
}

// The end of the run of ASCII bytes that begins at `at`.
const char* asciiEnd(const char* at, const char* end) {
  while (end - at >= kBlock && isAsciiBlock(at)) {
    at += kBlock;
  }
  while (at != end && isAscii(*at)) {
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

// The bits of a continuation byte.
std::uint32_t trailBits(char byte) {
  return static_cast<unsigned char>(byte) & 0x3FU;
}

// The code point of two to four bytes that begins at `at`; steps over it. 0 when it is ill-formed:
// `at` stays.
std::uint32_t takeSequence(const char*& at, const char* end) {
  const std::uint32_t lead = static_cast<unsigned char>(*at);
  const std::ptrdiff_t left = end - at;
  if (lead < 0xE0U) {
    if (lead >= 0xC2U && left >= 2 && isTrail(at[1])) {
      at += 2;
      return (lead & 0x1FU) << 6U | trailBits(at[-1]);
    }
  } else if (lead < 0xF0U) {
    if (left >= 3 && isTrail(at[1]) && isTrail(at[2])) {
      const std::uint32_t codePoint =
          (lead & 0x0FU) << 12U | trailBits(at[1]) << 6U | trailBits(at[2]);
      if (codePoint >= 0x800U && (codePoint & 0xFFFFF800U) != 0xD800U) {
        at += 3;
        return codePoint;
      }
    }
  } else if (lead < 0xF5U && left >= 4 && isTrail(at[1]) && isTrail(at[2]) && isTrail(at[3])) {
    const std::uint32_t codePoint =
        (lead & 0x07U) << 18U | trailBits(at[1]) << 12U | trailBits(at[2]) << 6U | trailBits(at[3]);
    if (codePoint >= 0x10000U && codePoint <= 0x10FFFFU) {
      at += 4;
      return codePoint;
    }
  }
  return 0;
}

// The end of the well-formed text that begins at `at`.
const char* scan(const char* at, const char* end) {
  while (true) {
    at = asciiEnd(at, end);
    while (at != end && !isAscii(*at)) {
      if (takeSequence(at, end) == 0) {
        return at;
      }
    }
    if (at == end) {
      return at;
    }
  }
}

// Walks a text: `text(from, to)` for each well-formed stretch, `mark()` for each ill-formed
// sequence. Stops when one of them returns false.
template <class Text, class Mark>
void walk(std::string_view utf8, Text&& text, Mark&& mark) {
  const char* at = utf8.data();
  const char* const end = at + utf8.size();
  while (at != end) {
    const char* const bad = scan(at, end);
    if (bad != at && !text(at, bad)) {
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
  return static_cast<std::size_t>(scan(utf8.data(), utf8.data() + utf8.size()) - utf8.data());
}

std::uint64_t QRTUtUtf8::repairedLength(std::string_view utf8) noexcept {
  std::uint64_t length = 0;
  walk(
      utf8,
      [&](const char* from, const char* to) {
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
      [&](const char* from, const char* to) {
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
      [&](const char* from, const char* to) {
        return compare(from, static_cast<std::size_t>(to - from));
      },
      [&] { return compare(kReplacementBytes, sizeof kReplacementBytes); });
  return equal;
}

std::size_t QRTUtUtf8::utf16Estimate(std::string_view utf8) noexcept {
  std::size_t length = 0;
  for (const char byte : utf8) {
    length += (isTrail(byte) ? 0U : 1U) + (static_cast<unsigned char>(byte) >= 0xF0U ? 1U : 0U);
  }
  return length;
}

std::size_t QRTUtUtf8::toUtf16(std::string_view& utf8, char16_t* units,
                               std::size_t capacity) noexcept {
  const char* at = utf8.data();
  const char* const end = at + utf8.size();
  char16_t* out = units;
  char16_t* const outEnd = units + capacity;
  while (at != end && outEnd - out >= 2) {
    for (; end - at >= kBlock && outEnd - out >= kBlock && isAsciiBlock(at); at += kBlock) {
      for (std::ptrdiff_t i = 0; i < kBlock; ++i) {
        out[i] = static_cast<unsigned char>(at[i]);
      }
      out += kBlock;
    }
    for (; at != end && out != outEnd && isAscii(*at); ++at) {
      *out++ = static_cast<unsigned char>(*at);
    }
    while (at != end && outEnd - out >= 2 && !isAscii(*at)) {
      const std::uint32_t codePoint = takeSequence(at, end);
      if (codePoint >= 0x10000U) {
        *out++ = static_cast<char16_t>(0xD7C0U + (codePoint >> 10U));
        *out++ = static_cast<char16_t>(0xDC00U + (codePoint & 0x3FFU));
      } else if (codePoint != 0) {
        *out++ = static_cast<char16_t>(codePoint);
      } else {
        *out++ = kReplacement;
        at = invalidEnd(at, end);
      }
    }
  }
  utf8.remove_prefix(static_cast<std::size_t>(at - utf8.data()));
  return static_cast<std::size_t>(out - units);
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
