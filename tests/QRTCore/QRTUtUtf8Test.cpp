#include "QRTCore/QRTUtUtf8.h"

#include <gtest/gtest.h>
#include <utf8.h>

#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

#include "support/TestSeed.h"

// The conversions against the UTF library's checked ones.

namespace {

// A text with its ill-formed sequences replaced, as the UTF library finds them.
std::string repaired(const std::string& utf8) {
  std::string result;
  auto at = utf8.begin();
  while (at != utf8.end()) {
    const auto bad = utf8::find_invalid(at, utf8.end());
    result.append(at, bad);
    at = bad;
    if (at != utf8.end()) {
      result += "\xEF\xBF\xBD";
      do {
        ++at;
      } while (at != utf8.end() && (static_cast<unsigned char>(*at) & 0xC0U) == 0x80U);
    }
  }
  return result;
}

std::string repair(std::string_view utf8) {
  std::string result(static_cast<std::size_t>(QRTUtUtf8::repairedLength(utf8)), '?');
  QRTUtUtf8::repair(utf8, result.data());
  return result;
}

std::u16string toUtf16(std::string_view utf8, std::size_t capacity) {
  std::u16string result;
  std::u16string piece(capacity, u'?');
  while (!utf8.empty()) {
    result.append(piece, 0, QRTUtUtf8::toUtf16(utf8, piece.data(), capacity));
  }
  return result;
}

std::string toUtf8(std::u16string_view units) {
  std::string result(static_cast<std::size_t>(QRTUtUtf8::utf8Length(units)), '?');
  QRTUtUtf8::toUtf8(units, result.data());
  return result;
}

TEST(QRTUtUtf8, AgreesOnWhatIsIllFormed) {
  const auto check = [](std::initializer_list<unsigned int> values) {
    char bytes[4];
    std::size_t count = 0;
    for (const unsigned int value : values) {
      bytes[count++] = static_cast<char>(value);
    }
    const bool valid = QRTUtUtf8::findInvalid({bytes, count}) == count;
    ASSERT_EQ(valid, utf8::is_valid(bytes, bytes + count))
        << testing::PrintToString(std::string(bytes, count));
  };
  for (unsigned int lead = 0x80; lead < 0x100; ++lead) {
    for (unsigned int second = 0; second < 0x100; ++second) {
      check({lead, second});
      for (const unsigned int third : {0x7FU, 0x80U, 0x9FU, 0xA0U, 0xBFU, 0xC0U}) {
        check({lead, second, third});
        for (const unsigned int fourth : {0x7FU, 0x80U, 0xBFU, 0xC0U}) {
          check({lead, second, third, fourth});
        }
      }
    }
  }
}

// Runs of ASCII of all lengths and places around the blocks that are converted at once.
TEST(QRTUtUtf8, ConvertsRandomTextAsTheUtfLibraryDoes) {
  std::mt19937 random(testSeed());
  const std::string_view parts[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                                    "\x80",     "\xED\xA0\xBD", "\xF0\x9F\x98",
                                    "\xC0\xAF", "\xFF",         "\xF4\x8F\xBF\xBF",
                                    "\xC2\x80", "\xEE\x80\x80", "\xE0\x80\x80\x80\x80"};
  for (int round = 0; round < 20000; ++round) {
    std::string utf8;
    const bool wellFormed = random() % 2 == 0;
    for (auto i = random() % 6; i != 0; --i) {
      utf8.append(random() % 40, static_cast<char>(random() % 0x80));
      const std::string_view part = parts[random() % (wellFormed ? 3 : std::size(parts))];
      utf8 += part;
    }
    SCOPED_TRACE(testing::PrintToString(utf8));
    const std::string expected = repaired(utf8);
    const std::u16string units = utf8::utf8to16(expected);
    ASSERT_EQ(
        QRTUtUtf8::findInvalid(utf8),
        static_cast<std::size_t>(utf8::find_invalid(utf8.begin(), utf8.end()) - utf8.begin()));
    ASSERT_EQ(repair(utf8), expected);
    ASSERT_EQ(toUtf16(utf8, 2 + random() % 50), units);
    ASSERT_EQ(toUtf16(utf8, utf8.size() + 2), units);
    if (wellFormed) {
      ASSERT_EQ(QRTUtUtf8::utf16Estimate(utf8), units.size());
    }
    ASSERT_EQ(toUtf8(units), expected);
    ASSERT_TRUE(QRTUtUtf8::equalsRepaired(utf8, expected.data()));
    ASSERT_TRUE(QRTUtUtf8::equalsUtf8(units, expected.data()));
    if (!expected.empty()) {
      std::string changed = expected;
      char& byte = changed[random() % changed.size()];
      byte = static_cast<char>(byte ^ 1);
      ASSERT_FALSE(QRTUtUtf8::equalsRepaired(utf8, changed.data()));
      ASSERT_FALSE(QRTUtUtf8::equalsUtf8(units, changed.data()));
    }
  }
}

// Units of all classes; the expected text puts U+FFFD for what has no partner first.
TEST(QRTUtUtf8, ReplacesUnpairedSurrogates) {
  std::mt19937 random(testSeed());
  const char16_t alphabet[] = {0x41, 0xE9, 0x20AC, 0xD83D, 0xDE00, 0xD800, 0xDFFF, 0xDBFF};
  for (int round = 0; round < 20000; ++round) {
    // Long ones reach beyond the blocks in which lengths are summed.
    std::u16string units(round == 0 ? 20000 : random() % 40, u'\0');
    for (char16_t& unit : units) {
      unit = alphabet[random() % std::size(alphabet)];
    }
    std::u16string paired = units;
    for (std::size_t i = 0; i < paired.size(); ++i) {
      const bool high = (paired[i] & 0xFC00) == 0xD800;
      if (high && i + 1 < paired.size() && (paired[i + 1] & 0xFC00) == 0xDC00) {
        ++i;
      } else if ((paired[i] & 0xF800) == 0xD800) {
        paired[i] = 0xFFFD;
      }
    }
    const std::string expected = utf8::utf16to8(paired);
    ASSERT_EQ(toUtf8(units), expected);
    ASSERT_TRUE(QRTUtUtf8::equalsUtf8(units, expected.data()));
  }
}

}  // namespace
