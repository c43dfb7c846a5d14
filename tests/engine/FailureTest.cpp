#include <cerrno>

#include "engine/EngineFixture.h"
#include "support/FailingNew.h"

// A disk that refuses: nothing stored is lost, what can be served is, and the rest works as soon as
// the disk does again.

namespace {

using testing::HasSubstr;

class FailureTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kPage = 4096;

  static std::string SystemText(int error) {
    char text[128];
    tcmalloc::DescribeSystemError(error, text, sizeof text);
    return text;
  }

  /// Spans of all pools and of large objects.
  static std::uint64_t SpansOf(const Stats& stats) {
    std::uint64_t spans = stats.largeSpans;
    for (const tcmalloc::FixedPoolStats& pool : stats.pools) {
      spans += pool.spans;
    }
    return spans;
  }

  /// Objects of all pools and large objects.
  static std::uint64_t AllocatedIn(const Stats& stats) {
    std::uint64_t objects = stats.largeSpans;
    for (const tcmalloc::FixedPoolStats& pool : stats.pools) {
      objects += pool.allocBytes / pool.objectSize;
    }
    return objects;
  }

  void ChangeAll(std::vector<Object>& objects, std::uint32_t seed) {
    for (Object& object : objects) {
      ASSERT_TRUE(Change(object, seed++)) << engine->GetLastError();
    }
  }
};

TEST_F(FailureTest, TheErrorTellsOperationFileReasonAndFigures) {
  Make(8);
  EXPECT_STREQ(engine->GetLastError(), "");
  const std::vector<Object> objects = AddMany(64, kPage);

  file->reads.Fail(EIO);
  EXPECT_EQ(Look(objects[0]), Read::kNull);
  const std::string readError = engine->GetLastError();
  EXPECT_THAT(readError, HasSubstr("read the paging file"));
  EXPECT_THAT(readError, HasSubstr(ScriptedPagingFile::kPath));
  EXPECT_THAT(readError, HasSubstr(SystemText(EIO)));
  EXPECT_THAT(readError, HasSubstr("4096 bytes asked for"));
  EXPECT_THAT(readError, HasSubstr("of 32768 bytes of the memory budget"));
  file->writes.Fail(ENOSPC);
  std::uint64_t offset = 99;
  EXPECT_EQ(engine->Allocate(123456, offset), nullptr);
  EXPECT_EQ(offset, 99U) << "unchanged";
  EXPECT_THAT(engine->GetLastError(), HasSubstr("write the paging file"));
  EXPECT_THAT(engine->GetLastError(), HasSubstr(SystemText(ENOSPC)));
  EXPECT_THAT(engine->GetLastError(), HasSubstr("123456 bytes asked for"));
}

/// Writes `bytes` bytes behind the `size` bytes of an object, unseen by memory checkers.
[[gnu::no_sanitize_address, gnu::noinline]] void WriteTooFar(void* object, std::uint32_t size,
                                                             std::uint32_t bytes, char byte) {
  volatile char* end = static_cast<char*>(object) + size;
  for (std::uint32_t i = 0; i < bytes; ++i) {
    end[i] = byte;
  }
}

TEST_F(FailureTest, ANullAddressHasAReason) {
  const auto expectReason = [&](std::uint64_t offset, const char* reason) {
    EXPECT_EQ(engine->GetAddress(offset, true), nullptr);
    EXPECT_THAT(engine->GetLastError(), HasSubstr(std::to_string(offset) + ": " + reason));
  };
  for (const std::uint32_t size : {100U, 3000U, 9000U}) {
    Make(8);
    const Object freed = Add(size, 1);
    const Object kept = Add(size, 2);
    engine->Deallocate(freed.offset);
    expectReason(freed.offset, "it names no object");
    expectReason(kept.offset + 8, "it names no object");             // inside an object
    expectReason(kept.offset + (1000 << 16), "it names no object");  // no such page
    PushOut();
    expectReason(freed.offset, "it names no object");
    EXPECT_EQ(Look(kept), Read::kIntact);
  }
}

