#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualI18NReader.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/RecordingEngine.h"

// What the string handles ask of the engine, and what they make of its answers.

namespace {

using namespace std::literals;
using Calls = std::vector<std::string>;

constexpr const char* kNoText = nullptr;

class StringCallsTest : public testing::Test {
 protected:
  // What every pin that was taken must have been matched by.
  void TearDown() override {
    for (const auto& [offset, object] : record.objects) {
      EXPECT_EQ(object.pins, 0U) << offset;
    }
  }

  EngineRecord& record = EngineRecord::reset();
  QRTVirtualMemoryMgr manager{1000000U, 0U, 64};
  QRTVirtualContainer container{&manager};
  const I18NString abc{"abc"};
};

TEST_F(StringCallsTest, Utf8GoesStraightIntoItsBlock) {
  const std::string_view street = "Stra\xC3\x9F\x65";
  QRTVirtualUTF8String string;
  record.take();
  {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    string.setString(I18NString(street), &manager);  // six units: an I18NString without memory
    EXPECT_EQ(string.isEqual(street, &manager), 1);
  }
  EXPECT_EQ(record.take(),
            (Calls{"Allocate(7)", "Dismiss(1)", "GetAddress(1, true)", "Dismiss(1)"}));
  EXPECT_EQ(string.getSize(), 7U);
  EXPECT_EQ(record.text(1), street);
}

TEST_F(StringCallsTest, AShorterStringKeepsItsBlockAndALongerOneMoves) {
  QRTVirtualUTF8String utf8;
  utf8.setString("sixsix"sv, &manager);
  record.take();
  utf8.setString(I18NString("ab"), &manager);
  EXPECT_EQ(record.take(), (Calls{"GetAddress(1, true)", "Dismiss(1)"}));
  EXPECT_EQ(utf8.getSize(), 2U);
  utf8.setString(I18NString("eightsss"), &manager);
  EXPECT_EQ(utf8.getOffset(), 2U);
  EXPECT_EQ(record.text(2), "eightsss");
  EXPECT_EQ(record.objects.count(1), 0U);

  QRTVirtualI18NString units;
  units.setString(abc, &manager);
  EXPECT_EQ(units.getSize(), 6U);
  units.setString(I18NString("x"), &manager);
  EXPECT_EQ(units.getOffset(), 3U);
  EXPECT_EQ(units.getString(&manager), I18NString("x"));
  units.setString(I18NString("longer than abc"), &manager);
  EXPECT_EQ(units.getString(&manager), I18NString("longer than abc"));
}

TEST_F(StringCallsTest, AnEmptyStringChangesNothing) {
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  utf8.setString(abc, &container);
  units.setString(abc, &container);
  record.take();
  utf8.setString(I18NString(), &manager);
  utf8.setString(""sv, &manager);
  utf8.setString(std::string_view(), &manager);
  utf8.setString(kNoText, &manager);
  utf8.setString(kNoText, &container);
  utf8.setString(QRTI18NBuffer(), &manager);
  utf8.setString(nullptr, &manager);
  units.setString(I18NString(), &manager);
  units.setString(""sv, &manager);
  units.setString(std::string_view(), &container);
  units.setString(kNoText, &manager);
  units.setString(kNoText, &container);
  units.setString(nullptr, &manager);
  EXPECT_TRUE(record.take().empty());
  EXPECT_EQ(utf8.getString(&container), abc);
  EXPECT_EQ(units.getString(&container), abc);
}

// The two classes differ: an empty handle equals the empty string in UTF-8 only.
TEST_F(StringCallsTest, AFreshHandleIsEmpty) {
  record.take();
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  QRTI18NBuffer buffer(abc);
  utf8.getI18NBuffer(buffer, &manager);
  EXPECT_EQ(buffer.empty(), 1);
  EXPECT_TRUE(utf8.getString(&manager).empty());
  EXPECT_TRUE(units.getString(&manager).empty());
  EXPECT_EQ(utf8.getObjectPtr(&manager), nullptr);
  EXPECT_FALSE(QRTVirtualUTF8Reader(utf8, &manager).isPinned());
  EXPECT_FALSE(QRTVirtualI18NReader(units, &manager).isPinned());
  EXPECT_EQ(utf8.getUtf8(&manager), "");
  EXPECT_EQ(units.getUtf8(&manager), "");
  EXPECT_EQ(utf8.isEqual(I18NString(), &manager), 1);
  EXPECT_EQ(utf8.isEqual(""sv, &manager), 1);
  EXPECT_EQ(utf8.isEqual(kNoText, &manager), 1);
  EXPECT_EQ(utf8.isEqual(kNoText, &container), 1);
  EXPECT_EQ(utf8.isEqual(nullptr, &manager), 1);
  EXPECT_EQ(units.isEqual(I18NString(), &manager), 0);
  EXPECT_EQ(units.isEqual(""sv, &manager), 0);
  EXPECT_EQ(units.isEqual(kNoText, &manager), 0);
  EXPECT_EQ(units.isEqual(kNoText, &container), 0);
  EXPECT_EQ(units.isEqual(nullptr, &manager), 0);
  EXPECT_EQ(utf8.isEqual(abc, &manager), 0);
  EXPECT_EQ(utf8.isEqual(QRTVirtualUTF8String(), &manager), 0);
  EXPECT_EQ(units.isEqual(units, &manager), 0);
  EXPECT_TRUE(record.take().empty()) << "there is nothing to pin or dismiss";
}

template <class Where>
void expectNothingHappens(QRTVirtualUTF8String utf8, QRTVirtualI18NString units, Where* nowhere) {
  const I18NString text("text");
  const QRTVirtualUTF8String sameUtf8 = utf8;
  QRTVirtualI18NString sameUnits = units;
  QRTI18NBuffer buffer(text);
  utf8.setString(text, nowhere);
  utf8.setString("text"sv, nowhere);
  utf8.setString(kNoText, nowhere);
  utf8.setString(buffer, nowhere);
  units.setString(text, nowhere);
  units.setString("text"sv, nowhere);
  units.setString(kNoText, nowhere);
  EXPECT_EQ(utf8.getOffset(), sameUtf8.getOffset());
  EXPECT_EQ(units.getOffset(), sameUnits.getOffset());
  EXPECT_TRUE(utf8.getString(nowhere).empty());
  EXPECT_TRUE(units.getString(nowhere).empty());
  utf8.getI18NBuffer(buffer, nowhere);
  EXPECT_EQ(buffer.empty(), 1);
  EXPECT_EQ(utf8.getObjectPtr(nowhere), nullptr);
  EXPECT_EQ(QRTVirtualUTF8Reader(utf8, nowhere).view(), "");
  EXPECT_EQ(QRTVirtualI18NReader(units, nowhere).view(), u"");
  EXPECT_EQ(utf8.getUtf8(nowhere), "");
  EXPECT_EQ(units.getUtf8(nowhere), "");
  EXPECT_EQ(utf8.isEqual(sameUtf8, nowhere), 0);
  EXPECT_EQ(units.isEqual(sameUnits, nowhere), 0);
  EXPECT_EQ(utf8.isEqual(I18NString("abc"), nowhere), 0);
  EXPECT_EQ(utf8.isEqual("abc"sv, nowhere), 0);
  EXPECT_EQ(QRTVirtualUTF8String().isEqual(kNoText, nowhere), 0);
  EXPECT_EQ(QRTVirtualUTF8String().isEqual(""sv, nowhere), 0);
  EXPECT_EQ(QRTVirtualUTF8String().isEqual(I18NString(), nowhere), 0);
  EXPECT_EQ(units.isEqual(I18NString("abc"), nowhere), 0);
  EXPECT_EQ(units.isEqual("abc"sv, nowhere), 0);
  EXPECT_EQ(units.isEqual("abc", nowhere), 0);
}

TEST_F(StringCallsTest, WithoutAManagerNothingHappens) {
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  utf8.setString(abc, &manager);
  units.setString(abc, &manager);
  record.take();
  QRTVirtualContainer without(static_cast<QRTVirtualMemoryMgr*>(nullptr));
  expectNothingHappens<QRTVirtualMemoryMgr>(utf8, units, nullptr);
  expectNothingHappens<QRTVirtualContainer>(utf8, units, nullptr);
  expectNothingHappens(utf8, units, &without);
  EXPECT_TRUE(record.take().empty());
}

TEST_F(StringCallsTest, ComparisonsLookAtTheLengthFirst) {
  QRTVirtualUTF8String utf8;
  QRTVirtualUTF8String other;
  QRTVirtualI18NString units;
  utf8.setString(abc, &manager);
  other.setString("abcd"sv, &manager);
  units.setString(abc, &manager);
  record.take();
  EXPECT_EQ(utf8.isEqual(I18NString("ab"), &manager), 0);
  EXPECT_EQ(utf8.isEqual("abcd"sv, &manager), 0);
  EXPECT_EQ(utf8.isEqual(kNoText, &manager), 0);
  EXPECT_EQ(utf8.isEqual(other, &manager), 0);
  EXPECT_EQ(units.isEqual(I18NString("ab"), &manager), 0);
  EXPECT_EQ(units.isEqual("abcd", &manager), 0);
  EXPECT_EQ(units.isEqual(kNoText, &manager), 0);
  EXPECT_TRUE(record.take().empty());

  other.setString("abd"sv, &manager);
  record.take();
  EXPECT_EQ(utf8.isEqual(other, &container), 0);
  EXPECT_EQ(record.take(),
            (Calls{"GetAddress(1, true)", "GetAddress(2, true)", "Dismiss(1)", "Dismiss(2)"}));
  EXPECT_EQ(utf8.isEqual(utf8, &container), 1);
  EXPECT_EQ(units.isEqual(units, &container), 1);
  EXPECT_EQ(utf8.isEqual(I18NString("abd"), &container), 0);
  EXPECT_EQ(utf8.isEqual(abc, &container), 1);
  EXPECT_EQ(utf8.isEqual("abc"sv, &container), 1);
  EXPECT_EQ(utf8.isEqual("abc", &container), 1);
  EXPECT_EQ(units.isEqual(I18NString("abd"), &container), 0);
  EXPECT_EQ(units.isEqual(abc, &container), 1);
  EXPECT_EQ(units.isEqual("abc"sv, &container), 1);
  EXPECT_EQ(units.isEqual("abc", &manager), 1);
  EXPECT_EQ(units.isEqual("abd", &container), 0);
}

// Both classes take UTF-8 and give it back, whatever is in it; what is ill-formed is replaced.
TEST_F(StringCallsTest, Utf8GoesInAndOutInOneCall) {
  const auto check = [&](std::string_view given, std::string_view stored) {
    QRTVirtualUTF8String utf8;
    QRTVirtualI18NString units;
    utf8.setString(given, &container);
    units.setString(given, &container);
    EXPECT_EQ(utf8.getUtf8(&manager), stored);
    EXPECT_EQ(utf8.getUtf8(&container), stored);
    EXPECT_EQ(units.getUtf8(&manager), stored);
    EXPECT_EQ(units.getUtf8(&container), stored);
    EXPECT_EQ(units.isEqual(given, &manager), 1);
    const I18NString text(given);
    EXPECT_EQ(units.getString(&manager), text);
    EXPECT_EQ(QRTVirtualI18NReader(units, &container).view(), text.viewUnits());
  };
  for (const std::string_view same : {"a"sv, "a\0b\0"sv, "Stra\xC3\x9F\x65 \xF0\x9F\x98\x80"sv}) {
    check(same, same);
  }
  check("(\xFF)"sv, "(\xEF\xBF\xBD)"sv);

  const char16_t half[] = u"\xD83D";  // which UTF-8 has no form for
  QRTVirtualI18NString surrogate;
  surrogate.setString(I18NString(half), &manager);
  EXPECT_EQ(QRTVirtualI18NReader(surrogate, &manager).view(), half);
  EXPECT_EQ(surrogate.getUtf8(&manager), "\xEF\xBF\xBD");
}

TEST_F(StringCallsTest, AReadingPinIsNotAWritingOne) {
  QRTVirtualUTF8String string;
  string.setString(abc, &manager);
  record.take();
  {
    QRTVirtualUTF8Reader reader(string, &container);
    EXPECT_EQ(reader.view(), "abc");
    QRTVirtualUTF8Reader next(std::move(reader));
    EXPECT_EQ(record.take(), Calls{"GetAddress(1, false)"});
    reader = std::move(next);
    EXPECT_FALSE(next.isPinned());  // NOLINT(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
    reader = QRTVirtualUTF8Reader(string, &manager);
    EXPECT_EQ(record.take(), (Calls{"GetAddress(1, false)", "Dismiss(1)"}));
    EXPECT_EQ(reader.view(), "abc");
    next = QRTVirtualUTF8Reader(string, &manager);
    next.release();
    EXPECT_EQ(next.view(), "");
  }
  QRTVirtualI18NString units;
  units.setString(abc, &manager);
  record.take();
  {
    QRTVirtualI18NReader reader(units, &container);
    EXPECT_EQ(reader.view(), u"abc");
    QRTVirtualI18NReader next(std::move(reader));
    EXPECT_EQ(record.take(), Calls{"GetAddress(2, false)"});
    EXPECT_EQ(next.view(), u"abc");
    next.release();
    EXPECT_EQ(next.view(), u"");
    EXPECT_EQ(units.getUtf8(&manager), "abc");
    EXPECT_EQ(record.take(), (Calls{"Dismiss(2)", "GetAddress(2, false)", "Dismiss(2)"}));
  }
}

TEST_F(StringCallsTest, AnUnreadableStringIsEmptyAndEqualsNothing) {
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  utf8.setString(abc, &manager);
  units.setString(abc, &manager);
  record.refuseGetAddress = true;
  QRTI18NBuffer buffer(abc);
  EXPECT_TRUE(utf8.getString(&manager).empty());
  EXPECT_TRUE(units.getString(&manager).empty());
  utf8.getI18NBuffer(buffer, &manager);
  EXPECT_EQ(buffer.empty(), 1);
  EXPECT_EQ(utf8.getObjectPtr(&manager), nullptr);
  EXPECT_EQ(utf8.getUtf8(&manager), "");
  EXPECT_EQ(units.getUtf8(&manager), "");
  EXPECT_FALSE(QRTVirtualI18NReader(units, &manager).isPinned());
  EXPECT_EQ(utf8.isEqual(utf8, &manager), 0);
  EXPECT_EQ(units.isEqual(units, &manager), 0);
  EXPECT_EQ(utf8.isEqual(abc, &manager), 0);
  EXPECT_EQ(utf8.isEqual("abc"sv, &manager), 0);
  EXPECT_EQ(units.isEqual(abc, &manager), 0);
  const auto error = expectRaised<QRTAssertError>([&] { utf8.setString("longer"sv, &manager); });
  EXPECT_EQ(textOf(error), "QRT_ASSERT(old_ptr);");
  // A shorter string would take the place of the old one, which is not to be had.
  expectRaised<QRTOutOfMemoryError>([&] { utf8.setString("a"sv, &manager); });
  expectRaised<QRTOutOfMemoryError>([&] { utf8.setString(I18NString("a"), &manager); });
  expectRaised<QRTOutOfMemoryError>([&] { units.setString(I18NString("a"), &manager); });
  record.refuseGetAddress = false;
  EXPECT_EQ(utf8.getString(&manager), abc);
  EXPECT_EQ(units.getString(&manager), abc);
}

TEST_F(StringCallsTest, AFullStoreLeavesTheOldString) {
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  utf8.setString(abc, &manager);
  units.setString(abc, &manager);
  record.refuseAllocate = true;
  const I18NString longer("longer");
  const auto expectTrace = [](const QRTOutOfMemoryError& error, const char* file) {
    EXPECT_EQ(error.getText(), nullptr);
    EXPECT_EQ(traceOf(error), (std::vector<TraceEntry>{{"QRTVirtualMemoryMgr.cpp",
                                                        "QRTVirtualMemoryMgr::alloc", "QRT_THROW"},
                                                       {file, "", "QRT_RETHROW"}}));
  };
  expectTrace(expectRaised<QRTOutOfMemoryError>([&] { utf8.setString(longer, &manager); }),
              "QRTVirtualUTF8String.cpp");
  expectTrace(expectRaised<QRTOutOfMemoryError>([&] { utf8.setString("longer"sv, &container); }),
              "QRTVirtualUTF8String.cpp");
  expectTrace(expectRaised<QRTOutOfMemoryError>([&] { units.setString(longer, &manager); }),
              "QRTVirtualI18NString.cpp");
  EXPECT_EQ(utf8.getString(&manager), abc);
  EXPECT_EQ(units.getString(&manager), abc);
}

TEST_F(StringCallsTest, AFailedFetchGivesItsPinBack) {
  QRTVirtualUTF8String utf8;
  QRTVirtualI18NString units;
  const I18NString text("a text that does not fit into the string object itself");
  utf8.setString(text, &manager);
  units.setString(text, &manager);
  QRTI18NBuffer buffer(abc);
  {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    EXPECT_THROW(utf8.getString(&manager), std::bad_alloc);
    EXPECT_THROW(utf8.getI18NBuffer(buffer, &manager), std::bad_alloc);
    EXPECT_THROW(units.getString(&manager), std::bad_alloc);
    EXPECT_THROW(utf8.getUtf8(&manager), std::bad_alloc);
    EXPECT_THROW(units.getUtf8(&manager), std::bad_alloc);
    // Comparing needs no memory.
    EXPECT_EQ(utf8.isEqual(text, &manager), 1);
    EXPECT_EQ(units.isEqual(text, &manager), 1);
  }
  EXPECT_EQ(buffer.getString(), abc);
}

}  // namespace
