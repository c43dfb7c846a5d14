#include <cerrno>
#include <map>
#include <set>

#include "engine/EngineFixture.h"

// Pins of many objects in one call.

namespace {

class BulkPinTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kOnePage = 4000;  // bytes of an object that has its page alone

  /// Makes objects of which each has another slab, one page long. (Five of 800 bytes fill one.)
  std::vector<Object> AddApart(std::uint32_t count) {
    std::vector<Object> objects;
    const std::vector<Object> all = AddMany(5 * count, 800);
    for (std::uint32_t i = 0; i < all.size(); i += 5) {
      objects.push_back(all[i]);
      EXPECT_NE(PageOf(objects.back().offset), PageOf(all[i == 0 ? 5 : 0].offset));
    }
    return objects;
  }

  /// Pins the objects at the offsets and expects the content that belongs to each, null for those
  /// of size 0. @return how many were pinned
  std::uint32_t Pin(const std::vector<Object>& objects, bool forWriting = true) {
    m_offsets.clear();
    for (const Object& object : objects) {
      m_offsets.push_back(object.offset);
    }
    std::vector<void*> addresses(objects.size() + 1, this);
    const auto count = static_cast<std::uint32_t>(objects.size());
    const std::uint32_t pinned =
        engine->GetAddresses(m_offsets.data(), addresses.data(), count, forWriting);
    EXPECT_EQ(addresses.back(), this) << "written past the end";
    addresses.pop_back();
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (objects[i].size == 0) {
        EXPECT_EQ(addresses[i], nullptr) << i;
      } else if (addresses[i] == nullptr) {
        ADD_FAILURE() << i << ": " << engine->GetLastError();
      } else {
        EXPECT_TRUE(Holds(addresses[i], objects[i].size, objects[i].seed)) << i;
      }
    }
    EXPECT_EQ(pinned, count - std::count(addresses.begin(), addresses.end(), nullptr));
    m_addresses = addresses;
    return pinned;
  }

  void DismissAll() {
    engine->DismissAll(m_offsets.data(), static_cast<std::uint32_t>(m_offsets.size()));
  }

  std::vector<unsigned long long> m_offsets;  // of the last call
  std::vector<void*> m_addresses;             // what it gave
};

TEST_F(BulkPinTest, PinsAsOftenAsAnObjectStandsThereAndDismissesAsMany) {
  Make(64);
  for (const std::uint32_t count : {0U, 1U, 3U, 4U, 5U, 33U, 256U, 257U, 700U}) {
    SCOPED_TRACE(count);
    std::vector<Object> objects = AddMany(count / 2 + 1, 40);
    objects.push_back(Add(50000, 7));
    std::vector<Object> wanted;
    std::map<std::uint64_t, std::uint32_t> pins;
    for (std::uint32_t i = 0; i < count; ++i) {
      wanted.push_back(objects[i * 7 % objects.size()]);
      ++pins[wanted.back().offset];
    }
    // A pin from before, and one more that may be deferred.
    ASSERT_NE(engine->GetAddress(objects[0].offset, true), nullptr);
    ++pins[objects[0].offset];
    EXPECT_EQ(Pin(wanted), count);
    std::set<void*> places(m_addresses.begin(), m_addresses.end());
    EXPECT_EQ(places.size() + (pins[objects[0].offset] == 1 ? 1 : 0), pins.size());
    ASSERT_NE(engine->GetAddress(objects[0].offset, false), nullptr);
    ++pins[objects[0].offset];
    References expected;
    for (const auto& [offset, number] : pins) {
      const bool isLarge = offset == objects.back().offset;
      expected.emplace_back(offset, isLarge ? 50000 : 40, number);
    }
    EXPECT_EQ(GetReferences(), expected);
    ExpectConsistent();
    DismissAll();
    engine->Dismiss(objects[0].offset);
    engine->Dismiss(objects[0].offset);
    EXPECT_EQ(GetReferences(), References());
    Free(objects);
  }
}