// A neighbour was written 40 bytes too far, over a header, or 4 bytes, over the count of pins
// alone.
TEST_F(FailureTest, ADamagedHeaderIsTold) {
  constexpr std::uint32_t kSize = 104;  // fills its slot
  for (const std::uint32_t tooFar : {40U, 4U}) {
    for (const char byte : {'x', '\xCC'}) {
      SCOPED_TRACE(testing::Message() << tooFar << " bytes of " << +byte);
      Make(8);
      std::vector<Object> objects = AddMany(30, kSize);
      const Object damaged = objects[11];
      void* address = engine->GetAddress(objects[10].offset, true);
      ASSERT_NE(address, nullptr);
      WriteTooFar(address, kSize, tooFar, byte);
      engine->Dismiss(objects[10].offset);
      objects.erase(objects.begin() + 11);
      for (int round = 0; round < 2; ++round) {
        const std::uint64_t stale = GetStats().staleHandles;
        EXPECT_EQ(engine->GetAddress(damaged.offset, true), nullptr);
        EXPECT_THAT(engine->GetLastError(), HasSubstr("header is damaged"));
        EXPECT_EQ(GetStats().staleHandles, stale);
        ExpectIntact(objects);
        PushOut();
      }
      const std::uint64_t before = GetStats().currentObjects;
      engine->Deallocate(damaged.offset);
      EXPECT_EQ(GetStats().currentObjects, before - (tooFar == 4 ? 1 : 0));
      ExpectIntact(objects);
      PushOut();
      EXPECT_EQ(GetStats().residentBytes, 0U) << "nothing counts as pinned";
    }
  }
}

TEST_F(FailureTest, AFailedReadIsNullForThatObjectAndWorksLater) {
  Make(64);
  const std::vector<Object> objects = AddMany(300, kPage);
  ExpectIntact(objects);  // reads ahead from here on
  for (std::size_t nth = 1; nth <= 4; ++nth) {
    file->reads.Fail(EIO, nth, 2);  // one alone is made up for when it carried several pages
    std::size_t nulls = 0;
    for (const Object& object : objects) {
      const Read read = Look(object);
      ASSERT_NE(read, Read::kWrong);
      nulls += read == Read::kNull ? 1 : 0;
    }
    EXPECT_GE(nulls, 1U);
    EXPECT_LE(nulls, 2U);
    ExpectIntact(objects);
  }
  EXPECT_EQ(engine->DamagedReads(), 0U);
}

TEST_F(FailureTest, WhatCannotBeWrittenStaysInMemoryUntilItCan) {
  for (const std::size_t tearAfter : {SIZE_MAX, std::size_t{1000}}) {
    Make(8);
    std::vector<Object> objects = AddMany(64, kPage);
    PushOut();
    file->transferLimit = tearAfter;
    // The last round gives back what the file held before, and may not hold any more.
    for (const std::uint32_t seed : {1000U, 2000U, 0U}) {
      for (std::uint32_t i = 0; i < objects.size(); ++i) {
        file->writes.Fail(EIO, tearAfter == SIZE_MAX ? 1 : 2);  // after a part has gone out
        ASSERT_TRUE(Change(objects[i], seed + i)) << engine->GetLastError();
      }
      ExpectIntact(objects);
    }
    EXPECT_EQ(Add(kPage, 0).offset, 0U);
    EXPECT_THAT(engine->GetLastError(), HasSubstr("write the paging file"));
    EXPECT_GT(file->writes.failed, 0U);
    file->writes.Mend();
    ExpectIntact(objects);
    AddMany(8, kPage);
    EXPECT_LE(GetStats().residentBytes, 8U * kPage);
    ExpectIntact(objects);
  }
}

TEST_F(FailureTest, WhatNeedNoWriteMakesRoomForNewObjects) {
  Make(32);
  std::vector<Object> objects = AddMany(100, kPage);
  PushOut();
  const std::vector<Object> clean(objects.begin(), objects.begin() + 30);
  ASSERT_TRUE(Change(objects[40], 1) && Change(objects[41], 2));
  ExpectIntact(clean);
  file->writes.Fail(EIO);
  EXPECT_GE(AddUntilFull(kPage, 100).size(), 20U);
  ExpectIntact(objects);
}

// Only readers: the dirty pages that cannot leave must not make memory grow with every read.
TEST_F(FailureTest, ReadingOnAFullDiskDoesNotFillMemory) {
  Make(64);
  file->reserveSupported = false;
  const std::vector<Object> objects = AddMany(1000, kPage);
  file->writes.Fail(ENOSPC);
  for (int round = 0; round < 3; ++round) {
    ExpectIntact(objects);
  }
  EXPECT_LE(GetStats().residentBytes, 2U * 64 * kPage);
}

