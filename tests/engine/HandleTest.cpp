#include <cerrno>
#include <random>
#include <set>

#include "engine/EngineFixture.h"
#include "support/TestSeed.h"

// What a handle names, for how long, and what every operation does with one that names nothing.

namespace {

using tcmalloc::ObjectHandle;

class HandleTest : public EngineFixture {
 protected:
  /// Offers a handle that names nothing to every operation.
  void ExpectIgnored(std::uint64_t offset) {
    const References before = GetReferences();
    const Stats stats = GetStats();
    EXPECT_EQ(engine->GetAddress(offset, true), nullptr) << std::hex << offset;
    EXPECT_EQ(engine->GetAddress(offset, false), nullptr) << std::hex << offset;
    EXPECT_EQ(engine->GetUnpinned(offset, true), nullptr) << std::hex << offset;
    EXPECT_EQ(engine->GetUnpinned(offset, false), nullptr) << std::hex << offset;
    engine->Prefetch(offset);
    engine->Dismiss(offset);
    engine->Dirty(offset);
    engine->Deallocate(offset);
    ASSERT_EQ(GetReferences(), before) << std::hex << offset;
    ASSERT_EQ(GetStats().currentObjects, stats.currentObjects) << std::hex << offset;
    ASSERT_GE(GetStats().staleHandles, stats.staleHandles + 4) << std::hex << offset;
  }
};

TEST_F(HandleTest, HandlesOfLivingObjectsDiffer) {
  Make(8);
  std::set<std::uint64_t> seen;
  for (std::uint32_t i = 0; i < 3000; ++i) {
    const Object object = Add(i % 3 == 0 ? 20000 : i % 700, i);
    ASSERT_NE(object.offset, 0U);
    ASSERT_LT(PageOf(object.offset), 3000U * 5);
    ASSERT_TRUE(seen.insert(object.offset).second);
  }
}

// Stores that did the same things give the same handles out, but for the generation they began
// with. Two that drew theirs have the same one once in 32,768 times.
TEST_F(HandleTest, HandlesOfAnotherStoreWithTheSameHistoryNameNothing) {
  const auto live = [&](std::uint16_t first) {
    firstGeneration = first;
    Make(8);
    std::vector<Object> objects;
    for (std::uint32_t i = 0; i < 500; ++i) {
      objects.push_back(Add(i % 10 == 0 ? 9000 : 1 + i % 700, i));
      if (i % 3 == 0) {
        std::swap(objects[objects.size() / 2], objects.back());
        engine->Deallocate(objects.back().offset);
        objects.pop_back();
      }
    }
    return objects;
  };
  const std::vector<Object> others = live(0x1111);
  const std::vector<Object> own = live(0x1115);
  for (std::size_t i = 0; i < own.size(); ++i) {
    ASSERT_EQ(own[i].offset - others[i].offset, std::uint64_t{4} << 48) << "the same history";
  }
  ExpectIntact(own);
  for (const Object& object : others) {
    ASSERT_NO_FATAL_FAILURE(ExpectIgnored(object.offset));
  }
  ExpectIntact(own);

  // What stores draw is spread over its range: of 100 few are equal, and all bits of it change.
  std::set<std::uint16_t> drawn;
  std::uint16_t ones = 0;
  std::uint16_t zeros = 0;
  for (int i = 0; i < 100; ++i) {
    const std::uint16_t generation = tcmalloc::DrawFirstGeneration();
    ASSERT_LT(generation, tcmalloc::kFirstGenerations);
    drawn.insert(generation);
    ones |= generation;
    zeros |= static_cast<std::uint16_t>(~generation);
  }
  EXPECT_GE(drawn.size(), 95U);
  EXPECT_EQ(ones & zeros & (tcmalloc::kFirstGenerations - 1), tcmalloc::kFirstGenerations - 1);
}

// 70,000 lives in one place use the generations of pages up, from the first to the last one and
// from one in the middle on. The oldest handles, and many others, are tried all the time.
TEST_F(HandleTest, NoHandleReturnsHoweverOftenItsPageIsUsedAgain) {
  for (const std::uint16_t first : {std::uint16_t{0}, std::uint16_t{0x7FFF}}) {
    for (const std::uint32_t size : {100U, 9000U}) {
      firstGeneration = first;
      Make(8);
      const Object kept = Add(size, 1);  // in the first page while the size is a small one
      std::set<std::uint64_t> seen = {kept.offset};
      std::vector<std::uint64_t> stale;
      for (std::uint32_t life = 0; life < 70000; ++life) {
        std::uint64_t offset = 0;
        ASSERT_NE(engine->Allocate(size, offset), nullptr);
        ASSERT_NE(offset >> 48, 0xFFFFU);
        ASSERT_TRUE(seen.insert(offset).second) << "life " << life;
        engine->Deallocate(offset);
        stale.push_back(offset);
        for (const std::uint64_t old : {offset, stale.front(), stale[stale.size() / 2]}) {
          ASSERT_EQ(engine->GetAddress(old, true), nullptr) << "life " << life;
        }
      }
      const std::uint32_t lives = 0xFFFFU - first;
      EXPECT_EQ(PageOf(stale.back()), (size > 4096 ? 3 : 0) + 70000 / lives);
      ExpectIntact({kept});
      EXPECT_EQ(GetStats().currentObjects, 1U);
    }
  }
}

// Pages live 15 times here, so that nearly all of the store's are retired in the end: those of
// every kind, in memory and out. What they held of the file is given back where that is possible.
TEST_F(HandleTest, RetiredPagesAreNeverUsedAgainAndGiveTheirPlaceInTheFileBack) {
  for (const bool canDiscard : {true, false}) {
    SCOPED_TRACE(canDiscard);
    firstGeneration = 0xFFF0;
    Make(8, 4096, false, 2);
    file->discardSupported = canDiscard;
    std::mt19937 random(testSeed());
    std::vector<Object> objects;
    std::vector<std::uint64_t> stale;
    std::set<std::uint64_t> seen;
    for (std::uint32_t step = 0; step < 60000; ++step) {
      if (objects.size() < 60 || (objects.size() < 300 && random() % 2 == 0)) {
        objects.push_back(
            Add(1 + static_cast<std::uint32_t>(random() % (step % 9 == 0 ? 9000 : 900)), step));
        ASSERT_TRUE(seen.insert(objects.back().offset).second) << "step " << step;
        ASSERT_NE(objects.back().offset >> 48, 0xFFFFU);
      } else {
        std::swap(objects[random() % objects.size()], objects.back());
        ASSERT_EQ(Look(objects.back()), Read::kIntact);
        stale.push_back(objects.back().offset);
        engine->Deallocate(stale.back());
        objects.pop_back();
      }
      if (!stale.empty()) {
        ASSERT_EQ(engine->GetAddress(stale[random() % stale.size()], true), nullptr);
      }
      if (step % 5000 == 0) {
        ASSERT_EQ(engine->Check(), "") << "step " << step;
      }
    }
    ExpectIntact(objects);
    for (std::size_t i = 0; i < stale.size(); i += 50) {
      ASSERT_NO_FATAL_FAILURE(ExpectIgnored(stale[i]));
    }
    std::uint32_t highest = 0;
    for (const std::uint64_t offset : seen) {
      highest = std::max(highest, PageOf(offset));
    }
    EXPECT_GT(highest, 1000U) << "most of the pages are retired";
    EXPECT_EQ(file->discarded.size() > 900, canDiscard);
    EXPECT_EQ(file->writtenPastReserved, 0U);
    Free(objects);
    EXPECT_EQ(GetStats().currentObjects, 0U);
  }
}

// Small at first, it retires many pages and keeps one on either side; when it outgrows the budget
// it asks for disk space for the pages that are in use, not for those that were.
TEST_F(HandleTest, RetiredPagesNeedNoDiskSpace) {
  firstGeneration = 0xFFFE;  // one life a page
  Make(256);
  const Object first = Add(4096, 1);
  for (std::uint32_t i = 0; i < 30000; ++i) {
    const Object object = Add(4096, i);
    ASSERT_NE(object.offset, 0U);
    engine->Deallocate(object.offset);
  }
  file->diskBytes = UINT64_MAX;
  const std::vector<Object> objects = AddMany(1000, 4096);
  EXPECT_GT(PageOf(objects.front().offset), 30000U - 1);
  EXPECT_LE(file->reservedBytes, (1000 + 2) * 4096 + (32U << 20)) << "what is in use and a step";
  EXPECT_EQ(file->writtenPastReserved, 0U);
  ExpectIntact(objects);
  ExpectIntact({first});
}

TEST_F(HandleTest, AHandleKeptPastItsObjectsEndNamesNothing) {
  Make(4);
  for (const std::uint32_t size : {24U, 500U, 3000U, 4096U, 20000U}) {
    const std::vector<Object> old = AddMany(500, size);
    Free(old);
    // Other objects, also of other sizes, live in the same pages now.
    std::set<std::uint32_t> pages;
    for (const Object& object : old) {
      pages.insert(PageOf(object.offset));
    }
    std::vector<Object> now = AddMany(200, size);
    for (std::uint32_t i = 0; i < 500; ++i) {
      now.push_back(Add(i % 5000, i));
    }
    const auto reused = std::count_if(now.begin(), now.end(), [&](const Object& object) {
      return pages.count(PageOf(object.offset)) != 0;
    });
    EXPECT_GT(reused, 100) << "size " << size;
    for (const Object& object : old) {
      ASSERT_NO_FATAL_FAILURE(ExpectIgnored(object.offset));
    }
    ExpectIntact(now);
    Free(now);
  }
}

TEST_F(HandleTest, ForgedHandlesNameNothing) {
  for (const std::uint32_t pageSize : {4096U, 16384U}) {
    Make(64, pageSize);
    std::vector<Object> objects;
    std::set<std::uint64_t> valid;
    for (const std::uint32_t size : {1U, 40U, 200U, 1000U, 2500U, 5000U, 16384U, 100000U}) {
      for (std::uint32_t i = 0; i < 6; ++i) {
        objects.push_back(Add(size, i));
        valid.insert(objects.back().offset);
      }
      engine->Deallocate(objects.back().offset);  // free slots and free pages are tried as well
      objects.pop_back();
    }
    std::vector<std::uint64_t> forged = {0, ~std::uint64_t{0}, 16, 1, 0xFFFF};
    for (const Object& object : objects) {
      const ObjectHandle handle = ObjectHandle::Decode(object.offset);
      for (std::uint32_t byte = 0; byte < 16; ++byte) {
        forged.push_back(
            ObjectHandle{handle.page, static_cast<std::uint16_t>(byte), handle.generation}
                .Encode());
        forged.push_back(object.offset ^ byte);
        forged.push_back(object.offset + byte * 8);
      }
      forged.push_back(object.offset | 0xFFFF);
      for (const std::uint64_t generation : {1ULL, 2ULL, 0xFFFEULL, 0xFFFFULL}) {
        forged.push_back(object.offset ^ generation << 48);
      }
      for (const std::uint64_t page : {1ULL, 2ULL, 3ULL, 1ULL << 10, 1ULL << 31, 0xFFFFFFFFULL}) {
        forged.push_back(object.offset + (page << 16));
        forged.push_back((object.offset & ~0xFFFFFFFF0000ULL) | page << 16);
      }
    }
    for (const bool inMemory : {true, false}) {
      if (!inMemory) {
        PushOut();
      }
      for (const std::uint64_t offset : forged) {
        if (valid.count(offset) == 0) {
          ASSERT_NO_FATAL_FAILURE(ExpectIgnored(offset));
        }
      }
      ExpectIntact(objects);
    }
  }
}

TEST_F(HandleTest, PinsAreCountedAndTheAddressStaysWhileOneLasts) {
  Make(1);
  for (const std::uint32_t size : {32U, 30000U}) {
    const std::vector<Object> others = AddMany(300, 100);
    const Object a = Add(size, 1);
    EXPECT_LE(GetStats().residentBytes, 4096U) << "what is larger than the budget goes at once";
    const Object b = Add(size, 2);
    void* address = engine->GetAddress(a.offset, true);
    ASSERT_NE(address, nullptr);
    EXPECT_EQ(engine->GetAddress(a.offset, false), address);
    ASSERT_NE(engine->GetAddress(b.offset, true), nullptr);
    ExpectIntact(others);  // everything else goes in and out around the two
    EXPECT_EQ(engine->GetAddress(a.offset, true), address);
    EXPECT_THAT(GetReferences(), testing::UnorderedElementsAre(std::tuple(a.offset, size, 3U),
                                                               std::tuple(b.offset, size, 1U)));
    // One dismiss too many changes neither the object nor the one pinned last.
    for (int i = 0; i < 4; ++i) {
      engine->Dismiss(a.offset);
    }
    EXPECT_EQ(GetReferences(), References({{b.offset, size, 1}}));
    engine->Dismiss(b.offset);
    engine->Dismiss(b.offset);
    EXPECT_EQ(GetReferences(), References());
    EXPECT_LE(GetStats().residentBytes, 4096U);
    ExpectIntact({a, b});

    // A pinned object can be freed; its pins go with it, its neighbour's stay.
    ASSERT_NE(engine->GetAddress(b.offset, true), nullptr);
    ASSERT_NE(engine->GetAddress(a.offset, true), nullptr);
    ASSERT_NE(engine->GetAddress(a.offset, true), nullptr);
    engine->Deallocate(a.offset);
    EXPECT_EQ(GetReferences(), References({{b.offset, size, 1}}));
    ASSERT_NO_FATAL_FAILURE(ExpectIgnored(a.offset));  // the double free among the rest
    engine->Dismiss(b.offset);
    EXPECT_EQ(GetReferences(), References());
    EXPECT_LE(GetStats().residentBytes, 4096U);
    ExpectIntact({b});
    ExpectIntact(others);
    Free(others);
    engine->Deallocate(b.offset);
  }
}

// Whatever makes the pager look for room meets objects that were pinned just before: a new object,
// a fault, and the last unpin of an object that was brought in beyond the budget.
TEST_F(HandleTest, ObjectsPinnedJustBeforeStayWhereTheyAreWhenRoomIsMade) {
  enum class Cause { kNewSlab, kNewLarge, kFault, kLargeFault, kLastUnpin, kLargeLastUnpin };
  for (const Cause cause : {Cause::kNewSlab, Cause::kNewLarge, Cause::kFault, Cause::kLargeFault,
                            Cause::kLastUnpin, Cause::kLargeLastUnpin}) {
    SCOPED_TRACE(testing::Message() << "cause " << static_cast<int>(cause));
    constexpr std::uint32_t kSlabbed = 800;  // five in a page
    Make(8);
    const std::vector<Object> stored = AddMany(50, kSlabbed);
    const std::vector<Object> large = {Add(30000, 20), Add(30000, 21)};
    PushOut();
    // Eight pages changed in memory, and a disk that takes nothing: what comes in exceeds the
    // budget.
    std::vector<Object> resident = AddMany(40, kSlabbed);
    std::vector<std::uint64_t> beyond;
    if (cause == Cause::kLastUnpin || cause == Cause::kLargeLastUnpin) {
      file->writes.Fail(EIO);
      for (const Object& object : cause == Cause::kLastUnpin ? stored : large) {
        ASSERT_NE(engine->GetAddress(object.offset, true), nullptr);
        beyond.push_back(object.offset);
      }
      file->writes.Mend();
    }
    References pinned;
    std::vector<void*> addresses;
    for (std::size_t i = 0; i < resident.size(); i += 10) {
      addresses.push_back(engine->GetAddress(resident[i].offset, true));
      pinned.emplace_back(resident[i].offset, kSlabbed, 1);
    }
    std::sort(pinned.begin(), pinned.end());
    std::uint64_t made = 0;
    switch (cause) {
      case Cause::kNewSlab:
      case Cause::kNewLarge:
        ASSERT_NE(engine->Allocate(cause == Cause::kNewSlab ? 100 : 30000, made), nullptr);
        engine->Deallocate(made);
        break;
      case Cause::kFault:
      case Cause::kLargeFault:
        ExpectIntact(cause == Cause::kFault ? stored : large);
        break;
      case Cause::kLastUnpin:
      case Cause::kLargeLastUnpin:
        for (const std::uint64_t offset : beyond) {
          engine->Dismiss(offset);
        }
        break;
    }
    EXPECT_LE(GetStats().residentBytes, (8 + 8) * 4096U) << "something had to leave";
    for (std::size_t i = 0; i < addresses.size(); ++i) {
      const Object& object = resident[10 * i];
      ASSERT_EQ(engine->GetAddress(object.offset, true), addresses[i]) << "object " << i;
      ASSERT_TRUE(Holds(addresses[i], kSlabbed, object.seed));
      engine->Dismiss(object.offset);
    }
    EXPECT_EQ(GetReferences(), pinned);
    for (std::size_t i = 0; i < resident.size(); i += 10) {
      engine->Dismiss(resident[i].offset);
    }
    EXPECT_EQ(GetReferences(), References());
    EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
    ExpectIntact(resident);
    ExpectIntact(stored);
    ExpectIntact(large);
  }
}

// 20 budgets pinned at once, in random order dismissed: at the end some pins are left everywhere,
// so no chunk of memory can be cleared before they go. Then they go in the ways there are.
TEST_F(HandleTest, MemoryThatPinsTookBeyondTheBudgetComesBackWhenTheyGo) {
  enum class End { kDismissed, kDismissedLater, kFreed };
  constexpr std::uint32_t kFrames = 256;
  constexpr std::uint64_t kMost = kFrames * 4096 + (4U << 20);  // the budget and two chunks
  for (const End end : {End::kDismissed, End::kDismissedLater, End::kFreed}) {
    for (const std::uint32_t size : {100U, 4096U}) {
      SCOPED_TRACE(testing::Message() << "size " << size << ", end " << static_cast<int>(end));
      Make(kFrames);
      std::vector<std::uint64_t> objects((20U << 20) / size);
      for (std::uint64_t& offset : objects) {
        ASSERT_NE(engine->Allocate(size, offset), nullptr);
      }
      ASSERT_GE(engine->MappedBytes(), 20U << 20);
      std::vector<std::uint64_t> last;
      for (std::size_t i = 0; i < objects.size(); i += objects.size() / 100) {
        std::swap(objects[i], objects.back());
        last.push_back(objects.back());
        objects.pop_back();
      }
      std::mt19937 random(testSeed());
      std::shuffle(objects.begin(), objects.end(), random);
      std::shuffle(last.begin(), last.end(), random);
      for (const std::uint64_t offset : objects) {
        engine->Dismiss(offset);
      }
      EXPECT_GT(engine->MappedBytes(), kMost) << "pins are in the way, else this shows nothing";
      for (std::size_t i = 0; i < last.size() && end == End::kDismissedLater; ++i) {
        engine->Dismiss(last[i]);
        ASSERT_NE(engine->GetAddress(last[i], true), nullptr);
      }
      for (const std::uint64_t offset : last) {
        end == End::kFreed ? engine->Deallocate(offset) : engine->Dismiss(offset);
      }
      EXPECT_EQ(GetReferences(), References());
      EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
      EXPECT_LE(engine->MappedBytes(), kMost);
    }
  }
}

TEST_F(HandleTest, ObjectsMoveAtTheirLastUnpinOnRequest) {
  Make(64, 4096, true);
  for (const std::uint32_t size : {32U, 4096U, 30000U}) {
    const Object object = Add(size, 1);
    const void* first = engine->GetAddress(object.offset, true);
    const void* second = engine->GetAddress(object.offset, true);
    engine->Dismiss(object.offset);
    const void* third = engine->GetAddress(object.offset, true);
    engine->Dismiss(object.offset);
    engine->Dismiss(object.offset);
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, third);
    EXPECT_NE(first, engine->GetAddress(object.offset, true)) << "size " << size;
    engine->Dismiss(object.offset);
    ExpectIntact({object});
  }
}

#if defined(LIBTCMALLOC_VIRTUALMM_ASAN)
TEST_F(HandleTest, AMemoryCheckerReportsAddressesKeptAndBytesBeyondTheObject) {
  Make(64);
  for (const std::uint32_t size : {100U, 30000U}) {
    const Object object = Add(size, 1);
    volatile char* address = static_cast<char*>(engine->GetAddress(object.offset, true));
    EXPECT_DEATH(address[size] = 1, "AddressSanitizer");
    engine->Dismiss(object.offset);
    EXPECT_DEATH(address[0] = 1, "AddressSanitizer");
  }
}
#endif

}  // namespace
