#include <functional>

#include "engine/EngineFixture.h"

// What went out comes back as it was or not at all, and moves no more often than it must.

namespace {

class StoredPagesTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kPage = 4096;

  static std::uint64_t PlaceOf(const Object& object) {
    return std::uint64_t{PageOf(object.offset)} * kPage;
  }
};

struct Damage {
  const char* what;
  bool damages;  // what is read differs from what was written; else nothing can be read
  std::function<void(ScriptedPagingFile&, std::uint64_t place, std::uint64_t other)> make;
};

const Damage kDamages[] = {
    {"a flipped bit", true,
     [](ScriptedPagingFile& file, std::uint64_t place, std::uint64_t) {
       file.FlipBit(place + 2345);
     }},
    {"swapped pages", true,
     [](ScriptedPagingFile& file, std::uint64_t place, std::uint64_t other) {
       file.SwapBlocks(place, other);
     }},
    {"a file cut off", false,
     [](ScriptedPagingFile& file, std::uint64_t place, std::uint64_t) {
       file.CutOff(place + 100);
     }},
};

// The budget of 64 frames reads ahead, so that damage is also met before it is asked for.
TEST_F(StoredPagesTest, DamageIsFoundAndHurtsOnlyTheObjectsOfThePage) {
  for (const Damage& damage : kDamages) {
    for (const std::uint32_t frames : {8U, 64U}) {
      SCOPED_TRACE(testing::Message() << damage.what << ", " << frames << " frames");
      Make(frames);
      std::vector<Object> pages = AddMany(300, kPage);  // one object a page
      const Object a = pages[298];  // the last two, so that cutting the file off hurts no others
      const Object b = pages[299];
      pages.resize(298);
      PushOut();
      const auto image = file->Save();
      damage.make(*file, PlaceOf(a), PlaceOf(b));
      ExpectIntact(pages);
      EXPECT_EQ(engine->DamagedReads(), 0U) << "nobody asked for what is damaged";
      for (std::uint64_t time = 1; time <= 2; ++time) {
        ASSERT_EQ(Look(a), Read::kNull);
        EXPECT_EQ(engine->DamagedReads(), damage.damages ? time : 0);
        EXPECT_THAT(engine->GetLastError(), testing::HasSubstr("cannot read the paging file"));
      }
      ExpectIntact(pages);
      EXPECT_EQ(GetReferences(), References());
      EXPECT_EQ(GetStats().currentObjects, 300U);
      file->Restore(image);
      ExpectIntact({a, b});
    }
  }
}

TEST_F(StoredPagesTest, ALostWriteIsFoundAndNoOldContentComesBack) {
  Make(8);
  std::vector<Object> objects = AddMany(64, kPage);
  const std::vector<Object> untouched(objects.begin() + 1, objects.end());
  PushOut();
  ASSERT_TRUE(Change(objects[0], 1000));
  file->loseWrites = true;
  PushOut();
  file->loseWrites = false;
  ASSERT_EQ(Look(objects[0]), Read::kNull);
  EXPECT_EQ(engine->DamagedReads(), 1U);
  ExpectIntact(untouched);
  file->DeliverLost();
  ExpectIntact(objects);
}

TEST_F(StoredPagesTest, ADamagedSlabIsLeftAloneByNewObjectsAndFrees) {
  Make(4);
  const std::vector<Object> objects = AddMany(400, 200);
  for (std::size_t i = 0; i < objects.size(); i += 2) {
    engine->Deallocate(objects[i].offset);  // every slab has free slots
  }
  PushOut();
  const auto flipAll = [&] {
    for (std::uint64_t page = 0; page < 20; ++page) {
      file->FlipBit(page * kPage + 3000);
    }
  };
  flipAll();
  const std::vector<Object> added = AddMany(100, 200);
  ExpectIntact(added);
  ASSERT_EQ(Look(objects[1]), Read::kNull);
  engine->Deallocate(objects[1].offset);
  flipAll();
  ASSERT_EQ(Look(objects[1]), Read::kNull) << "freed all the same";
  for (std::size_t i = 3; i < objects.size(); i += 2) {
    ASSERT_EQ(Look(objects[i]), Read::kIntact);
  }
  EXPECT_EQ(GetStats().currentObjects, 299U);
  ExpectIntact(added);
}

