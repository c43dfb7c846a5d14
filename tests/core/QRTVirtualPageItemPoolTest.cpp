#include "QRTVirtualPageItemPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "core/FailingMalloc.h"
#include "support/ErrorMatchers.h"
#include "support/RecordingEngine.h"
#include "support/TestSeed.h"

namespace {

TEST(PoolEntryOrder, IsByLengthThenByUnsignedBytes) {
  const std::string sorted[] = {"", "b", "\xFF", "aa", "ab", std::string("b\0", 2), "\x80z", "aaa"};
  const QRTVirtualPageItemPool::cmp_void before;
  for (const std::string& a : sorted) {
    for (const std::string& b : sorted) {
      EXPECT_EQ(before({a.data(), static_cast<unsigned int>(a.size())},
                       {b.data(), static_cast<unsigned int>(b.size())}),
                &a < &b)
          << testing::PrintToString(a) << " and " << testing::PrintToString(b);
    }
  }
}

class QRTVirtualPageItemPoolTest : public testing::Test {
 protected:
  void SetUp() override { manager = std::make_unique<QRTVirtualMemoryMgr>(1000000U, 0U, 64); }

  static QRTVirtualPageItem set(QRTVirtualPageItemPool& pool, const std::string& text) {
    QRTVirtualPageItem item;
    pool.set(text.data(), static_cast<unsigned int>(text.size()), item);
    return item;
  }

  EngineRecord& record = EngineRecord::reset();
  std::unique_ptr<QRTVirtualMemoryMgr> manager;
};

TEST_F(QRTVirtualPageItemPoolTest, EqualBytesShareOneUnpinnedObject) {
  QRTVirtualPageItemPool pool(manager.get());
  const QRTVirtualPageItem first = set(pool, "equal");
  EXPECT_EQ(record.text(first.getOffset()), "equal");
  EXPECT_EQ(first.getSize(), 5U);
  EXPECT_EQ(record.objects.at(first.getOffset()).pins, 0U);

  set(pool, "equa");
  record.take();
  QRTVirtualPageItem second(77, 88);  // what an item held before a hit is simply dropped
  pool.set("equal", 5, second);
  EXPECT_EQ(second.getOffset(), first.getOffset());
  EXPECT_EQ(second.getSize(), 5U);
  EXPECT_TRUE(record.take().empty());
}

TEST_F(QRTVirtualPageItemPoolTest, NoBytesLeaveTheItemAlone) {
  QRTVirtualPageItemPool pool(manager.get());
  record.take();
  QRTVirtualPageItem item(77, 88);
  pool.set(nullptr, 5, item);
  pool.set("data", 0, item);
  EXPECT_EQ(item.getOffset(), 77U);
  EXPECT_EQ(item.getSize(), 88U);
  EXPECT_TRUE(record.take().empty());
}

TEST_F(QRTVirtualPageItemPoolTest, ANewStringGoesIntoTheObjectTheItemNames) {
  QRTVirtualPageItemPool pool(manager.get());
  QRTVirtualPageItem item;
  manager->alloc(10, item);
  manager->dismiss(item);
  record.take();
  pool.set("four", 4, item);
  EXPECT_EQ(record.take(), (std::vector<std::string>{"GetAddress(1, true)", "Dismiss(1)"}));
  EXPECT_EQ(record.text(1).substr(0, 4), "four");
  EXPECT_EQ(item.getSize(), 4U);
}

TEST_F(QRTVirtualPageItemPoolTest, TheDefaultBoundIsAThousand) {
  const auto name = [](int i) { return "string " + std::to_string(i); };
  const auto store = [&](int i) {
    QRTVirtualPageItem item;
    manager->allocUsingPool(name(i).data(), static_cast<unsigned int>(name(i).size()), item);
    return item.getOffset();
  };
  std::vector<unsigned long long> offsets;
  for (int i = 0; i <= 1000; ++i) {
    offsets.push_back(store(i));
  }
  EXPECT_EQ(store(1), offsets[1]);
  EXPECT_NE(store(0), offsets[0]);
  EXPECT_EQ(record.text(offsets[0]), name(0));
}

// Against a plain list: which strings are remembered, under every bound and change of bound.
TEST_F(QRTVirtualPageItemPoolTest, RemembersTheMostRecentlyUsed) {
  std::mt19937 random(testSeed());
  std::size_t bound = 5;
  QRTVirtualPageItemPool pool(manager.get(), 5);
  std::list<std::pair<std::string, unsigned long long>> expected;  // most recent first
  for (int step = 0; step < 20000; ++step) {
    const auto choice = random() % 1000;
    if (choice == 0) {
      pool.reset();
      expected.clear();
    } else if (choice < 5) {
      bound = random() % 12;
      pool.setPoolSize(static_cast<unsigned int>(bound));
    } else {
      const std::string text(1 + random() % 3, static_cast<char>('a' + random() % 5));
      record.take();
      const unsigned long long offset = set(pool, text).getOffset();
      const auto known = std::find_if(expected.begin(), expected.end(),
                                      [&](const auto& entry) { return entry.first == text; });
      if (known != expected.end()) {
        ASSERT_EQ(offset, known->second);
        ASSERT_TRUE(record.take().empty());
        expected.splice(expected.begin(), expected, known);
      } else {
        ASSERT_EQ(record.take().size(), 2U) << "one Allocate, one Dismiss";
        expected.emplace_front(text, offset);
        if (expected.size() > bound) {
          expected.pop_back();
        }
      }
      ASSERT_EQ(record.text(offset), text);
    }
  }
}

TEST_F(QRTVirtualPageItemPoolTest, AFailedAllocationIsPassedOnAndForgotten) {
  QRTVirtualPageItemPool pool(manager.get());
  record.refuseAllocate = true;
  QRTVirtualPageItem item;
  const auto error = expectRaised<QRTOutOfMemoryError>([&] { pool.set("abc", 3, item); });
  EXPECT_EQ(traceOf(error),
            (std::vector<TraceEntry>{
                {"QRTVirtualMemoryMgr.cpp", "QRTVirtualMemoryMgr::alloc", "QRT_THROW"},
                {"QRTVirtualPageItemPool.cpp", "", "QRT_RETHROW"}}));
  EXPECT_EQ(item.empty(), 1);
  record.refuseAllocate = false;
  EXPECT_EQ(record.text(set(pool, "abc").getOffset()), "abc");
}

TEST_F(QRTVirtualPageItemPoolTest, WithoutAKeyCopyTheObjectStaysPinnedAndUnshared) {
  QRTVirtualPageItemPool pool(manager.get());
  const std::string text(4321, 'x');
  QRTVirtualPageItem item;
  {
    const FailingMalloc noMemory(text.size(), 2);  // the first one is the engine's
    const auto error =
        expectRaised<QRTOutOfMemoryError>([&] { pool.set(text.data(), 4321, item); });
    EXPECT_EQ(traceOf(error),
              (std::vector<TraceEntry>{{"QRTVirtualPageItemPool.cpp", "", "QRT_THROW"},
                                       {"QRTVirtualPageItemPool.cpp", "", "QRT_RETHROW"}}));
  }
  EXPECT_EQ(record.text(item.getOffset()), text);
  EXPECT_EQ(record.objects.at(item.getOffset()).pins, 1U);
  EXPECT_NE(set(pool, text).getOffset(), item.getOffset());
}

}  // namespace
