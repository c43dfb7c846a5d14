#include "QRTCore/QRTThrowable.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"

namespace {

constexpr QRTFileLocation kHere{"here.cpp", 7};
constexpr QRTFileLocation kThere{"there.cpp", 8};

TEST(QRTThrowable, EveryClassIsThrownAsItselfWithCodeTextAndTrace) {
  const auto check = [](QRTThrowable& error, const char* name, int code, const char* text) {
    SCOPED_TRACE(name);
    error.addBackTrace(kThere, nullptr, "QRT_RETHROW");
    try {
      error.hurl(kHere, "A::f", "QRT_THROW");
    } catch (const QRTThrowable& caught) {
      EXPECT_NE(&caught, &error);
      EXPECT_EQ(typeid(caught), typeid(error));
      EXPECT_STREQ(caught.getClassName(), name);
      EXPECT_EQ(caught.getCode(), code);
      EXPECT_STREQ(caught.getText(), text);
      EXPECT_STREQ(caught.what(), text != nullptr ? text : name);
      EXPECT_EQ(traceOf(caught), (std::vector<TraceEntry>{{"there.cpp", "", "QRT_RETHROW"},
                                                          {"here.cpp", "A::f", "QRT_THROW"}}));
    }
  };
  QRTThrowable base(1, "base");
  QRTAssertError assertError(2, "QRT_ASSERT(x);");
  QRTOutOfMemoryError outOfMemory(3, nullptr);
  QRTIllegalStateError illegalState(4, "");
  QRTStdExceptionError stdException(std::runtime_error("disk on fire"));
  check(base, "QRTThrowable", 1, "base");
  check(assertError, "QRTAssertError", 2, "QRT_ASSERT(x);");
  check(outOfMemory, "QRTOutOfMemoryError", 3, nullptr);
  check(illegalState, "QRTIllegalStateError", 4, "");
  check(stdException, "QRTStdExceptionError", 0, "disk on fire");
}

TEST(QRTThrowable, ALongTextIsKeptWholeByEveryCopy) {
  const std::string longText = std::string(100000, 'a') + " and the end";
  try {
    QRTStdExceptionError(std::runtime_error(longText)).hurl(kHere, nullptr, "QRT_THROW");
  } catch (const QRTThrowable& caught) {
    EXPECT_EQ(caught.getText(), longText);
    QRTThrowable copy(caught);
    const QRTThrowable shorter(0, "short");
    copy = shorter;
    EXPECT_STREQ(copy.getText(), "short");
    copy = caught;
    EXPECT_EQ(copy.what(), longText);
  }
}

TEST(QRTThrowable, WithoutMemoryALongTextIsCutInFrontOfACharacter) {
  const std::size_t room = QRTThrowable::kTextCapacity - 1;
  const std::string fits(room, 'a');
  // The euro sign's three bytes would end one byte beyond the room.
  const std::string euro = std::string(room - 2, 'a') + "\xE2\x82\xAC";
  for (std::size_t nth = 1;; ++nth) {
    const FailingNew failing(nth);
    const QRTAssertError whole(0, fits.c_str());
    EXPECT_EQ(failing.count(), 0U) << "a text that fits needs no memory";
    const QRTAssertError cut(0, euro.c_str());
    const bool enough = failing.count() < nth;
    const FailingNew::Pause pause;
    EXPECT_EQ(whole.getText(), fits);
    EXPECT_EQ(cut.getText(), enough ? euro : std::string(room - 2, 'a'));
    if (enough) {
      EXPECT_GT(nth, 1U);
      break;
    }
  }
}

TEST(QRTThrowable, AFullTraceKeepsItsOldestEntries) {
  QRTAssertError error(0, nullptr);
  for (int line = 1; line <= 1000; ++line) {
    error.addBackTrace({"here.cpp", line}, nullptr, "QRT_RETHROW");
    EXPECT_EQ(error.getBackTrace().back().where.line,
              std::min(line, static_cast<int>(QRTThrowable::kTraceCapacity)));
  }
  EXPECT_EQ(error.getBackTrace().size(), QRTThrowable::kTraceCapacity);
  EXPECT_EQ(error.getBackTrace().front().where.line, 1);
}

TEST(QRTThrowable, AnAssignedErrorListsTheOtherTrace) {
  QRTAssertError longer(0, "longer");
  longer.addBackTrace(kHere, nullptr, "QRT_THROW");
  longer.addBackTrace(kHere, nullptr, "QRT_RETHROW");
  ASSERT_EQ(longer.getBackTrace().size(), 2U);
  QRTAssertError shorter(1, nullptr);
  shorter.addBackTrace(kThere, nullptr, "QRT_THROW");
  longer = shorter;
  EXPECT_EQ(traceOf(longer), (std::vector<TraceEntry>{{"there.cpp", "", "QRT_THROW"}}));
  EXPECT_EQ(longer.getText(), nullptr);
}

TEST(QRTThrowable, IsRaisedAndCarriedWithoutMemory) {
  bool caught = false;
  {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    try {
      try {
        QRTOutOfMemoryError(0, nullptr).hurl(kHere, "A::f", "QRT_THROW");
      } catch (QRTThrowable& error) {
        error.addBackTrace(kThere, nullptr, "QRT_RETHROW");
        throw;
      }
    } catch (const QRTOutOfMemoryError& error) {
      caught = error.getBackTrace().empty();  // no list can be made yet
      const FailingNew memoryAgain(0);
      EXPECT_EQ(traceOf(error), (std::vector<TraceEntry>{{"here.cpp", "A::f", "QRT_THROW"},
                                                         {"there.cpp", "", "QRT_RETHROW"}}));
    }
  }
  EXPECT_TRUE(caught);
}

}  // namespace