TEST_F(StoredPagesTest, WhatIsAnnouncedIsExpectedOfTheFileWhenItIsOut) {
  Make(8);
  const std::vector<Object> pages = AddMany(64, kPage);
  const Object large = Add(5 * kPage, 64);
  PushOut();
  ExpectIntact({pages[0]});  // in memory now
  std::uint64_t made = 0;
  ASSERT_NE(engine->Allocate(kPage, made), nullptr);  // never written
  for (const std::uint64_t offset : {pages[0].offset, made, pages[1].offset + (1U << 16) * 1000}) {
    engine->Prefetch(offset);
  }
  EXPECT_TRUE(file->expected.empty()) << "nothing of these is in the file alone";
  engine->Prefetch(pages[40].offset);
  engine->Prefetch(large.offset);
  const std::uint64_t reads = file->reads.made;
  EXPECT_THAT(file->expected, testing::ElementsAre(testing::Pair(PlaceOf(pages[40]), kPage),
                                                   testing::Pair(PlaceOf(large), 5 * kPage)));
  file->foreign = true;
  engine->Prefetch(pages[41].offset);
  EXPECT_EQ(file->expected.size(), 2U) << "a child of the owner leaves the file alone";
  EXPECT_EQ(file->reads.made, reads);
}

TEST_F(StoredPagesTest, OnlyWhatChangedIsWrittenAgain) {
  Make(8);
  std::vector<Object> objects = AddMany(64, kPage);
  const std::vector<Object> others = AddMany(64, kPage);
  const auto written = [&] {  // pins everything for writing, so that all of it goes in and out
    ExpectIntact(objects);
    ExpectIntact(others);
    PushOut();
    return GetStats().pageWrites;
  };
  const std::uint64_t before = written();
  const std::uint64_t outs = GetStats().pageOuts;
  EXPECT_EQ(written(), before);
  EXPECT_EQ(written(), before);
  EXPECT_GE(GetStats().pageOuts, outs + 2 * 120);

  // Changes: a byte, under a pin for writing; a byte and back again; a byte, told by Dirty.
  for (std::uint32_t i = 0; i < 10; ++i) {
    ASSERT_TRUE(Change(objects[5 * i], 2000 + i));
  }
  for (Object& object : objects) {
    const std::uint32_t seed = object.seed;
    ASSERT_TRUE(Change(object, 1) && Change(object, seed));
  }
  void* address = engine->GetAddress(objects[63].offset, false);
  ASSERT_NE(address, nullptr);
  Fill(address, kPage, objects[63].seed = 77);
  engine->Dirty(objects[63].offset);
  engine->Dismiss(objects[63].offset);
  EXPECT_EQ(written(), before + 11);
  ExpectIntact(objects);
}

TEST_F(StoredPagesTest, NeighboursTravelTogether) {
  constexpr std::uint32_t kPages = 4096;
  Make(1024);
  std::vector<Object> objects = AddMany(kPages, kPage);
  EXPECT_GE(GetStats().pageWrites, 3000U);
  EXPECT_LE(file->writes.made, GetStats().pageWrites / 8);

  const std::size_t readCalls = file->reads.made;
  const std::uint64_t reads = GetStats().pageReads;
  ExpectIntact(objects);
  EXPECT_LE(GetStats().pageReads - reads, kPages) << "nothing is read twice";
  EXPECT_LE(file->reads.made - readCalls, kPages / 8);

  // Several walks at once count as walks, too.
  const std::size_t callsBefore = file->reads.made;
  for (std::uint32_t i = 0; i < kPages / 4; ++i) {
    for (std::uint32_t walk = 0; walk < 4; ++walk) {
      ASSERT_EQ(Look(objects[walk * (kPages / 4) + i]), Read::kIntact);
    }
  }
  EXPECT_LE(file->reads.made - callsBefore, kPages / 8);
  EXPECT_EQ(file->writtenPastReserved, 0U);
}

