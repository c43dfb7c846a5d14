#include <cerrno>
#include <cstddef>
#include <limits>

#include "engine/EngineFixture.h"

// The budget changed at run time, and what pins take beyond it.

namespace {

using testing::HasSubstr;

class BudgetTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kFrame = 4096;
  static constexpr std::uint32_t kOnePage = 4000;  // bytes of an object that has its page alone

  tcmalloc::VirtualMemoryInUse InUse() {
    tcmalloc::VirtualMemoryInUse use{};
    engine->GetMemoryInUse(use);
    return use;
  }

  std::uint64_t ResidentFrames() { return InUse().residentBytes / kFrame; }
};

TEST_F(BudgetTest, LoweredItHoldsAtOnceForAllThatIsNotPinned) {
  Make(256);
  std::vector<Object> objects = AddMany(200, kOnePage);
  for (const Object& object : AddMany(400, 300)) {
    objects.push_back(object);
  }
  for (std::uint32_t i = 0; i < 20; ++i) {
    ASSERT_NE(engine->GetAddress(objects[i].offset, true), nullptr);
  }
  ASSERT_EQ(GetStats().pageOuts, 0U);
  EXPECT_TRUE(engine->SetMemorySize(100 * kFrame + 17));
  ExpectConsistent();
  EXPECT_EQ(engine->GetMemorySize(), 100U * kFrame);
  EXPECT_EQ(GetStats().budgetBytes, 100U * kFrame);
  EXPECT_LE(ResidentFrames(), 100U);
  EXPECT_GE(ResidentFrames(), 90U) << "a few more may leave in one batch";

  // What is pinned stays until its last unpin.
  EXPECT_TRUE(engine->SetMemorySize(5 * kFrame));
  EXPECT_EQ(ResidentFrames(), 20U);
  EXPECT_EQ(InUse().pinnedBytes, 20U * kFrame);
  EXPECT_EQ(InUse().excessBytes, 15U * kFrame);
  EXPECT_EQ(InUse().excessPins, 0U) << "they were within the budget of their time";
  for (std::uint32_t i = 0; i < 20; ++i) {
    engine->Dismiss(objects[i].offset);
  }
  EXPECT_LE(ResidentFrames(), 5U);
  EXPECT_EQ(InUse().excessBytes, 0U);
  ExpectIntact(objects);

  // Raised, it holds more: nothing is read twice.
  EXPECT_TRUE(engine->SetMemorySize(256 * kFrame));
  ExpectIntact(objects);
  const std::uint64_t reads = GetStats().pageReads;
  ExpectIntact(objects);
  EXPECT_EQ(GetStats().pageReads, reads);
}

TEST_F(BudgetTest, LoweredItGivesChunksBackToTheSystem) {
  Make(4096);
  const std::vector<Object> objects = AddMany(4000, kOnePage);
  ASSERT_GE(engine->MappedBytes(), 4000U * kFrame);
  EXPECT_TRUE(engine->SetMemorySize(300 * kFrame));
  EXPECT_LE(engine->MappedBytes(), 300U * kFrame + (6U << 20));
  EXPECT_EQ(InUse().frameBytes, engine->MappedBytes());
  ExpectIntact(objects);
}

// The checker compares everything that follows from the budget with an engine of that budget.
TEST_F(BudgetTest, WhatFollowsFromItFollowsEveryChange) {
  Make(16);
  const std::vector<Object> objects = AddMany(100, kOnePage);
  const std::uint64_t table = InUse().tableBytes;
  EXPECT_GT(table, 100U * sizeof(tcmalloc::PageEntry));
  EXPECT_LT(table, 400U << 10);
  for (const std::uint64_t bytes :
       {std::uint64_t{1} << 32, std::uint64_t{64} << 20, std::uint64_t{63} << 20,
        std::uint64_t{1} << 42, std::uint64_t{0}, std::uint64_t{kFrame} * 33,
        std::numeric_limits<std::uint64_t>::max(), std::uint64_t{kFrame} * 7}) {
    SCOPED_TRACE(bytes);
    EXPECT_TRUE(engine->SetMemorySize(bytes));
    ExpectConsistent();
    const std::uint64_t most =
        sizeof(void*) == 4 ? (std::uint64_t{1} << 32) - kFrame : (std::uint64_t{1} << 44) - kFrame;
    EXPECT_EQ(engine->GetMemorySize(), std::clamp<std::uint64_t>(bytes, kFrame, most));
    ExpectIntact(objects);
    ExpectConsistent();
  }
}

