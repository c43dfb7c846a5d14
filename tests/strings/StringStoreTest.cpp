#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"
#include "support/ErrorMatchers.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// The string handles over the real engine.

namespace {

using namespace std::literals;

class StringStoreTest : public testing::Test {
 protected:
  TempDirectory directory;
  ScopedTmpdir tmpdir{directory.path().string()};
  QRTVirtualMemoryMgr manager{1U << 20U, 0U, 64};
  std::mt19937 random{testSeed()};
};

// Bytes of which some are ill-formed, every class of lead and continuation byte among them.
std::string randomBytes(std::mt19937& random, std::size_t length) {
  static const char alphabet[] =
      "azAZ09  \0\x7F\x80\xA0\xBF\xC0\xC3\xE0\xE2\xED\xEF\xF0\xF4\xF8\xFF";
  const std::size_t letters = random() % 2 == 0 ? 8 : sizeof alphabet - 1;
  std::string bytes(length, '\0');
  for (char& byte : bytes) {
    byte = alphabet[random() % letters];
  }
  return bytes;
}

// Several times more text than the budget holds; whatever goes in by one way comes out by all.
TEST_F(StringStoreTest, EveryWayInAgreesWithEveryWayOut) {
  struct Twin {
    QRTVirtualUTF8String utf8;
    QRTVirtualI18NString units;
    std::string given;
  };
  std::vector<Twin> twins(4000);
  const auto compare = [&](Twin& twin) {
    const I18NString text(twin.given);
    const std::string_view utf8(text.c_str(nullptr, nullptr, nullptr, nullptr),
                                static_cast<std::size_t>(text.getUtf8Length()));
    ASSERT_EQ(QRTVirtualUTF8Reader(twin.utf8, &manager).view(), utf8);
    ASSERT_EQ(twin.utf8.getUtf8(&manager), utf8);
    ASSERT_EQ(twin.units.getUtf8(&manager), utf8);
    ASSERT_EQ(twin.utf8.getString(&manager), text);
    ASSERT_EQ(twin.units.getString(&manager), text);
    ASSERT_EQ(twin.utf8.isEqual(I18NString(twin.given), &manager), 1);
    ASSERT_EQ(twin.utf8.isEqual(twin.given, &manager), 1);
    ASSERT_EQ(twin.units.isEqual(text, &manager), 1);
    Twin& other = twins[random() % twins.size()];
    const bool same = I18NString(other.given) == text;
    ASSERT_EQ(twin.utf8.isEqual(other.utf8, &manager), same ? 1 : 0);
    ASSERT_EQ(twin.utf8.isEqual(other.given, &manager), same ? 1 : 0);
  };
  for (int step = 0; step < 16000; ++step) {
    Twin& twin = twins[random() % twins.size()];
    if (!twin.given.empty()) {
      ASSERT_NO_FATAL_FAILURE(compare(twin)) << "step " << step;
    }
    twin.given = randomBytes(random, 1 + random() % (random() % 50 == 0 ? 20000 : 400));
    const I18NString text(twin.given);
    if (step % 2 == 0) {
      twin.utf8.setString(twin.given, &manager);
    } else {
      twin.utf8.setString(text, &manager);
    }
    twin.units.setString(text, &manager);
  }
  for (Twin& twin : twins) {
    if (!twin.given.empty()) {
      ASSERT_NO_FATAL_FAILURE(compare(twin));
    }
  }
}

// Text of one length that differs late, early, or only where it is ill-formed.
TEST_F(StringStoreTest, OneDifferentCharacterIsADifference) {
  const std::string mixed =
      std::string(40, 'x') + "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80" + std::string(20, 'y');
  QRTVirtualUTF8String stored;
  stored.setString(mixed, &manager);
  for (std::size_t i = 0; i < mixed.size(); ++i) {
    std::string changed = mixed;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_EQ(stored.isEqual(changed, &manager), 0) << i;
    EXPECT_EQ(stored.isEqual(I18NString(changed), &manager), 0) << i;
  }
  stored.setString("(\xEF\xBF\xBD)"sv, &manager);
  EXPECT_EQ(stored.isEqual("(\xFF)"sv, &manager), 1);
  EXPECT_EQ(stored.isEqual("(\xFF\xFF\xFF)"sv, &manager), 0);
  // Latin-1 bytes have the values of the characters, but are not their UTF-8.
  const char16_t units[] = u"\u00E9\u00E9\u00E9\u00E9";
  const I18NString accents(static_cast<const void*>(units), 8, nullptr, nullptr);
  stored.setString("\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA8"sv, &manager);
  EXPECT_EQ(stored.isEqual(accents, &manager), 0);
}

// The handle happens to name a live object of the manager, which is smaller than the string.
TEST_F(StringStoreTest, AHandleOfAnotherManagerDoesNotReachPastTheObjectItNames) {
  QRTVirtualMemoryMgr other(1U << 20U, 0U, 64);
  QRTVirtualPageItem victim;
  other.alloc(100, victim);
  other.dismiss(victim);
  QRTVirtualUTF8String string(QRTVirtualPageItem(victim.getOffset(), 5000));
  EXPECT_TRUE(string.getString(&other).empty());
  EXPECT_FALSE(QRTVirtualUTF8Reader(string, &other).isPinned());
  EXPECT_EQ(string.isEqual(std::string(5000, 'x'), &other), 0);
  EXPECT_THROW(string.setString(std::string(4000, 'x'), &other), QRTOutOfMemoryError);
  EXPECT_THROW(string.setString(std::string(6000, 'x'), &other), QRTAssertError);
  EXPECT_EQ(other.getObjectSize(victim.getOffset()), 100U);
}

TEST_F(StringStoreTest, AHandleOfAnotherManagerGivesNothing) {
  QRTVirtualMemoryMgr other(1U << 20U, 0U, 64);
  QRTVirtualUTF8String string;
  QRTVirtualI18NString units;
  string.setString("a string of the first manager"sv, &manager);
  units.setString(I18NString("as UTF-16"), &manager);
  EXPECT_TRUE(string.getString(&other).empty());
  EXPECT_TRUE(units.getString(&other).empty());
  EXPECT_EQ(string.getUtf8(&other), "");
  EXPECT_EQ(units.getUtf8(&other), "");
  EXPECT_EQ(string.getObjectPtr(&other), nullptr);
  EXPECT_FALSE(QRTVirtualUTF8Reader(string, &other).isPinned());
  EXPECT_EQ(string.isEqual(string, &other), 0);
  expectRaised<QRTAssertError>([&] { string.setString(std::string(100, 'x'), &other); });
  EXPECT_EQ(QRTVirtualUTF8Reader(string, &manager).view(), "a string of the first manager");

  const QRTVirtualUTF8String stale = string;
  manager.free(string);
  EXPECT_FALSE(QRTVirtualUTF8Reader(stale, &manager).isPinned());
  EXPECT_TRUE(string.getString(&manager).empty());
  string.setString("again"sv, &manager);
  EXPECT_EQ(string.isEqual("again"sv, &manager), 1);
}

TEST_F(StringStoreTest, AStoreWithoutAPagingFileKeepsWhatItHasWhenItIsFull) {
  const ScopedTmpdir nowhere((directory.path() / "missing").string());
  QRTVirtualMemoryMgr full(1U << 20U, 0U, 64);
  std::vector<QRTVirtualUTF8String> strings(1);
  const auto content = [](std::size_t i) { return std::string(500, '.') + std::to_string(i); };
  bool refused = false;
  while (!refused && strings.size() < 100000) {
    try {
      strings.back().setString(content(strings.size() - 1), &full);
      strings.emplace_back();
    } catch (const QRTOutOfMemoryError&) {
      refused = true;
    }
  }
  ASSERT_TRUE(refused);
  strings.pop_back();
  EXPECT_THROW(strings[0].setString(std::string(1U << 20U, 'x'), &full), QRTOutOfMemoryError);
  for (std::size_t i = 0; i < strings.size(); ++i) {
    ASSERT_EQ(strings[i].isEqual(content(i), &full), 1) << i;
  }
}

// A GiB of ASCII is one character more than an I18NString can hold.
TEST_F(StringStoreTest, AStringOfAGibibyteIsReadThroughAView) {
  if (sizeof(void*) < 8) {
    GTEST_SKIP() << "three of them do not fit the address space";
  }
  constexpr std::size_t kGibibyte = std::size_t{1} << 30U;
  QRTVirtualMemoryMgr ample(3U << 30U, 0U, 64);
  QRTVirtualUTF8String string;
  {
    // Zeros that the system need not provide before they are written.
    const std::unique_ptr<char, decltype(&std::free)> text(
        static_cast<char*>(std::calloc(kGibibyte, 1)), &std::free);
    ASSERT_NE(text, nullptr);
    text.get()[kGibibyte - 1] = '\xFF';
    string.setString(std::string_view(text.get(), kGibibyte), &ample);
  }
  EXPECT_EQ(string.getSize(), kGibibyte + 2);
  EXPECT_EQ(QRTVirtualUTF8Reader(string, &ample).view().substr(kGibibyte - 2), "\0\xEF\xBF\xBD"sv);
  const auto error = expectRaised<QRTOutOfMemoryError>([&] { string.getString(&ample); });
  EXPECT_EQ(textOf(error), "I18NString: a string is limited to 2147483647 bytes");
  string.setString("short"sv, &ample);
  EXPECT_EQ(string.getString(&ample), I18NString("short"));
}

static_assert(!std::is_copy_constructible_v<QRTVirtualUTF8Reader>);
static_assert(std::is_nothrow_move_constructible_v<QRTVirtualUTF8Reader>);

}  // namespace