// Every free fails to read its page, a moment later the disk works again: nothing is lost.
TEST_F(FailureTest, WhatIsFreedWhileItsPageCannotBeReadEndsWhenItCan) {
  for (const std::uint32_t size : {100U, 2000U, 9000U}) {
    for (const bool tableFails : {false, true}) {
      SCOPED_TRACE(testing::Message() << "size " << size << ", table fails " << tableFails);
      Make(8, kPage, false, 1);
      std::vector<Object> objects = AddMany(1000, size);
      PushOut();
      const std::uint64_t spans = SpansOf(GetStats());
      const std::uint64_t most = GetStats().maxObjects;
      file->reads.Fail(EIO);
      if (tableFails) {
        tableFile->reads.Fail(EIO);
      }
      const std::vector<Object> freed(objects.begin(), objects.begin() + 500);
      objects.erase(objects.begin(), objects.begin() + 500);
      Free(freed);
      EXPECT_EQ(GetStats().currentObjects, 500U);
      const std::uint64_t stale = GetStats().staleHandles;
      for (const Object& object : freed) {  // stale from now on
        ASSERT_EQ(engine->GetAddress(object.offset, true), nullptr);
        ASSERT_THAT(engine->GetLastError(), HasSubstr("names no object"));
        engine->Deallocate(object.offset);
        ASSERT_EQ(engine->GetSize(object.offset), 0U);
      }
      EXPECT_EQ(GetStats().currentObjects, 500U);
      EXPECT_EQ(GetStats().staleHandles, stale + 1000);

      file->reads.Mend();
      tableFile->reads.Mend();
      const Stats stats = GetStats();
      EXPECT_EQ(stats.currentObjects, 500U);
      EXPECT_EQ(AllocatedIn(stats), 500U);
      ExpectIntact(objects);
      // The room is there for others.
      const std::vector<Object> more = AddMany(400, size);
      EXPECT_LE(SpansOf(GetStats()), spans);
      ExpectIntact(objects);
      ExpectIntact(more);
      for (const Object& object : freed) {
        ASSERT_EQ(Look(object), Read::kNull);
      }
      EXPECT_EQ(GetStats().maxObjects, most);
      Free(objects);
      Free(more);
      EXPECT_EQ(GetStats().currentObjects, 0U);
      EXPECT_LE(SpansOf(GetStats()), 1U) << "an empty slab may be open";
    }
  }
}

// A slab comes in for new objects, and what was to be freed there takes its last generations.
TEST_F(FailureTest, APendingFreeMayUseUpTheGenerationsOfASlab) {
  constexpr std::uint32_t kSize = 200;
  firstGeneration = 0xFFF0;
  Make(8);
  std::vector<Object> objects = AddMany(12, kSize);
  const std::uint32_t page = PageOf(objects[0].offset);
  std::uint64_t last = objects[0].offset;
  while (!tcmalloc::IsPastLastGeneration(static_cast<std::uint16_t>((last >> 48) + 2))) {
    engine->Deallocate(last);
    ASSERT_NE(engine->Allocate(kSize, last), nullptr);
    ASSERT_EQ(PageOf(last), page);
    engine->Dismiss(last);
  }
  PushOut();
  file->reads.Fail(EIO);
  Free({objects.begin() + 1, objects.begin() + 5});
  file->reads.Mend();
  const std::vector<Object> more = AddMany(30, kSize);
  for (const Object& object : more) {
    EXPECT_NE(PageOf(object.offset), page);
  }
  ExpectIntact(more);
  ExpectIntact({objects.begin() + 5, objects.end()});
  EXPECT_EQ(GetStats().currentObjects, 38U);
}

// New objects go elsewhere while slabs with free slots cannot be read, and there when they can.
TEST_F(FailureTest, FreeSlotsOfUnreadableSlabsAreNotForgotten) {
  Make(4);
  std::vector<Object> objects = AddMany(400, 200);
  for (std::size_t i = 0; i < objects.size(); i += 2) {
    engine->Deallocate(objects[i].offset);
  }
  PushOut();
  const std::uint64_t spans = SpansOf(GetStats());
  file->reads.Fail(EIO);
  AddMany(30, 200);
  EXPECT_LE(file->reads.failed, 4U) << "a failed read for each new slab";
  file->reads.Mend();
  AddMany(180, 200);
  EXPECT_LE(SpansOf(GetStats()), spans + 3);
}