TEST_F(BudgetTest, WithoutDiskSpaceItIsNotLowered) {
  Make(100);
  const std::vector<Object> objects = AddMany(100, kOnePage);
  file->diskBytes = 50 * kFrame;
  EXPECT_FALSE(engine->SetMemorySize(60 * kFrame));
  EXPECT_THAT(engine->GetLastError(), HasSubstr("set disk space aside"));
  EXPECT_THAT(engine->GetLastError(), HasSubstr("of 409600 bytes of the memory budget"));
  EXPECT_EQ(engine->GetMemorySize(), 100U * kFrame);
  EXPECT_EQ(ResidentFrames(), 100U);
  ExpectConsistent();
  file->foreign = true;  // as in a child of the file's owner
  EXPECT_FALSE(engine->SetMemorySize(60 * kFrame));
  EXPECT_TRUE(engine->SetMemorySize(200 * kFrame)) << "to hold more needs no disk";
  file->foreign = false;
  file->diskBytes = UINT64_MAX;
  EXPECT_TRUE(engine->SetMemorySize(60 * kFrame));
  EXPECT_LE(ResidentFrames(), 60U);
  ExpectIntact(objects);
}

TEST_F(BudgetTest, WhatCannotBeWrittenStaysAndFollowsLater) {
  Make(100);
  file->reserveSupported = false;
  const std::vector<Object> objects = AddMany(100, kOnePage);
  file->writes.Fail(EIO);
  EXPECT_FALSE(engine->SetMemorySize(60 * kFrame));
  EXPECT_THAT(engine->GetLastError(), HasSubstr("write the paging file"));
  EXPECT_EQ(engine->GetMemorySize(), 60U * kFrame);
  EXPECT_EQ(ResidentFrames(), 100U);
  ExpectConsistent();
  ExpectIntact(objects);
  file->writes.Mend();
  const Object next = Add(kOnePage, 1);
  EXPECT_LE(ResidentFrames(), 60U);
  ExpectIntact(objects);
  EXPECT_EQ(Look(next), Read::kIntact);
}

TEST_F(BudgetTest, FreesThatWaitStayKnownWhenFewerMayWait) {
  Make(2048);  // room for 65,536 of them, then for 8,192
  const std::vector<Object> objects = AddMany(50000, 16);
  PushOut();
  file->reads.Fail(EIO);
  for (std::uint32_t i = 0; i < 10000; ++i) {
    engine->Deallocate(objects[i].offset);
  }
  EXPECT_EQ(GetStats().currentObjects, 40000U);
  EXPECT_TRUE(engine->SetMemorySize(1U << 20));
  ExpectConsistent();
  engine->Deallocate(objects[10000].offset);
  EXPECT_EQ(GetStats().currentObjects, 40000U) << "no more can be remembered";
  file->reads.Mend();
  EXPECT_EQ(Look(objects[9999]), Read::kNull);
  EXPECT_EQ(Look(objects[10000]), Read::kIntact);
  ExpectConsistent();
}

TEST_F(BudgetTest, PinsBeyondItAreCountedAndTold) {
  Make(32);
  const std::vector<Object> objects = AddMany(60, kOnePage);
  PushOut();
  for (std::uint32_t i = 0; i < 32; ++i) {
    ASSERT_NE(engine->GetAddress(objects[i].offset, true), nullptr);
  }
  EXPECT_STREQ(engine->GetBudgetExcess(), "");
  for (const std::uint32_t i : {32U, 40U, 41U, 42U, 43U, 40U}) {  // a scan, and a pin twice
    ASSERT_NE(engine->GetAddress(objects[i].offset, true), nullptr);
  }
  EXPECT_EQ(InUse().excessPins, 5U);
  EXPECT_EQ(InUse().pinnedBytes, 37U * kFrame);
  EXPECT_EQ(InUse().excessBytes, 5U * kFrame) << "nothing is read ahead beyond the budget";
  engine->Dismiss(objects[43].offset);
  EXPECT_EQ(InUse().excessBytes, 4U * kFrame);
  std::uint64_t offset = 0;
  ASSERT_NE(engine->Allocate(3 * kFrame, offset), nullptr);
  const tcmalloc::VirtualMemoryInUse use = InUse();
  EXPECT_EQ(use.excessPins, 6U);
  EXPECT_EQ(use.excessBytes, 7U * kFrame);
  EXPECT_THAT(engine->GetBudgetExcess(),
              testing::StrEq("pins that took memory beyond the budget: 6, the last one 12288 "
                             "bytes when 147456 of 131072 bytes were pinned; beyond it now: "
                             "28672 bytes, at most: 28672 bytes"));
  engine->Deallocate(offset);
  for (std::uint32_t i = 0; i < 60; ++i) {
    engine->Dismiss(objects[i].offset);
  }
  engine->Dismiss(objects[40].offset);
  EXPECT_EQ(InUse().excessBytes, 0U);
  EXPECT_EQ(InUse().pinnedBytes, 0U);
  EXPECT_THAT(engine->GetBudgetExcess(), HasSubstr("beyond it now: 0 bytes"));
}

}  // namespace
