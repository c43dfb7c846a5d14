#include "QRTVirtualMemoryMgr.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/RecordingEngine.h"
#include "support/TempDirectory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const TraceEntry kThrown{"QRTVirtualMemoryMgr.cpp", "", "QRT_THROW"};
const TraceEntry kPassedOn{"QRTVirtualMemoryMgr.cpp", "", "QRT_RETHROW"};
const TraceEntry kThrownByAlloc{"QRTVirtualMemoryMgr.cpp", "QRTVirtualMemoryMgr::alloc",
                                "QRT_THROW"};

constexpr unsigned long long kInvalid = QRTVirtualPageItem::kInvalidOffset;

TEST(QRTVirtualPageItem, IsEmptyByItsOffsetAlone) {
  QRTVirtualPageItem item;
  EXPECT_EQ(item.empty(), 1);
  EXPECT_EQ(item.getSize(), 0U);
  item = QRTVirtualPageItem(7, 100);
  EXPECT_EQ(item.empty(), 0);
  item.setOffset(0);
  EXPECT_EQ(item.empty(), 1);
  EXPECT_EQ(item.getSize(), 100U);
  item.setOffset(QRTVirtualPageItem::getInvalidOffset());
  EXPECT_EQ(item.getOffset(), 0xFFFFFFFFFFFFFFFFULL);
  EXPECT_EQ(item.empty(), 0);
  item.clear();
  EXPECT_EQ(item.getOffset(), 0U);
  EXPECT_EQ(item.getSize(), 0U);
}

class QRTVirtualMemoryMgrTest : public testing::Test {
 protected:
  void SetUp() override {
    manager = std::make_unique<QRTVirtualMemoryMgr>(1000000U, 0U, 64);
    record.take();
  }

  // Allocates an object of the text's length that holds the text, unpinned.
  QRTVirtualPageItem stored(const std::string& text) {
    QRTVirtualPageItem item;
    std::memcpy(manager->alloc(static_cast<unsigned int>(text.size()), item), text.data(),
                text.size());
    manager->dismiss(item);
    record.take();
    return item;
  }

  EngineRecord& record = EngineRecord::reset();
  std::unique_ptr<QRTVirtualMemoryMgr> manager;
};

// Construction and destruction.

TEST_F(QRTVirtualMemoryMgrTest, EveryConstructorTakesItsMemorySize) {
  const TempDirectory directory;
  const ScopedTmpdir tmpdir(directory.path().string());
  const auto calls = [&](QRTVirtualMemoryMgr* made) {
    EXPECT_EQ(record.directory, directory.path().string());
    delete made;
    return record.take();
  };
  const char* const end = "~VirtualMemoryPool()";
  const auto defaultMapper = QRTVirtualMemoryMgr::eMapperDefault;
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(5, 6, 7)), ElementsAre("VirtualMemoryPool(5)", end));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(5, 6, 7, 8)), ElementsAre("VirtualMemoryPool(6)", end));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(defaultMapper, 5, 6, 7, 8)),
              ElementsAre("VirtualMemoryPool(6)", end));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(0, 6, 7)),
              ElementsAre("VirtualMemoryPool(4194304)", end));
}

// Sizes of every integer type, of which only those that need more than 32 bits are set afterwards.
TEST_F(QRTVirtualMemoryMgrTest, SizesBeyondFourGibibytesArriveWhole) {
  const auto calls = [&](QRTVirtualMemoryMgr* made) {
    delete made;
    std::vector<std::string> all = record.take();
    all.pop_back();
    return all;
  };
  const auto defaultMapper = QRTVirtualMemoryMgr::eMapperDefault;
  const char* const four = "VirtualMemoryPool(4194304)";
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(0)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(0U)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(0UL)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(0ULL, 1)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4 << 20, 1)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4U << 20)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4L << 20, 1, 2)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4UL << 20, 1U)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4ULL << 20)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(std::size_t{4} << 20)), ElementsAre(four));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(static_cast<unsigned short>(9))),
              ElementsAre("VirtualMemoryPool(9)"));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(1, 2, 3, 4)), ElementsAre("VirtualMemoryPool(2)"));
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(4294967295ULL)),
              ElementsAre("VirtualMemoryPool(4294967295)"));

  const auto eight = ElementsAre("VirtualMemoryPool(4294967295)", "SetMemorySize(8589934592)");
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(8ULL << 30)), eight);
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(8LL << 30)), eight);
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(std::uint64_t{8} << 30, 1U, 2)), eight);
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(1, 8ULL << 30, 3, 4)), eight);
  EXPECT_THAT(calls(new QRTVirtualMemoryMgr(defaultMapper, 1, 8ULL << 30, 3, 4)), eight);
}

