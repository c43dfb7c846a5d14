#include "QRTCore/QRTAssert.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "support/ErrorMatchers.h"

namespace {

const TraceEntry kThrown{"QRTAssertTest.cpp", "", "QRT_THROW"};
const TraceEntry kPassedOn{"QRTAssertTest.cpp", "", "QRT_RETHROW"};

TEST(QRTAssert, TextIsTheCallAsWritten) {
  const void* const old_ptr = nullptr;
  const int* const m_pool = new int(0);
  const auto pointer = expectRaised<QRTAssertError>([&] { QRT_ASSERT(old_ptr); });
  EXPECT_EQ(textOf(pointer), "QRT_ASSERT(old_ptr);");
  EXPECT_EQ(pointer.getCode(), 0);
  EXPECT_EQ(traceOf(pointer), std::vector<TraceEntry>{kThrown});

  // A macro in the condition is quoted by its name.
  // NOLINTNEXTLINE(modernize-use-nullptr)
  const auto macro = expectRaised<QRTAssertError>([&] { QRT_ASSERT(m_pool == NULL); });
  EXPECT_EQ(textOf(macro), "QRT_ASSERT(m_pool == NULL);");

  const auto named =
      expectRaised<QRTAssertError>([&] { QRT_ASSERT_NAMED(*m_pool == 1, "One is wanted."); });
  EXPECT_EQ(textOf(named), "QRT_ASSERT_NAMED(*m_pool == 1, \"One is wanted.\");");
  EXPECT_EQ(traceOf(named), std::vector<TraceEntry>{kThrown});
  delete m_pool;
}

TEST(QRTAssert, AConditionIsEvaluatedOnce) {
  int evaluated = 0;
  QRT_ASSERT(++evaluated == 1);
  QRT_ASSERT_NAMED(++evaluated == 2, "once");
  EXPECT_EQ(evaluated, 2);
}

TEST(QRTAssert, AThrowRecordsTheFunctionOnlyWhereNamed) {
  const auto plain =
      expectRaised<QRTIllegalStateError>([] { QRT_THROW(QRTIllegalStateError(3, "state")); });
  EXPECT_EQ(traceOf(plain), std::vector<TraceEntry>{kThrown});
  const auto named = expectRaised<QRTOutOfMemoryError>(
      [] { QRT_THROW_FROM("A::f", QRTOutOfMemoryError(0, nullptr)); });
  EXPECT_EQ(traceOf(named), (std::vector<TraceEntry>{{"QRTAssertTest.cpp", "A::f", "QRT_THROW"}}));
}

TEST(QRTAssert, BaseNameTakesEitherSeparator) {
  EXPECT_STREQ(qrtBaseName("a.cpp"), "a.cpp");
  EXPECT_STREQ(qrtBaseName("/src/core/a.cpp"), "a.cpp");
  EXPECT_STREQ(qrtBaseName("C:\\src\\core/b\\a.cpp"), "a.cpp");
}

// The guard's four outcomes.

TEST(AllocationGuard, GivesTheValueOfTheCall) {
  int value = 0;
  EXPECT_EQ(QRT_GUARD_ALLOC(&value), &value);
}

TEST(AllocationGuard, ANullResultArrivesWithTwoEntries) {
  const auto error =
      expectRaised<QRTOutOfMemoryError>([] { QRT_GUARD_ALLOC(static_cast<int*>(nullptr)); });
  EXPECT_EQ(error.getCode(), 0);
  EXPECT_EQ(error.getText(), nullptr);
  EXPECT_EQ(traceOf(error), (std::vector<TraceEntry>{kThrown, kPassedOn}));
  EXPECT_EQ(error.getBackTrace()[0].where.line, error.getBackTrace()[1].where.line);
}

TEST(AllocationGuard, AnErrorOfTheLibraryPassesOnAsTheSameObject) {
  const QRTThrowable* inner = nullptr;
  const auto raise = [&]() -> int* {
    try {
      QRTAssertError(5, "inner").hurl({"inner.cpp", 1}, "B::g", "QRT_THROW");
    } catch (QRTThrowable& error) {
      inner = &error;
      throw;
    }
  };
  try {
    QRT_GUARD_ALLOC(raise());
    ADD_FAILURE() << "nothing was raised";
  } catch (const QRTAssertError& error) {
    EXPECT_EQ(&error, inner);
    EXPECT_EQ(error.getCode(), 5);
    EXPECT_EQ(traceOf(error),
              (std::vector<TraceEntry>{{"inner.cpp", "B::g", "QRT_THROW"}, kPassedOn}));
  }
}

TEST(AllocationGuard, StandardExceptionsAreConverted) {
  const auto noMemory = expectRaised<QRTOutOfMemoryError>(
      [] { QRT_GUARD_ALLOC([]() -> int* { throw std::bad_array_new_length(); }()); });
  EXPECT_EQ(noMemory.getText(), nullptr);
  EXPECT_EQ(traceOf(noMemory), std::vector<TraceEntry>{kThrown});

  const auto other = expectRaised<QRTStdExceptionError>(
      [] { QRT_GUARD_ALLOC([]() -> int* { throw std::range_error("too far"); }()); });
  EXPECT_EQ(textOf(other), "too far");
  EXPECT_EQ(traceOf(other), std::vector<TraceEntry>{kThrown});

  EXPECT_THROW(QRT_GUARD_ALLOC([]() -> int* { throw 42; }()), int) << "not the guard's business";
}

}  // namespace