// A hot set half as large as the budget stays while a scan of 16 budgets passes, though between two
// uses of a hot page more other pages are used than the budget holds. The hot pages are used in an
// order that no read-ahead foresees.
TEST_F(StoredPagesTest, AScanDoesNotPushOutWhatIsUsedAgainAndAgain) {
  constexpr std::uint32_t kFrames = 256;
  constexpr std::uint32_t kHot = kFrames / 2;
  Make(kFrames);
  const std::vector<Object> hot = AddMany(kHot, kPage);
  const std::vector<Object> cold = AddMany(16 * kFrames, kPage);
  std::uint32_t misses = 0;
  std::uint32_t uses = 0;
  for (std::uint32_t i = 0; i < cold.size(); ++i) {
    ASSERT_EQ(Look(cold[i]), Read::kIntact);
    if (i % 2 == 1) {
      const std::uint64_t reads = GetStats().pageReads;
      ASSERT_EQ(Look(hot[i / 2 * 37 % kHot]), Read::kIntact);
      uses += i >= 4 * kHot ? 1 : 0;  // the first rounds make it hot
      misses += i >= 4 * kHot && GetStats().pageReads != reads ? 1 : 0;
    }
  }
  EXPECT_LT(misses, uses / 10) << "of " << uses;
}

TEST_F(StoredPagesTest, AStoreThatEmptiesGivesTheDiskBack) {
  for (const std::uint32_t size : {100U, 2000U, 60000U}) {
    for (const bool newestFirst : {false, true}) {
      SCOPED_TRACE(testing::Message() << "size " << size << ", newest first " << newestFirst);
      Make(64);
      std::vector<Object> objects = AddMany((48U << 20) / size, size);
      EXPECT_GE(GetStats().pageFileSize, 48U << 20);
      EXPECT_EQ(GetStats().pageFileSize, file->Size());
      if (newestFirst) {
        std::reverse(objects.begin(), objects.end());
      }
      const Object kept = objects[objects.size() / 2];
      objects.erase(objects.begin() + static_cast<std::ptrdiff_t>(objects.size() / 2));
      Free(objects);
      EXPECT_LE(GetStats().pageFileSize, 40U << 20);
      ExpectIntact({kept});
      engine->Deallocate(kept.offset);
      EXPECT_EQ(GetStats().currentObjects, 0U);
      EXPECT_LE(GetStats().pageFileSize, 16U << 20);
      EXPECT_EQ(GetStats().pageFileSize, file->Size());
      EXPECT_LE(GetStats().residentBytes, 64U * 4096);
      AddMany((20U << 20) / size, size);
      EXPECT_EQ(file->writtenPastReserved, 0U);
    }
  }
}

// A class keeps one empty slab open. Where it is in the way of a long span and fits nowhere else,
// it ends: it has nothing to be written, nor to be read again.
TEST_F(StoredPagesTest, AnEmptySlabInTheWayOfALongSpanEnds) {
  for (const std::uint32_t size : {100U, 400U, 700U, 1000U, 1300U}) {
    SCOPED_TRACE(testing::Message() << "size " << size);
    Make(900);
    const std::vector<Object> singles = AddMany(512, kPage);  // a chunk of frames
    engine->Deallocate(Add(size, 1).offset);
    for (std::size_t i = 0; i < singles.size(); i += 2) {
      engine->Deallocate(singles[i].offset);
    }
    const Object spanning = Add(511 * kPage, 2);
    EXPECT_EQ(file->writes.made, 0U);
    ExpectIntact({spanning, Add(size, 3)});
  }
}

}  // namespace