TEST_F(QRTVirtualMemoryMgrTest, TheMemorySizeAndWhatIsInUseAreTheEngines) {
  EXPECT_EQ(manager->getMemorySize(), 1000000U);
  EXPECT_EQ(manager->setMemorySize(8ULL << 30), 1);
  EXPECT_EQ(manager->getMemorySize(), 8ULL << 30);
  record.lastError = "the disk is full";
  EXPECT_EQ(manager->setMemorySize(0), 0);
  EXPECT_THAT(record.take(), ElementsAre("SetMemorySize(8589934592)", "SetMemorySize(4194304)"));
  const QRTVirtualMemoryMgr::MemoryInUse use = manager->getMemoryInUse();
  EXPECT_THAT(
      (std::vector{use.frames, use.pages, use.pinned, use.pageTable, use.beyond, use.pinsBeyond}),
      ElementsAre(2, 3, 4, 5, 6, 7));
  record.budgetExcess = "3 pins";
  EXPECT_STREQ(manager->getPinsBeyondMemorySize(), "3 pins");
}

TEST_F(QRTVirtualMemoryMgrTest, AnEngineThatCannotBeMadeIsReportedByTheGuard) {
  const auto construct = [] { QRTVirtualMemoryMgr(1, 2, 3); };

  record.onConstruct = [] { throw std::bad_alloc(); };
  EXPECT_EQ(traceOf(expectRaised<QRTOutOfMemoryError>(construct)),
            std::vector<TraceEntry>{kThrown});

  record.onConstruct = [] { throw std::runtime_error("no paging today"); };
  const auto converted = expectRaised<QRTStdExceptionError>(construct);
  EXPECT_EQ(textOf(converted), "no paging today");
  EXPECT_EQ(traceOf(converted), std::vector<TraceEntry>{kThrown});

  record.onConstruct = [] {
    QRTIllegalStateError(4, "engine").hurl({"engine.cpp", 1}, nullptr, "QRT_THROW");
  };
  const auto passedOn = expectRaised<QRTIllegalStateError>(construct);
  EXPECT_EQ(passedOn.getCode(), 4);
  EXPECT_EQ(traceOf(passedOn),
            (std::vector<TraceEntry>{{"engine.cpp", "", "QRT_THROW"}, kPassedOn}));
}

TEST_F(QRTVirtualMemoryMgrTest, NewManagersEncryptWhenTheSwitchIsOnAndTheEngineCan) {
  EXPECT_FALSE(record.encrypted) << "off at first";
  QRTVirtualMemoryMgr::setPagingFileEncryption(7);
  EXPECT_NE(QRTVirtualMemoryMgr::getPagingFileEncryption(), 0);
  delete new QRTVirtualMemoryMgr(5, 6, 7);
  EXPECT_TRUE(record.encrypted);
  QRTVirtualMemoryMgr::setPagingFileEncryption(0);
  delete new QRTVirtualMemoryMgr(5, 6, 7);
  EXPECT_FALSE(record.encrypted);

  record.canEncrypt = false;
  const auto error =
      expectRaised<QRTIllegalStateError>([] { QRTVirtualMemoryMgr::setPagingFileEncryption(1); });
  EXPECT_THAT(textOf(error), testing::HasSubstr("built without libcrypto"));
  EXPECT_EQ(QRTVirtualMemoryMgr::getPagingFileEncryption(), 0);
  QRTVirtualMemoryMgr::setPagingFileEncryption(0);
}

// alloc

