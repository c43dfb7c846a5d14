#include "QRTCore/I18NString.h"

#include <gtest/gtest.h>

#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "QRTCore/QRTI18NBuffer.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/TestSeed.h"

namespace {

using namespace std::literals;

I18NString fromUtf8(std::string_view bytes) {
  return I18NString(bytes.data(), nullptr, static_cast<int>(bytes.size()), nullptr, nullptr);
}

I18NString fromUnits(std::u16string_view units) {
  return I18NString(static_cast<const void*>(units.data()), static_cast<int>(units.size() * 2),
                    nullptr, nullptr);
}

std::u16string unitsOf(const I18NString& text) {
  return {static_cast<const char16_t*>(text.getExternalBuffer()),
          static_cast<std::size_t>(text.size()) / 2};
}

std::string bytesOf(const I18NString& text) {
  int length = -1;
  const char* const bytes = text.c_str(nullptr, &length, nullptr, nullptr);
  EXPECT_EQ(bytes[length - 1], '\0');
  return {bytes, static_cast<std::size_t>(length - 1)};
}

TEST(I18NString, WellFormedTextConvertsBothWays) {
  const std::pair<std::string_view, std::u16string_view> cases[] = {
      {""sv, u""sv},
      {"a"sv, u"a"sv},
      {"a\0b\0"sv, u"a\0b\0"sv},
      {"0123456789abcdefghijklmnopqrstuvwxyz"sv, u"0123456789abcdefghijklmnopqrstuvwxyz"sv},
      {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"sv, u"\x7F\x80\u07FF\u0800"sv},
      {"Stra\xC3\x9F"
       "e 12345678 \xE2\x82\xAC"sv,
       u"Stra\u00DFe 12345678 \u20AC"sv},
      {"\xEF\xBF\xBD\xEF\xBF\xBE\xEF\xBF\xBF"sv, u"\xFFFD\xFFFE\xFFFF"sv},
      {"\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"sv, u"\U00010000 \U0010FFFF"sv},
      {"\xED\x9F\xBF\xEE\x80\x80"sv, u"\xD7FF\xE000"sv},
  };
  for (const auto& [bytes, units] : cases) {
    SCOPED_TRACE(std::string(bytes));
    EXPECT_EQ(unitsOf(fromUtf8(bytes)), units);
    EXPECT_EQ(bytesOf(fromUnits(units)), bytes);
    EXPECT_EQ(fromUtf8(bytes), fromUnits(units));
    const I18NString text{units};
    EXPECT_EQ(text.viewUnits(), units);
    EXPECT_EQ(text.viewUnits().data(), text.getExternalBuffer());
    EXPECT_EQ(text.toUtf8(), bytes);
    EXPECT_EQ(text.viewUtf8(), bytes);
    EXPECT_EQ(text.viewUtf8().data(), text.c_str()) << "kept inside the string";
    EXPECT_EQ(text.c_str()[bytes.size()], '\0');
    EXPECT_EQ(text.toUtf8(), bytes) << "from what was kept";
  }
}

TEST(I18NString, IllFormedUtf8BecomesReplacementCharacters) {
  const std::pair<std::string_view, std::u16string_view> cases[] = {
      {"\x80"sv, u"\xFFFD"sv},                    // continuation byte alone
      {"a\xFFz"sv, u"a\xFFFDz"sv},                // never a byte of UTF-8
      {"\xC3"sv, u"\xFFFD"sv},                    // cut off at the end
      {"\xE2\x82"sv, u"\xFFFD"sv},                //
      {"\xF0\x9F\x98"sv, u"\xFFFD"sv},            //
      {"\xE2\x82z"sv, u"\xFFFDz"sv},              // cut off by another character
      {"\xE2\x82\xC3\xA9"sv, u"\xFFFD\u00E9"sv},  //
      {"\xC0\x80"sv, u"\xFFFD"sv},                // overlong zero
      {"\xE0\x80\xAF"
       "x"sv,
       u"\xFFFDx"sv},                                     // overlong slash
      {"\xED\xA0\x80"sv, u"\xFFFD"sv},                    // a surrogate
      {"\xED\xA0\xBD\xED\xB8\x80"sv, u"\xFFFD\xFFFD"sv},  // a surrogate pair
      {"\xF4\x90\x80\x80!"sv, u"\xFFFD!"sv},              // beyond U+10FFFF
  };
  for (const auto& [bytes, units] : cases) {
    SCOPED_TRACE(testing::PrintToString(std::string(bytes)));
    EXPECT_EQ(unitsOf(fromUtf8(bytes)), units);
  }
}

TEST(I18NString, UnpairedSurrogatesAreKeptButNotConverted) {
  const std::pair<std::u16string_view, std::string_view> cases[] = {
      {u"\xD800"sv, "\xEF\xBF\xBD"sv},
      {u"\xDC00x"sv, "\xEF\xBF\xBDx"sv},
      {u"\xD800\xD83D\xDE00"sv, "\xEF\xBF\xBD\xF0\x9F\x98\x80"sv},
      {u"\xDE00\xD83D"sv, "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
  };
  for (const auto& [units, bytes] : cases) {
    EXPECT_EQ(unitsOf(fromUnits(units)), units);
    EXPECT_EQ(bytesOf(fromUnits(units)), bytes);
    EXPECT_EQ(I18NString(units).toUtf8(), bytes);
  }
}

// Any bytes give a string whose UTF-8 is well-formed, so converting once more changes nothing.
TEST(I18NString, RandomBytesReachAFixedPoint) {
  std::mt19937 random(testSeed());
  const char alphabet[] = "az\0\x7F\x80\xA0\xBF\xC0\xC3\xE0\xE2\xED\xEF\xF0\xF4\xF8\xFF";
  for (int round = 0; round < 20000; ++round) {
    std::string bytes(random() % 24, '\0');
    for (char& byte : bytes) {
      byte = alphabet[random() % (sizeof alphabet - 1)];
    }
    const std::string once = bytesOf(fromUtf8(bytes));
    ASSERT_EQ(bytesOf(fromUtf8(once)), once) << testing::PrintToString(bytes);
    ASSERT_EQ(once.find("\xEF\xBF\xBD") == std::string::npos, once == bytes);
  }
}

TEST(I18NString, NothingGivesTheEmptyString) {
  int length = 0;
  const I18NString empties[] = {I18NString(),
                                I18NString(nullptr),
                                I18NString(""),
                                I18NString(std::u16string_view()),
                                I18NString(nullptr, nullptr, 0, nullptr, nullptr),
                                I18NString(nullptr, nullptr, 5, nullptr, nullptr),
                                I18NString("abc", nullptr, -1, nullptr, nullptr),
                                I18NString(nullptr, 0, nullptr, nullptr),
                                I18NString(static_cast<const void*>("x"), 1, nullptr, nullptr)};
  for (const I18NString& empty : empties) {
    EXPECT_TRUE(empty.empty());
    EXPECT_EQ(empty.size(), 0);
    EXPECT_NE(empty.getExternalBuffer(), nullptr);
    EXPECT_STREQ(empty.c_str(nullptr, &length, nullptr, nullptr), "");
    EXPECT_EQ(length, 1);
    EXPECT_EQ(empty.viewUnits(), u""sv);
    EXPECT_EQ(empty.toUtf8(), "");
  }
}

TEST(I18NString, AnExternalBufferMayLieAnywhereAndLosesAnOddByte) {
  const std::string bytes("?a\0b\0c", 6);
  const I18NString text(static_cast<const void*>(bytes.data() + 1), 5, nullptr, nullptr);
  EXPECT_EQ(bytesOf(text), "ab");
}

TEST(I18NString, OnlyUtf8IsAccepted) {
  const I18NString text("abc");
  EXPECT_EQ(text.c_str("UTF-8", nullptr, nullptr, nullptr), "abc"sv);
  EXPECT_EQ(I18NString("abc", "UTF-8", 3, nullptr, nullptr), text);
  const auto encoding = expectRaised<QRTIllegalStateError>(
      [&] { text.c_str("ISO-8859-1", nullptr, nullptr, nullptr); });
  EXPECT_NE(textOf(encoding).find("\"ISO-8859-1\""), std::string::npos);
  expectRaised<QRTIllegalStateError>([] { I18NString("abc", "", 3, nullptr, nullptr); });
  const I18NString::ConversionFunction function = [](const char*, int, char*, int, void*) {
    return -1;
  };
  expectRaised<QRTIllegalStateError>([&] { text.c_str(nullptr, nullptr, function, nullptr); });
  expectRaised<QRTIllegalStateError>([&] { I18NString("abc", nullptr, 3, function, nullptr); });
  expectRaised<QRTIllegalStateError>(
      [&] { I18NString(static_cast<const void*>("ab"), 2, function, nullptr); });
}

TEST(I18NString, ItsUtf8FollowsEveryChange) {
  I18NString text("first");
  EXPECT_EQ(bytesOf(text), "first");
  text = I18NString("second, and longer than a small string");
  EXPECT_EQ(bytesOf(text), "second, and longer than a small string");
  const I18NString third("third");
  text = third;
  EXPECT_EQ(bytesOf(text), "third");
  text += text;
  EXPECT_EQ(bytesOf(text), "thirdthird");
  I18NString taken(std::move(text));
  EXPECT_EQ(bytesOf(taken), "thirdthird");
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): it is left empty
  EXPECT_EQ(text.c_str(nullptr, nullptr, nullptr, nullptr), ""sv);
  taken.clear();
  EXPECT_EQ(bytesOf(taken), "");
}

TEST(I18NString, SmallStringsAllocateNothing) {
  const FailingNew noMemory(1, FailingNew::eFromThenOn);
  for (const char* const seven :
       {"seven.!", "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9"}) {
    const I18NString text(seven);
    I18NString copy;
    copy = text;
    EXPECT_STREQ(copy.c_str(nullptr, nullptr, nullptr, nullptr), seven);
  }
  EXPECT_EQ(noMemory.count(), 0U);
}

TEST(I18NString, AFailedAllocationChangesNothing) {
  const I18NString longText("a text that does not fit into the string object itself");
  I18NString text("old");
  {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    EXPECT_THROW(text = longText, std::bad_alloc);
    EXPECT_THROW(text.append(longText), std::bad_alloc);
    EXPECT_THROW(longText.c_str(nullptr, nullptr, nullptr, nullptr), std::bad_alloc);
    EXPECT_THROW(longText.viewUtf8(), std::bad_alloc);
    EXPECT_THROW(longText.toUtf8(), std::bad_alloc);
  }
  EXPECT_EQ(bytesOf(text), "old");
  EXPECT_EQ(bytesOf(longText), "a text that does not fit into the string object itself");
}

TEST(I18NString, ComparesByCodeUnit) {
  const I18NString sorted[] = {fromUnits(u""),   fromUnits(u"\0"sv), fromUnits(u"a"),
                               fromUnits(u"ab"), fromUnits(u"b"),    fromUnits(u"\xFF5E")};
  for (const I18NString& a : sorted) {
    for (const I18NString& b : sorted) {
      EXPECT_EQ(a == b, &a == &b);
      EXPECT_EQ(a != b, &a != &b);
      EXPECT_EQ(a < b, &a < &b);
      EXPECT_EQ(a > b, &a > &b);
      EXPECT_EQ(a <= b, &a <= &b);
      EXPECT_EQ(a >= b, &a >= &b);
    }
  }
}

// Once counted and converted on the way, once from what c_str has left behind.
TEST(I18NString, GivesItsUtf8WithoutKeepingIt) {
  const std::string_view bytes = "a\0b\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 and more of it"sv;
  const I18NString text(bytes);
  for (int round = 0; round < 2; ++round) {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    ASSERT_EQ(text.getUtf8Length(), static_cast<int>(bytes.size()));
    char copy[64];
    text.copyUtf8(copy);
    EXPECT_EQ(std::string_view(copy, bytes.size()), bytes);
    for (std::size_t length = 0; length < 100; ++length) {
      EXPECT_EQ(text.hasUtf8Length(length), length == bytes.size());
    }
    EXPECT_TRUE(text.equalsUtf8(copy));
    copy[bytes.size() - 1] = '?';
    EXPECT_FALSE(text.equalsUtf8(copy));
    text.copyUtf8(nullptr);
    EXPECT_FALSE(text.equalsUtf8(nullptr));
    const FailingNew::Pause pause;
    text.c_str(nullptr, nullptr, nullptr, nullptr);
  }
  EXPECT_TRUE(I18NString().equalsUtf8(nullptr));
}

TEST(I18NString, CanBeAKey) {
  const std::unordered_set<I18NString> keys{I18NString("one"), I18NString("two"), I18NString()};
  EXPECT_EQ(keys.count(fromUnits(u"two")), 1U);
  EXPECT_EQ(keys.count(I18NString("three")), 0U);
  EXPECT_EQ(keys.count(fromUnits(u"")), 1U);
}

TEST(I18NString, IsWrittenToStreamsAsUtf8) {
  std::ostringstream os;
  os << std::setw(6) << I18NString("\xC3\xA9") << '|' << fromUtf8("a\0b"sv);
  EXPECT_EQ(os.str(), "    \xC3\xA9|a\0b"sv);
}

TEST(QRTI18NBuffer, CollectsAndHandsOutAString) {
  QRTI18NBuffer buffer;
  EXPECT_EQ(buffer.empty(), 1);
  EXPECT_TRUE(buffer.getString().empty());
  buffer.append("one ").append(I18NString("two")).append(static_cast<const char*>(nullptr));
  EXPECT_EQ(buffer.getString(), I18NString("one two"));
  EXPECT_EQ(buffer.size(), 14);
  buffer = I18NString("three");
  EXPECT_EQ(buffer.empty(), 0);
  EXPECT_EQ(buffer.getString(), I18NString("three"));
  I18NString moved("a text that does not fit into the string object itself");
  const void* const memory = moved.getExternalBuffer();
  buffer = std::move(moved);
  EXPECT_EQ(buffer.viewString().getExternalBuffer(), memory);
  buffer.clear();
  EXPECT_EQ(buffer.empty(), 1);
}

}  // namespace