// A stale handle cannot be told while its page cannot be read: it counts until it can.
TEST_F(FailureTest, AStaleFreeOfAnUnreadablePageEndsNothing) {
  Make(8);
  std::vector<Object> objects = AddMany(64, 100);
  const std::vector<Object> stale(objects.begin(), objects.begin() + 10);
  Free(stale);
  objects.erase(objects.begin(), objects.begin() + 10);
  for (std::uint32_t seed = 0; seed < 10; ++seed) {
    objects.push_back(Add(100, seed));  // where the stale ones were
  }
  PushOut();
  const std::uint64_t most = GetStats().maxObjects;
  file->reads.Fail(EIO);
  Free(stale);
  Free(stale);
  EXPECT_EQ(GetStats().currentObjects, 54U);
  file->reads.Mend();
  ExpectIntact(objects);
  EXPECT_EQ(GetStats().currentObjects, 64U);
  EXPECT_EQ(GetStats().maxObjects, most);
}

// Beyond what can be remembered an object stays allocated, its handle good, and that is told.
TEST_F(FailureTest, PendingFreesAreBoundedAndTheRestStaysAllocated) {
  constexpr std::uint32_t kMost = 8192;
  Make(8);
  const std::vector<Object> objects = AddMany(kMost + 100, 16);
  PushOut();
  file->reads.Fail(EIO);
  Free(objects);
  EXPECT_EQ(GetStats().currentObjects, 100U);
  EXPECT_THAT(engine->GetLastError(), HasSubstr("stays allocated"));
  file->reads.Mend();
  ExpectIntact({objects.begin() + kMost, objects.end()});
  Free(objects);
  EXPECT_EQ(GetStats().currentObjects, 0U);
  EXPECT_LE(SpansOf(GetStats()), 1U);
}

// The page table's file fails: what its leaves describe can be had later or never, but nothing else
// is touched.
TEST_F(FailureTest, APartOfThePageTableThatCannotBeHadConcernsItsPagesOnly) {
  constexpr std::uint32_t kLeaf = tcmalloc::PageTable::kLeafPages;
  Make(8, kPage, false, 1);
  std::vector<Object> objects = AddMany(10 * kLeaf, kPage);
  const auto countNulls = [&] {
    std::size_t nulls = 0;
    for (const Object& object : objects) {
      const Read read = Look(object);
      EXPECT_NE(read, Read::kWrong);
      nulls += read == Read::kNull ? 1 : 0;
    }
    return nulls;
  };
  tableFile->reads.Fail(EIO, 1, 3);
  EXPECT_EQ(countNulls(), 3U);
  EXPECT_THAT(engine->GetLastError(), HasSubstr(SystemText(EIO)));
  EXPECT_EQ(countNulls(), 0U);

  tableFile->writes.Fail(ENOSPC);
  Free({objects.begin(), objects.begin() + 8});
  objects.erase(objects.begin(), objects.begin() + 8);
  for (std::uint32_t seed = 0; seed < 8; ++seed) {
    objects.push_back(Add(kPage, seed));
    ASSERT_NE(objects.back().offset, 0U) << engine->GetLastError();
  }
  EXPECT_EQ(countNulls(), 0U);
  tableFile->writes.Mend();
  objects.push_back(Add(kPage, 8));  // with it the table shrinks again
  EXPECT_EQ(countNulls(), 0U);

  // The leaf with the lowest free page is damaged: new objects go elsewhere.
  const std::uint32_t damaged = 3;
  Free({objects.begin() + damaged * kLeaf, objects.begin() + damaged * kLeaf + 4});
  objects.erase(objects.begin() + damaged * kLeaf, objects.begin() + damaged * kLeaf + 4);
  EXPECT_EQ(countNulls(), 0U);
  constexpr std::uint64_t kImageBytes = kLeaf * (sizeof(tcmalloc::PageEntry) + 4);
  tableFile->FlipBit(damaged * kImageBytes + 100);
  const std::size_t lost = countNulls();
  EXPECT_GE(lost, kLeaf - 4 - 8U);
  EXPECT_LE(lost, kLeaf - 4U);
  EXPECT_GE(engine->DamagedReads(), 1U);
  EXPECT_THAT(engine->GetLastError(), HasSubstr("page table"));
  const std::uint64_t before = GetStats().currentObjects;
  const std::size_t reads = tableFile->reads.made;
  const Object added = Add(kPage, 7);
  EXPECT_LE(tableFile->reads.made, reads + 1) << "the leaf has four free pages";
  EXPECT_NE(added.offset, 0U) << engine->GetLastError();
  EXPECT_NE(PageOf(added.offset) / kLeaf, damaged);
  EXPECT_EQ(Look(added), Read::kIntact);
  EXPECT_EQ(GetStats().currentObjects, before + 1);
  EXPECT_EQ(countNulls(), lost);
}

