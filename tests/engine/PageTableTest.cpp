#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "engine/ScriptedPagingFile.h"
#include "libtcmalloc_virtualmm/BitRuns.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "support/TestSeed.h"

// The map of free pages and the table around it, beside models that look at every place.

namespace {

using tcmalloc::BitRuns;
using tcmalloc::PageEntry;
using tcmalloc::PageMap;
using tcmalloc::PageTable;

std::vector<bool>::iterator At(std::vector<bool>& places, std::uint32_t place) {
  return places.begin() + static_cast<std::ptrdiff_t>(place);
}

/// The first place at or after `from` whose state is `state`; `places.size()` when there is none.
std::uint32_t FirstThatIs(const std::vector<bool>& places, std::uint32_t from, bool state) {
  const auto begin =
      places.begin() + std::min(static_cast<std::ptrdiff_t>(from), std::ssize(places));
  return static_cast<std::uint32_t>(std::find(begin, places.end(), state) - places.begin());
}

/// The lowest run of `count` true places in [begin, end); `end` when there is none.
std::uint32_t FirstRun(const std::vector<bool>& places, std::uint32_t begin, std::uint32_t end,
                       std::uint32_t count) {
  std::uint32_t run = 0;
  for (std::uint32_t at = begin; at < end; ++at) {
    run = places[at] ? run + 1 : 0;
    if (run == count) {
      return at + 1 - count;
    }
  }
  return end;
}

TEST(BitRunsTest, AgreeWithAModelThatLooksAtEveryPlace) {
  constexpr std::uint32_t kBits = 256;
  for (unsigned seed = testSeed(), stop = seed + 20; seed != stop; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    BitRuns<kBits> bits;
    std::vector<bool> model(kBits);
    for (int step = 0; step < 300; ++step) {
      const auto first = static_cast<std::uint32_t>(random() % kBits);
      const auto longest = random() % 3 == 0 ? kBits - first : std::min(kBits - first, 9U);
      const auto count = static_cast<std::uint32_t>(1 + random() % longest);
      const bool free = random() % 2 == 0;
      bits.Mark(first, count, free);
      std::fill_n(At(model, first), count, free);

      const auto from = static_cast<std::uint32_t>(random() % (kBits + 1));
      ASSERT_EQ(bits.NextFree(from), FirstThatIs(model, from, true));
      ASSERT_EQ(bits.NextTaken(from), FirstThatIs(model, from, false));
      ASSERT_EQ(bits.IsFree(first), free);
      const auto last = std::find(model.rbegin(), model.rend(), false);
      ASSERT_EQ(bits.LastTaken(), last == model.rend()
                                      ? BitRuns<kBits>::kNone
                                      : static_cast<std::uint32_t>(model.rend() - last - 1));
      for (const std::uint32_t wanted : {1U, 3U, 64U, 65U, kBits}) {
        std::uint32_t met = 0;
        const std::uint32_t found = FirstRun(model, 0, kBits, wanted);
        ASSERT_EQ(bits.Find(wanted, met), found == kBits ? BitRuns<kBits>::kNone : found);
        if (found == kBits) {  // then it tells the longest run there is
          ASSERT_TRUE(met == 0 || FirstRun(model, 0, kBits, met) != kBits);
          ASSERT_EQ(FirstRun(model, 0, kBits, met + 1), kBits);
        }
      }
    }
  }
}

/// Short runs in the group that has the lowest, long runs on whole groups.
std::uint32_t ExpectedPlace(const std::vector<bool>& free, std::uint32_t count) {
  constexpr std::uint32_t kGroup = PageMap::kGroupPages;
  const auto size = static_cast<std::uint32_t>(free.size());
  if (count <= kGroup) {
    for (std::uint32_t group = 0; group < size; group += kGroup) {
      const std::uint32_t found = FirstRun(free, group, group + kGroup, count);
      if (found != group + kGroup) {
        return found;
      }
    }
    return size;
  }
  for (std::uint32_t group = 0; group < size; group += kGroup) {
    const std::uint32_t taken = FirstThatIs(free, group, false);
    const std::uint32_t groups = (count + kGroup - 1) / kGroup;
    if (taken == size || taken - group >= groups * kGroup) {
      return group;  // enough free groups, or free groups to the end: the table grows behind them
    }
  }
  return size;
}

// Pages are retired after this many spans that begin there.
constexpr std::uint16_t kLives = 8;
constexpr std::uint16_t kFirstGeneration = tcmalloc::kNoGeneration - kLives;

TEST(PageTableTest, AgreesWithAModelThatLooksAtEveryPage) {
  constexpr std::uint32_t kLengths[] = {1, 1, 1, 2, 4, 4, 30, 300, 1023, 1024, 1025, 3000};
  constexpr std::uint32_t kLeafLimits[] = {1, 20, 1000};
  for (unsigned seed = testSeed(), stop = seed + 6; seed != stop; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    tcmalloc::StoreError error;
    auto ownedFile = std::make_unique<ScriptedPagingFile>();
    const ScriptedPagingFile& file = *ownedFile;
    tcmalloc::BackingStore store(std::move(ownedFile), error);
    PageTable table(store, error, kLeafLimits[seed % std::size(kLeafLimits)], kFirstGeneration);
    std::vector<bool> free;                              // the model: all pages there are
    std::vector<bool> retired;                           // and which of them are retired
    std::map<std::uint32_t, std::uint32_t> runs;         // first page, pages
    std::map<std::uint32_t, std::uint16_t> generations;  // noted in pages, free or not
    std::uint64_t used = 0;
    std::uint64_t retiredPages = 0;
    for (int step = 0; step < 2000; ++step) {
      // Grows and shrinks in turns, so that runs meet tables nearly full and nearly empty.
      const bool grow = (step / 400 % 2 == 0) == (random() % 4 != 0);
      if (grow || runs.empty()) {
        const std::uint32_t count = kLengths[random() % std::size(kLengths)];
        const std::uint32_t expected = ExpectedPlace(free, count);
        const std::uint32_t first = table.Acquire(count, PageEntry::kLarge);
        ASSERT_EQ(first, expected) << "of " << count << " pages";
        while (first + count > free.size()) {
          free.resize(free.size() + PageMap::kGroupPages, true);
          retired.resize(free.size());
        }
        std::fill_n(At(free, first), count, false);
        runs[first] = count;
        used += count;
        ASSERT_EQ(table[first].Kind(), PageEntry::kLarge);
        ASSERT_FALSE(table[first].Resident());
        const PageEntry* last = table.Find(first + count - 1);
        ASSERT_TRUE(count == 1 || !last->IsSpanHead());
        const auto noted = generations.find(first);
        ASSERT_EQ(table[first].generation,
                  noted == generations.end() ? kFirstGeneration : noted->second);
        ASSERT_FALSE(table[first].IsUsedUp());
        generations[first] = ++table[first].generation;
        ASSERT_TRUE(table.PrepareLargeBytes(first));
        table.LargeBytes(first) = count;
      } else {
        auto run = runs.begin();
        std::advance(run, random() % runs.size());
        ASSERT_NE(table.Fetch(run->first), nullptr) << error.Text();
        ASSERT_EQ(table.LargeBytes(run->first), run->second);
        table.Release(run->first, run->second);
        ASSERT_FALSE(table[run->first].IsSpanHead());
        std::fill_n(At(free, run->first), run->second, true);
        if (generations[run->first] == tcmalloc::kNoGeneration) {
          free[run->first] = false;
          retired[run->first] = true;
          ++retiredPages;
        }
        used -= run->second;
        runs.erase(run);
      }
      ASSERT_EQ(table.UsedPages(), used);
      const std::uint32_t end = runs.empty() ? 0 : runs.rbegin()->first + runs.rbegin()->second;
      ASSERT_EQ(table.UsedEnd(), end);
      ASSERT_EQ(table.RetiredPages(), retiredPages);
      if (step % 20 == 0) {
        const auto from = static_cast<std::uint32_t>(random() % (free.size() + 1));
        ASSERT_EQ(table.EndOfRun(from, true), FirstThatIs(retired, from, false));
        ASSERT_EQ(table.EndOfRun(from, false), FirstThatIs(retired, from, true));
      }
      ASSERT_TRUE(free.empty() || table.Has(static_cast<std::uint32_t>(free.size() - 1)));
      ASSERT_FALSE(table.Has(static_cast<std::uint32_t>(free.size())));
      ASSERT_EQ(table.Fetch(static_cast<std::uint32_t>(free.size())), nullptr);
    }
    ASSERT_EQ(file.reads.made > 0, seed % std::size(kLeafLimits) != 2);
    ASSERT_GT(table.RetiredPages(), 5U) << free.size();
  }
}

TEST(PageTableTest, LeavesOfRetiredPagesTakeNeitherMemoryNorFile) {
  tcmalloc::StoreError error;
  auto ownedFile = std::make_unique<ScriptedPagingFile>();
  const ScriptedPagingFile& file = *ownedFile;
  tcmalloc::BackingStore store(std::move(ownedFile), error);
  PageTable table(store, error, 1, kFirstGeneration);
  constexpr std::uint32_t kPages = 20 * PageTable::kLeafPages;
  for (std::uint32_t page = 0; page < kPages; ++page) {
    for (std::uint16_t life = 0; life < kLives; ++life) {
      ASSERT_EQ(table.Acquire(1, PageEntry::kLarge), page);
      ++table[page].generation;
      table.Release(page, 1);
    }
  }
  EXPECT_EQ(table.RetiredPages(), kPages);
  EXPECT_EQ(table.UsedEnd(), 0U);
  for (std::uint32_t page = 0; page < kPages; ++page) {
    const PageEntry* entry = table.Fetch(page);
    ASSERT_TRUE(entry != nullptr && entry->IsUsedUp() && !entry->IsSpanHead()) << page;
  }
  EXPECT_EQ(file.writes.made + file.reads.made, 0U);
}

}  // namespace
