#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "libtcmalloc_virtualmm/BitRuns.h"
#include "libtcmalloc_virtualmm/PageTable.h"

// The map of free pages and the table around it, beside models that look at every place.

namespace {

using tcmalloc::BitRuns;
using tcmalloc::PageEntry;
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
  for (unsigned seed = 1; seed <= 20; ++seed) {
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

/// Short runs in the leaf that has the lowest, long runs on whole leaves.
std::uint32_t ExpectedPlace(const std::vector<bool>& free, std::uint32_t count) {
  constexpr std::uint32_t kLeaf = PageTable::kLeafPages;
  const auto size = static_cast<std::uint32_t>(free.size());
  if (count <= kLeaf) {
    for (std::uint32_t leaf = 0; leaf < size; leaf += kLeaf) {
      const std::uint32_t found = FirstRun(free, leaf, leaf + kLeaf, count);
      if (found != leaf + kLeaf) {
        return found;
      }
    }
    return size;
  }
  for (std::uint32_t leaf = 0; leaf < size; leaf += kLeaf) {
    const std::uint32_t taken = FirstThatIs(free, leaf, false);
    const std::uint32_t leaves = (count + kLeaf - 1) / kLeaf;
    if (taken == size || taken - leaf >= leaves * kLeaf) {
      return leaf;  // enough free leaves, or free leaves to the end: the table grows behind them
    }
  }
  return size;
}

TEST(PageTableTest, AgreesWithAModelThatLooksAtEveryPage) {
  constexpr std::uint32_t kLengths[] = {1, 1, 1, 2, 4, 4, 30, 300, 1023, 1024, 1025, 3000};
  for (unsigned seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    PageTable table;
    std::vector<bool> free;                              // the model: all pages there are
    std::map<std::uint32_t, std::uint32_t> runs;         // first page, pages
    std::map<std::uint32_t, std::uint16_t> generations;  // noted in pages, free or not
    std::uint64_t used = 0;
    for (int step = 0; step < 2000; ++step) {
      // Grows and shrinks in turns, so that runs meet tables nearly full and nearly empty.
      const bool grow = (step / 400 % 2 == 0) == (random() % 4 != 0);
      if (grow || runs.empty()) {
        const std::uint32_t count = kLengths[random() % std::size(kLengths)];
        const std::uint32_t expected = ExpectedPlace(free, count);
        const std::uint32_t first = table.Acquire(count, PageEntry::kLarge);
        ASSERT_EQ(first, expected) << "of " << count << " pages";
        while (first + count > free.size()) {
          free.resize(free.size() + PageTable::kLeafPages, true);
        }
        std::fill_n(At(free, first), count, false);
        runs[first] = count;
        used += count;
        ASSERT_EQ(table[first].Kind(), PageEntry::kLarge);
        ASSERT_FALSE(table[first].Resident());
        ASSERT_TRUE(count == 1 || table[first + count - 1].Kind() == PageEntry::kTail);
        const auto noted = generations.find(first);
        ASSERT_EQ(table[first].generation, noted == generations.end() ? 0 : noted->second);
        generations[first] = ++table[first].generation;
        ASSERT_TRUE(table.PrepareLargeBytes(first));
        table.LargeBytes(first) = count;
      } else {
        auto run = runs.begin();
        std::advance(run, random() % runs.size());
        ASSERT_EQ(table.LargeBytes(run->first), run->second);
        table.Release(run->first, run->second);
        ASSERT_FALSE(table[run->first].IsSpanHead());
        std::fill_n(At(free, run->first), run->second, true);
        used -= run->second;
        runs.erase(run);
      }
      ASSERT_EQ(table.UsedPages(), used);
      const std::uint32_t end = runs.empty() ? 0 : runs.rbegin()->first + runs.rbegin()->second;
      ASSERT_EQ(table.UsedEnd(), end);
      ASSERT_TRUE(free.empty() || table.Has(static_cast<std::uint32_t>(free.size() - 1)));
      ASSERT_FALSE(table.Has(static_cast<std::uint32_t>(free.size())));
    }
  }
}

}  // namespace