TEST_F(FailureTest, AFullDiskRefusesNewObjectsAndNothingElse) {
  for (const bool canReserve : {true, false}) {
    for (const std::uint32_t pageSize : {4096U, 16384U}) {
      SCOPED_TRACE(testing::Message() << "reserve " << canReserve << ", page " << pageSize);
      Make(32, pageSize);
      file->reserveSupported = canReserve;
      file->diskBytes = 1 << 20;
      for (const std::uint32_t size : {300U, 5000U, 50000U}) {
        std::vector<Object> objects = AddUntilFull(size, 20000);
        ASSERT_LT(objects.size(), 20000U);
        EXPECT_GE(objects.size() * size, 1U << 19) << "most of the disk is used";
        EXPECT_THAT(engine->GetLastError(), HasSubstr(SystemText(ENOSPC)));
        EXPECT_EQ(GetStats().currentObjects, objects.size());
        ExpectIntact(objects);
        ASSERT_NO_FATAL_FAILURE(ChangeAll(objects, 70000));
        ExpectIntact(objects);
        if (canReserve) {
          // Noticed while everything stored has its place on the disk.
          EXPECT_EQ(file->writtenPastReserved, 0U);
          EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
        }
        const std::vector<Object> freed(objects.begin() + objects.size() / 2, objects.end());
        Free(freed);
        objects.resize(objects.size() / 2);
        const std::vector<Object> again = AddUntilFull(size, 20000);
        EXPECT_GE(again.size() + 20, freed.size()) << "room given back can be used";
        ExpectIntact(again);
        ExpectIntact(objects);
        Free(again);
        Free(objects);
      }
    }
  }
}

TEST_F(FailureTest, WithoutAPagingFileTheBudgetIsTheEnd) {
  for (const std::uint32_t pageSize : {4096U, 8192U}) {
    Make(32, pageSize);
    file->opens.Fail(EACCES);
    std::vector<Object> objects = AddUntilFull(500, 20000);
    EXPECT_LT(objects.size(), 1000U);
    EXPECT_GT(objects.size() * 500, 32U * 4096 * 3 / 4);
    EXPECT_EQ(GetStats().pageFileSize, 0U);
    EXPECT_STREQ(GetStats().pagingFileName, "");
    EXPECT_THAT(engine->GetLastError(),
                HasSubstr(std::string("make the paging file in \"") + ScriptedPagingFile::kPath));
    EXPECT_THAT(engine->GetLastError(), HasSubstr(SystemText(EACCES)));
    ASSERT_NO_FATAL_FAILURE(ChangeAll(objects, 5));
    ExpectIntact(objects);
    file->opens.Mend();
    const std::vector<Object> more = AddMany(1000, 500);
    ExpectIntact(objects);
    ExpectIntact(more);
    EXPECT_EQ(GetStats().pageFileSize, file->Size());
    EXPECT_STREQ(GetStats().pagingFileName, ScriptedPagingFile::kPath);
  }
}