// One object through its life: new, trimmed, moved with its trimmed size, trimmed to nothing.
TEST_F(QRTVirtualMemoryMgrTest, AllocMakesTrimsOrMoves) {
  QRTVirtualPageItem item(0, 77);  // a size alone names nothing
  std::uint64_t object = 0;
  const struct {
    unsigned int size;
    const char* text;
    std::vector<std::string> calls;
  } steps[] = {
      {10, "??????????", {"Allocate(10)"}},
      {9, "0123456789", {"GetAddress(1, true)"}},
      {9, "012345678", {"Allocate(9)", "GetAddress(1, true)", "Dismiss(1)", "Deallocate(1)"}},
      {4, "012345678", {"GetAddress(2, true)"}},
      {10, "0123??????", {"Allocate(10)", "GetAddress(2, true)", "Dismiss(2)", "Deallocate(2)"}},
      {0, "0123??????", {"GetAddress(3, true)"}},
      {3, "???", {"Allocate(3)", "GetAddress(3, true)", "Dismiss(3)", "Deallocate(3)"}},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.size);
    void* const address = manager->alloc(step.size, item);
    EXPECT_EQ(record.take(), step.calls);
    EXPECT_EQ(item.getSize(), step.size);
    object += step.calls[0][0] == 'A' ? 1 : 0;
    ASSERT_EQ(item.getOffset(), object);
    EXPECT_EQ(address, record.objects.at(object).bytes.data());
    EXPECT_EQ(record.text(object), step.text);
    EXPECT_EQ(record.objects.at(object).pins, 1U);
    EXPECT_EQ(record.objects.size(), 1U);
    if (object == 1) {
      std::memcpy(address, "0123456789", 10);
    }
    manager->dismiss(item);
    record.take();
  }
}

TEST_F(QRTVirtualMemoryMgrTest, AFailedAllocationLeavesTheItemAndItsObject) {
  QRTVirtualPageItem empty(0, 5);
  QRTVirtualPageItem full = stored("content");
  record.refuseAllocate = true;
  for (QRTVirtualPageItem* const item : {&empty, &full}) {
    const QRTVirtualPageItem before = *item;
    const auto error = expectRaised<QRTOutOfMemoryError>([&] { manager->alloc(20, *item); });
    EXPECT_EQ(error.getCode(), 0);
    EXPECT_EQ(error.getText(), nullptr);
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kThrownByAlloc});
    EXPECT_EQ(item->getOffset(), before.getOffset());
    EXPECT_EQ(item->getSize(), before.getSize());
    EXPECT_THAT(record.take(), ElementsAre("Allocate(20)"));
  }
  EXPECT_EQ(record.text(full.getOffset()), "content");
}

TEST_F(QRTVirtualMemoryMgrTest, AFailedTrimHasLoweredTheSize) {
  record.refuseGetAddress = true;
  QRTVirtualPageItem unreadable(50, 100);
  QRTVirtualPageItem invalid(kInvalid, 100);
  for (QRTVirtualPageItem* const item : {&unreadable, &invalid}) {
    const unsigned long long offset = item->getOffset();
    const auto error = expectRaised<QRTOutOfMemoryError>([&] { manager->alloc(60, *item); });
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kThrownByAlloc});
    EXPECT_EQ(item->getOffset(), offset);
    EXPECT_EQ(item->getSize(), 60U);
  }
  EXPECT_THAT(record.take(), ElementsAre("GetAddress(50, true)"));
}

TEST_F(QRTVirtualMemoryMgrTest, AMoveThatCannotReadTheOldObjectGivesTheNewOneBack) {
  record.refuseGetAddress = true;
  const std::pair<unsigned long long, std::vector<std::string>> cases[] = {
      {50, {"Allocate(100)", "GetAddress(50, true)", "Dismiss(1)", "Deallocate(1)"}},
      {kInvalid, {"Allocate(100)", "Dismiss(2)", "Deallocate(2)"}},
  };
  for (const auto& [offset, calls] : cases) {
    QRTVirtualPageItem item(offset, 100);
    const auto error = expectRaised<QRTAssertError>([&] { manager->alloc(100, item); });
    EXPECT_EQ(textOf(error), "QRT_ASSERT(old_ptr);");
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kThrown});
    EXPECT_EQ(item.getOffset(), offset);
    EXPECT_EQ(item.getSize(), 100U);
    EXPECT_EQ(record.take(), calls);
    EXPECT_TRUE(record.objects.empty());
  }
}

// The other operations.

