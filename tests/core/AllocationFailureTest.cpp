#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPageItemPool.h"
#include "support/FailingNew.h"
#include "support/RecordingEngine.h"
#include "support/TempDirectory.h"

// Every allocation of an operation fails once, one after the other; after each failure everything
// must still be there and work.

namespace {

TEST(AllocationFailure, AManagerThatCannotBeMadeLeavesNothingBehind) {
  // A long directory name, so that its strings need memory.
  const ScopedTmpdir tmpdir("/tmp/" + std::string(100, 'd'));
  EngineRecord& record = EngineRecord::reset();
  bool made = false;
  std::size_t nth = 0;
  for (; !made; ++nth) {
    ASSERT_LT(nth, 100U);
    record.calls.clear();
    try {
      const FailingNew failing(nth + 1);
      const QRTVirtualMemoryMgr manager(1, 2, 3);
      made = true;
    } catch (const QRTOutOfMemoryError& error) {
      EXPECT_EQ(error.getText(), nullptr);
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(record.calls.empty()) << "the guard covers everything from the engine on";
    }
    if (!record.calls.empty()) {
      EXPECT_EQ(record.calls,
                (std::vector<std::string>{"VirtualMemoryPool(1)", "~VirtualMemoryPool()"}));
    }
  }
  EXPECT_GT(nth, 4U) << "directory, its UTF-8, engine and pool allocate";
}

TEST(AllocationFailure, AStringThePoolCannotRememberIsStillStored) {
  EngineRecord& record = EngineRecord::reset();
  QRTVirtualMemoryMgr manager(1, 2, 3);
  QRTVirtualPageItemPool pool(&manager, 3);
  for (const char* const text : {"a", "b", "c"}) {
    QRTVirtualPageItem item;
    pool.set(text, 1, item);
  }
  int failures = 0;
  for (bool stored = false; !stored;) {
    ASSERT_LT(failures, 10);
    QRTVirtualPageItem item;
    try {
      const FailingNew failing(static_cast<std::size_t>(failures) + 1);
      pool.set("d", 1, item);
      stored = true;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    EXPECT_EQ(record.text(item.getOffset()), "d");
    EXPECT_EQ(record.objects.at(item.getOffset()).pins, 0U);
    if (!stored) {
      // The pool knows what it knew: nothing was evicted, nothing half entered.
      record.take();
      for (const char* const text : {"a", "b", "c"}) {
        QRTVirtualPageItem known;
        pool.set(text, 1, known);
      }
      EXPECT_TRUE(record.take().empty());
    }
  }
  EXPECT_EQ(failures, 2) << "the list node and the map node";
  QRTVirtualPageItem evicted;
  record.take();
  pool.set("a", 1, evicted);
  EXPECT_FALSE(record.take().empty());
}

TEST(AllocationFailure, AllocRaisesItsErrorWithoutMemory) {
  EngineRecord& record = EngineRecord::reset();
  QRTVirtualMemoryMgr manager(1, 2, 3);
  record.refuseAllocate = true;
  QRTVirtualPageItem item;
  const FailingNew noMemory(1, FailingNew::eFromThenOn);
  EXPECT_THROW(manager.alloc(10, item), QRTOutOfMemoryError);
  EXPECT_EQ(noMemory.count(), 0U);
}

}  // namespace