// In a child of the file's owner: what is in memory is served and stays there, for neither could it
// be written nor, once it left, be read again. What is out is not touched.
TEST_F(FailureTest, AForeignFileIsNeitherReadNorWritten) {
  Make(32);
  const std::vector<Object> objects = AddMany(100, kPage);
  ExpectIntact(objects);  // everything is written; 32 clean pages are in memory
  ASSERT_EQ(GetStats().residentBytes, 32 * kPage);
  file->foreign = true;
  const std::size_t calls = file->reads.made + file->writes.made + file->reserves.made;
  std::vector<Object> served;
  for (const Object& object : objects) {
    const Read read = Look(object);
    ASSERT_NE(read, Read::kWrong);
    if (read == Read::kIntact) {
      served.push_back(object);
    }
  }
  EXPECT_THAT(engine->GetLastError(), HasSubstr("parent"));
  EXPECT_EQ(served.size(), 32U) << "what fails to come in pushes nothing out";
  EXPECT_EQ(AddUntilFull(kPage, 1000).size(), 0U);
  EXPECT_EQ(AddUntilFull(300, 1000).size(), 0U);
  EXPECT_EQ(GetStats().residentBytes, 32 * kPage) << "nor does what is made";
  ASSERT_NO_FATAL_FAILURE(ChangeAll(served, 900));
  ExpectIntact(served);
  Free(served);
  EXPECT_EQ(AddUntilFull(kPage, 1000).size(), 32U) << "what is freed makes room";
  EXPECT_EQ(file->reads.made + file->writes.made + file->reserves.made, calls);
}

// Memory beyond the budget is to be given back, but what left a child's memory could not come back.
TEST_F(FailureTest, NothingLeavesAChildsMemoryWhenItsChunksAreCleared) {
  constexpr std::uint32_t kBytes = 300 * kPage;  // two of them do not fit into one chunk
  Make(512);
  const std::vector<Object> objects = AddMany(8, kBytes);
  PushOut();
  for (const Object& object : objects) {
    ASSERT_NE(engine->GetAddress(object.offset, false), nullptr) << engine->GetLastError();
  }
  file->foreign = true;
  for (const Object& object : objects) {
    engine->Dismiss(object.offset);
  }
  ExpectIntact(objects);
}

// Every allocation of the engine's own fails once, then all from there on. Objects may be refused
// meanwhile; none may be lost.
TEST_F(FailureTest, NothingIsLostWhereTheEngineGetsNoMemory) {
  wasShortOfMemory = true;
  for (const FailingNew::Mode mode : {FailingNew::eOnce, FailingNew::eFromThenOn}) {
    bool failed = true;
    std::size_t nth = 1;
    for (; failed; ++nth) {
      SCOPED_TRACE(testing::Message() << "allocation " << nth << ", mode " << mode);
      Make(64);
      std::vector<Object> objects;
      std::size_t refused = 0;
      {
        const FailingNew failing(nth, mode);
        for (std::uint32_t i = 0; i < 800; ++i) {
          const std::uint32_t size = i == 400 ? 6000000 : i % 20 == 0 ? 30000 : 40 + i % 900;
          const Object object = Add(size, i);
          const FailingNew::Pause pause;
          refused += object.offset == 0 ? 1 : 0;
          if (object.offset != 0) {
            objects.push_back(object);
          }
          if (i % 3 == 0 && !objects.empty()) {  // slabs leave with free slots
            std::swap(objects[i * 31 % objects.size()], objects.back());
            engine->Deallocate(objects.back().offset);
            if (GetStats().currentObjects < objects.size()) {
              objects.pop_back();
            }
          }
          if (i % 400 == 399) {
            ExpectConsistent();
          }
          if (i % 5 == 0 && !objects.empty()) {
            ASSERT_NE(Look(objects[i * 17 % objects.size()]), Read::kWrong);
          }
        }
        failed = failing.count() >= nth;
      }
      ASSERT_EQ(GetStats().currentObjects, objects.size());
      if (refused > 0) {
        EXPECT_THAT(engine->GetLastError(), HasSubstr("memory"));
      }
      ASSERT_NO_FATAL_FAILURE(ExpectIntact(objects));
      AddMany(10, 30000);
      Free(objects);
      ASSERT_EQ(GetStats().currentObjects, 10U);
    }
    EXPECT_GT(nth, 20U) << "the workload makes the engine's structures grow";
  }
}

TEST_F(FailureTest, AnEngineThatCannotBeMadeLeavesNothingBehind) {
  for (std::size_t nth = 1; engine == nullptr; ++nth) {
    const FailingNew failing(nth);
    try {
      Make(64);
    } catch (const std::bad_alloc&) {
      ASSERT_EQ(failing.count(), nth);
    }
  }
  AddMany(10, 100);
}

}  // namespace