TEST_F(QRTVirtualMemoryMgrTest, WhatNamesNothingNeverReachesTheEngine) {
  for (const unsigned long long offset : {0ULL, kInvalid}) {
    QRTVirtualPageItem item(offset, 10);
    EXPECT_EQ(manager->getAddress(item, 1), nullptr);
    EXPECT_EQ(manager->getAddress(offset, 1), nullptr);
    manager->dismiss(item);
    manager->dismiss(offset);
    manager->dirty(item);
    manager->free(item);
    EXPECT_EQ(item.getOffset(), offset);
    EXPECT_EQ(item.getSize(), 10U);
  }
  EXPECT_THAT(record.take(), IsEmpty());
  for (const unsigned long long offset : {1ULL, kInvalid - 1, 0x8000000000000000ULL, 1ULL << 32}) {
    EXPECT_EQ(manager->getAddress(offset, 1), nullptr);
    EXPECT_EQ(record.take().size(), 1U) << offset << " is next to a null offset, or looks like one";
  }
}

TEST_F(QRTVirtualMemoryMgrTest, OperationsNameTheOffsetAndTheMode) {
  QRTVirtualPageItem item = stored("abc");
  void* const address = record.objects.at(1).bytes.data();
  EXPECT_EQ(manager->getAddress(item, 1), address);
  EXPECT_EQ(manager->getAddress(item, 0), address);
  EXPECT_EQ(manager->getAddress(1, 2), address);
  EXPECT_EQ(manager->getAddress(1, -256), address);
  manager->dirty(item);
  manager->dismiss(item);
  manager->dismiss(1);
  manager->pageOut(1);
  EXPECT_EQ(manager->getMapper(1), nullptr);
  manager->free(item);
  EXPECT_EQ(item.empty(), 1);
  EXPECT_EQ(item.getSize(), 3U);
  manager->free(item);
  EXPECT_THAT(record.take(), ElementsAre("GetAddress(1, true)", "GetAddress(1, false)",
                                         "GetAddress(1, true)", "GetAddress(1, true)", "Dirty(1)",
                                         "Dismiss(1)", "Dismiss(1)", "Deallocate(1)"));
}

// The leak check.

class LeakSwitch {
 public:
  explicit LeakSwitch(int on) { QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(on); }
  ~LeakSwitch() { QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(0); }
  LeakSwitch(const LeakSwitch&) = delete;
  LeakSwitch& operator=(const LeakSwitch&) = delete;
};

TEST_F(QRTVirtualMemoryMgrTest, TheLeakCheckIsOffAtFirstAndThenTouchesNothing) {
  ASSERT_EQ(QRTVirtualMemoryMgr::getExceptionOnReferenceLeak(), 0);
  QRTVirtualPageItem leaked;
  manager->alloc(1, leaked);
  QRTVirtualPageItem first;
  manager->allocUsingPool("key", 3, first);
  manager->throwExceptionOnReferenceLeak();
  QRTVirtualPageItem second;
  manager->allocUsingPool("key", 3, second);
  EXPECT_EQ(second.getOffset(), first.getOffset());
}

TEST_F(QRTVirtualMemoryMgrTest, TheLeakCheckEmptiesThePoolAndCountsPinnedObjects) {
  const LeakSwitch on(-1);
  EXPECT_EQ(QRTVirtualMemoryMgr::getExceptionOnReferenceLeak(), -1);
  QRTVirtualPageItem pooled;
  manager->allocUsingPool("key", 3, pooled);
  manager->throwExceptionOnReferenceLeak();
  QRTVirtualPageItem again;
  manager->allocUsingPool("key", 3, again);
  EXPECT_NE(again.getOffset(), pooled.getOffset());

  for (const std::string leaks : {"1", "2", "3"}) {
    QRTVirtualPageItem leaked;
    manager->alloc(1, leaked);
    manager->getAddress(leaked, 1);
    const auto error =
        expectRaised<QRTIllegalStateError>([this] { manager->throwExceptionOnReferenceLeak(); });
    EXPECT_EQ(error.getCode(), 0);
    EXPECT_EQ(textOf(error),
              "Reference Leak Error, total objects with reference count > 0 : " + leaks);
    EXPECT_EQ(traceOf(error),
              (std::vector<TraceEntry>{{"QRTVirtualMemoryMgr.cpp",
                                        "QRTVirtualMemoryMgr::throwExceptionOnReferenceLeak",
                                        "QRT_THROW"}}));
  }
  QRTVirtualPageItem fresh;
  manager->allocUsingPool("key", 3, fresh);
  EXPECT_NE(fresh.getOffset(), again.getOffset());
}

}  // namespace