TEST_F(BulkPinTest, WhatCannotBePinnedIsNullAndTheRestIsPinned) {
  Make(16);
  std::vector<Object> objects = AddMany(40, kOnePage);
  Object stale = Add(kOnePage, 0);
  engine->Deallocate(stale.offset);
  objects[3] = {stale.offset, 0, 0};
  objects[4] = {0, 0, 0};
  objects[5] = {~std::uint64_t{0}, 0, 0};
  objects[6] = {objects[7].offset + 8, 0, 0};
  const std::uint64_t refused = GetStats().staleHandles;
  EXPECT_EQ(Pin(objects), 36U);
  EXPECT_EQ(GetStats().staleHandles, refused + 2) << "0 and all-ones are nobody's handles";
  DismissAll();
  EXPECT_EQ(GetReferences(), References());

  // A page that cannot be read, and one that does not come back as it was written.
  PushOut();
  const ScriptedPagingFile::Image image = file->Save();
  file->FlipBit(std::uint64_t{PageOf(objects[20].offset)} * 4096 + 99);
  const std::uint32_t size = std::exchange(objects[20].size, 0);
  EXPECT_EQ(Pin(objects), 35U);
  DismissAll();
  const std::vector<unsigned long long> all = m_offsets;
  EXPECT_EQ(Pin({objects[21], objects[20], objects[19]}), 2U);
  EXPECT_THAT(engine->GetLastError(), testing::HasSubstr("not what was written"));
  DismissAll();
  file->Restore(image);
  objects[20].size = size;
  PushOut();
  file->reads.Fail(EIO);
  m_addresses.assign(40, this);
  EXPECT_EQ(engine->GetAddresses(all.data(), m_addresses.data(), 40, true), 0U);
  EXPECT_EQ(std::count(m_addresses.begin(), m_addresses.end(), nullptr), 40);
  file->reads.Mend();
  EXPECT_EQ(Pin(objects), 36U);
  DismissAll();
}

TEST_F(BulkPinTest, AsksForAllThatIsOutBeforeItWaitsForTheFirst) {
  Make(256, 4096, false, 6);
  const std::vector<Object> objects = AddApart(320);  // five leaves of the table
  const Object large = Add(30000, 5);
  PushOut();
  std::vector<Object> wanted;
  std::set<std::pair<std::uint64_t, std::size_t>> expected;
  for (std::uint32_t i = 0; i < 100; ++i) {
    wanted.push_back(objects[i * 37 % 160 * 2]);  // every second page, in no order
    expected.emplace(std::uint64_t{PageOf(wanted.back().offset)} * 4096, 4096);
  }
  wanted.push_back(large);
  expected.emplace(std::uint64_t{PageOf(large.offset)} * 4096, 32768);
  for (const bool leavesOut : {false, true}) {
    if (leavesOut) {
      AddApart(500);
      PushOut();
    }
    file->expected.clear();
    tableFile->expected.clear();
    const std::size_t reads = file->reads.made;
    EXPECT_EQ(Pin(wanted), 101U);
    EXPECT_EQ(file->readsAtLastExpected, reads);
    EXPECT_TRUE(std::is_sorted(file->expected.begin(), file->expected.end()));
    EXPECT_EQ((std::set(file->expected.begin(), file->expected.end())), expected);
    EXPECT_EQ(file->expected.size(), expected.size()) << "each once";
    EXPECT_EQ(tableFile->expected.empty(), !leavesOut);
    DismissAll();
    PushOut();
  }

  // Pages side by side are one request, and what is read next anyway is none.
  file->expected.clear();
  EXPECT_EQ(Pin({objects.begin() + 100, objects.begin() + 110}), 10U);
  EXPECT_EQ(file->expected.size(), 1U);
  DismissAll();
  EXPECT_EQ(Pin({objects[200]}), 1U);
  DismissAll();
  EXPECT_EQ(Pin(AddApart(50)), 50U);
  EXPECT_EQ(file->expected.size(), 1U);
  DismissAll();
}

TEST_F(BulkPinTest, WhatIsInMemoryIsNotPushedOutByWhatIsNot) {
  Make(64);
  const std::vector<Object> out = AddApart(30);
  PushOut();
  const std::vector<Object> in = AddApart(60);
  std::vector<Object> wanted = out;
  wanted.insert(wanted.end(), in.begin(), in.end());
  const std::uint64_t reads = GetStats().pageReads;
  EXPECT_EQ(Pin(wanted), 90U);
  EXPECT_EQ(GetStats().pageReads, reads + 30);
  EXPECT_GT(GetStats().residentBytes, GetStats().budgetBytes) << "all are pinned at once";
  ExpectConsistent();
  DismissAll();
  EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
}

TEST_F(BulkPinTest, ChangesAreKeptIfTheyArePinnedForWriting) {
  Make(100);
  std::vector<Object> objects = AddApart(32);
  const std::vector<Object> large = AddMany(32, kOnePage);
  objects.insert(objects.end(), large.begin(), large.end());
  for (const bool inMemory : {false, true}) {
    for (const bool forWriting : {true, false}) {
      PushOut();
      for (std::size_t i = 0; inMemory && i < objects.size(); ++i) {
        ASSERT_EQ(Look(objects[i], false), Read::kIntact);  // in memory, and not modified
      }
      const std::uint64_t writes = GetStats().pageWrites;
      EXPECT_EQ(Pin(objects, forWriting), 64U);
      for (std::size_t i = 0; forWriting && i < objects.size(); ++i) {
        objects[i].seed += 1000;
        Fill(m_addresses[i], objects[i].size, objects[i].seed);
      }
      DismissAll();
      PushOut();
      EXPECT_EQ(GetStats().pageWrites - writes, forWriting ? 64U : 0U);
      ExpectIntact(objects);
    }
  }
}

}  // namespace
