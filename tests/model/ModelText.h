#ifndef TESTS_MODEL_MODELTEXT_H
#define TESTS_MODEL_MODELTEXT_H

#include <cstdint>
#include <string>

namespace model {

/// The two encodings of a text, written down once more without regard to speed.
/// @file

inline void appendUtf8(std::string& utf8, std::uint32_t point) {
  const auto add = [&](std::uint32_t byte) { utf8 += static_cast<char>(byte); };
  const auto addTrail = [&](std::uint32_t shift) { add(0x80U | (point >> shift & 0x3FU)); };
  if (point < 0x80) {
    add(point);
  } else if (point < 0x800) {
    add(0xC0U | point >> 6U);
    addTrail(0);
  } else if (point < 0x10000) {
    add(0xE0U | point >> 12U);
    addTrail(6);
    addTrail(0);
  } else {
    add(0xF0U | point >> 18U);
    addTrail(12);
    addTrail(6);
    addTrail(0);
  }
}

inline void appendUtf16(std::u16string& units, std::uint32_t point) {
  if (point < 0x10000) {
    units += static_cast<char16_t>(point);
  } else {
    units += static_cast<char16_t>(0xD800U + (point - 0x10000U) / 0x400U);
    units += static_cast<char16_t>(0xDC00U + (point - 0x10000U) % 0x400U);
  }
}

/// The code points of UTF-8. A byte at which no well-formed character begins is U+FFFD together
/// with the continuation bytes behind it.
inline std::u32string pointsOf(const std::string& utf8) {
  std::u32string points;
  const auto byteAt = [&](std::size_t at) {
    return at < utf8.size() ? static_cast<unsigned char>(utf8[at]) : 0U;
  };
  const auto isTrail = [&](std::size_t at) { return (byteAt(at) & 0xC0U) == 0x80U; };
  for (std::size_t at = 0; at < utf8.size();) {
    const std::uint32_t lead = byteAt(at);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    static constexpr std::uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    std::uint32_t point = length == 1 ? lead : lead & (0x7FU >> length);
    bool good = lead < 0x80 || (lead >= 0xC0 && lead < 0xF8);
    for (std::size_t i = 1; i < length; ++i) {
      good = good && isTrail(at + i);
      point = point << 6U | (byteAt(at + i) & 0x3FU);
    }
    good = good && point >= kLeast[length] && point <= 0x10FFFF && (point & 0xFFFFF800U) != 0xD800U;
    points += good ? static_cast<char32_t>(point) : U'\uFFFD';
    at += good ? length : 1;
    while (!good && isTrail(at)) {
      ++at;
    }
  }
  return points;
}

/// The code points of UTF-16; an unpaired surrogate is U+FFFD.
inline std::u32string pointsOf(const std::u16string& units) {
  std::u32string points;
  for (std::size_t at = 0; at < units.size(); ++at) {
    const std::uint32_t unit = units[at];
    const std::uint32_t next = at + 1 < units.size() ? units[at + 1] : 0U;
    if (unit >= 0xD800 && unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
      points += static_cast<char32_t>(0x10000U + (unit - 0xD800U) * 0x400U + (next - 0xDC00U));
      ++at;
    } else {
      points += unit >= 0xD800 && unit < 0xE000 ? U'\uFFFD' : static_cast<char32_t>(unit);
    }
  }
  return points;
}

inline std::string utf8Of(const std::u32string& points) {
  std::string utf8;
  for (const char32_t point : points) {
    appendUtf8(utf8, point);
  }
  return utf8;
}

inline std::u16string utf16Of(const std::u32string& points) {
  std::u16string units;
  for (const char32_t point : points) {
    appendUtf16(units, point);
  }
  return units;
}

}  // namespace model

#endif  // TESTS_MODEL_MODELTEXT_H
