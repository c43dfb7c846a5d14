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
    EXPECT_EQ(engine->GetUnpinned(offset), nullptr) << std::hex << offset;
    engine->Prefetch(offset);
    engine->Dismiss(offset);
    engine->Dirty(offset);
    engine->Deallocate(offset);
    ASSERT_EQ(GetReferences(), before) << std::hex << offset;
    ASSERT_EQ(GetStats().currentObjects, stats.currentObjects) << std::hex << offset;
    ASSERT_GE(GetStats().staleHandles, stats.staleHandles + 4) << std::hex << offset;
  }
};

TEST_F(HandleTest, HandlesOfAYoungStoreAreSmallAndDiffer) {
  Make(8);
  std::set<std::uint64_t> seen;
  for (std::uint32_t i = 0; i < 3000; ++i) {
    const Object object = Add(i % 3 == 0 ? 20000 : i % 700, i);
    ASSERT_NE(object.offset, 0U);
    ASSERT_LT(object.offset, std::uint64_t{3000 * 5} << 16) << "a page number and a byte in it";
    ASSERT_TRUE(seen.insert(object.offset).second);
  }
}

// 70,000 lives of one place go once around the generations.
TEST_F(HandleTest, NoHandleReturnsBeforeAllGenerationsOfItsPageAreUsed) {
  for (const std::uint32_t size : {100U, 9000U}) {
    Make(8);
    std::set<std::uint64_t> seen;
    std::uint64_t last = 0;
    for (std::uint32_t life = 0; life < 70000; ++life) {
      std::uint64_t offset = 0;
      ASSERT_NE(engine->Allocate(size, offset), nullptr);
      ASSERT_NE(offset >> 48, 0xFFFFU);
      ASSERT_TRUE(seen.insert(offset).second || seen.size() >= 65535) << "life " << life;
      ASSERT_TRUE(life == 0 || engine->GetAddress(last, true) == nullptr);
      engine->Deallocate(offset);
      last = offset;
    }
    EXPECT_EQ(GetStats().currentObjects, 0U);
  }
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
