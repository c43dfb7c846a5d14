#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <random>

#include "libtcmalloc_virtualmm/FrameArena.h"
#include "support/TestSeed.h"

// Runs of frames beside a model that knows who owns what.

namespace {

using tcmalloc::FrameArena;
using tcmalloc::kNoFrame;

constexpr std::uint32_t kChunk = FrameArena::kChunkFrames;

TEST(FrameArenaTest, RunsDoNotOverlapAndFreeFramesAreTakenBeforeNewChunks) {
  constexpr std::uint32_t kLengths[] = {1, 1, 1, 1, 2, 5, 40, kChunk, kChunk + 1, 1500};
  for (unsigned seed = testSeed(), stop = seed + 5; seed != stop; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    std::mt19937 random(seed);
    FrameArena arena(false);
    std::map<char*, std::pair<std::uint32_t, std::uint32_t>> runs;  // by address: frame, count
    std::uint64_t used = 0;
    for (int step = 0; step < 4000; ++step) {
      if (step < 1200 || runs.empty() || random() % 10 < (step / 1000 % 2 == 0 ? 7 : 4)) {
        const std::uint32_t count =
            step < 1200 || seed % 2 == 0 ? 1 : kLengths[random() % std::size(kLengths)];
        std::uint32_t frame = arena.Allocate(count);
        if (frame == kNoFrame) {
          // Chunks of one long run have no free frames, so all free ones are free for single use.
          ASSERT_TRUE(count > 1 || arena.MappedFrames() == used);
          frame = arena.AllocateInNewChunk(count);
          ASSERT_NE(frame, kNoFrame);
        }
        used += count;
        ASSERT_EQ(arena[frame].count, count);
        char* begin = arena.Address(frame);
        const auto next = runs.lower_bound(begin);
        const std::size_t bytes = std::size_t{count} << FrameArena::kFrameShift;
        ASSERT_TRUE(next == runs.end() || begin + bytes <= next->first);
        if (next != runs.begin()) {
          const auto before = std::prev(next);
          const std::size_t size = std::size_t{before->second.second} << FrameArena::kFrameShift;
          ASSERT_LE(before->first + size, begin);
        }
        runs[begin] = {frame, count};
        begin[0] = begin[bytes - 1] = 1;
      } else {
        auto run = runs.begin();
        std::advance(run, random() % runs.size());
        ASSERT_EQ(arena.Address(run->second.first), run->first) << "a run in use stays where it is";
        arena.Release(run->second.first);
        used -= run->second.second;
        runs.erase(run);
      }
      ASSERT_EQ(arena.UsedFrames(), used);
      std::size_t visited = 0;
      if (step % 50 == 0) {
        arena.ForEachRun([&](std::uint32_t frame) {
          const auto run = runs.find(arena.Address(frame));
          visited += run != runs.end() && run->second.first == frame ? 1 : 0;
        });
        ASSERT_EQ(visited, runs.size());
      }
    }
    for (const auto& [address, run] : runs) {
      arena.Release(run.first);
    }
    EXPECT_EQ(arena.UsedFrames(), 0U);
    EXPECT_LE(arena.MappedFrames(), kChunk) << "one empty chunk is kept";
    arena.ReleaseEmptyChunk();
    EXPECT_EQ(arena.MappedFrames(), 0U);
  }
}

}  // namespace
