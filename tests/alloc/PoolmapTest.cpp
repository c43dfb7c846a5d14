// The trace recorder and the replay of the poolmap example.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "OccupancyChart.h"
#include "Replay.h"
#include "Trace.h"
#include "support/TempDirectory.h"

namespace {

using example::Trace;
using example::TraceRecord;

class Poolmap : public testing::Test {
 protected:
  std::string file() const { return (m_directory.path() / "t.trace").string(); }

  void write(const std::vector<TraceRecord>& records) const {
    std::ofstream os(file(), std::ios::binary);
    os.write(example::kTraceMagic, sizeof example::kTraceMagic);
    os.write(reinterpret_cast<const char*>(records.data()),
             static_cast<std::streamsize>(records.size() * sizeof(TraceRecord)));
  }

 private:
  TempDirectory m_directory;
};

std::vector<std::pair<unsigned, unsigned>> eventsOf(const Trace& trace) {
  std::vector<std::pair<unsigned, unsigned>> events;
  for (const Trace::Event& event : trace.events()) {
    events.emplace_back(event.slot, event.size);
  }
  return events;
}

TEST_F(Poolmap, ATraceBecomesSlotsThatAreUsedAgain) {
  // A free of an unknown block is dropped; an address handed out twice was freed between.
  write({{4096, 10, 0}, {8192, 20, 0}, {4096, 0, 1}, {99, 0, 1}, {4096, 0, 0}, {8192, 30, 0}});
  const Trace trace = Trace::load(file(), 100);
  const unsigned freed = Trace::kFree;
  EXPECT_THAT(eventsOf(trace),
              testing::ElementsAre(std::pair(0u, 10u), std::pair(1u, 20u), std::pair(0u, freed),
                                   std::pair(0u, 1u), std::pair(1u, freed), std::pair(1u, 30u)));
  EXPECT_EQ(trace.slots(), 2u);
  EXPECT_EQ(trace.allocations(), 4u);
  EXPECT_EQ(trace.bytes(), 61u);
  EXPECT_EQ(trace.peakBytes(), 31u);
  EXPECT_EQ(trace.peakEvent(), 6u);
  EXPECT_EQ(Trace::load(file(), 2).events().size(), 2u);
}

TEST_F(Poolmap, WhatIsNoTraceIsRefused) {
  EXPECT_THROW(Trace::load(file(), 9), std::runtime_error) << "missing";
  write({});
  EXPECT_THROW(Trace::load(file(), 9), std::runtime_error) << "empty";
  std::ofstream(file()) << "something else that is long enough";
  EXPECT_THROW(Trace::load(file(), 9), std::runtime_error);
}

TEST_F(Poolmap, ReplaysThroughAllAndDrawsThem) {
  std::vector<TraceRecord> records;
  for (std::uint64_t i = 1; i <= 3000; ++i) {
    records.push_back({i * 16, static_cast<std::uint32_t>(i % 1500), 0});
    if (i % 3 == 0) {
      records.push_back({(i / 2) * 16, 0, 1});
    }
  }
  write(records);
  const Trace trace = Trace::load(file(), 1000000);
  const auto results = example::replayAll(trace, 1, 50, true);
  ASSERT_EQ(results.size(), 4u);
  for (const example::ReplayResult& result : results) {
    EXPECT_TRUE(result.isComplete) << result.name;
    EXPECT_EQ(result.refused, 0u) << result.name;
    EXPECT_EQ(result.live, results[0].live) << result.name;
    EXPECT_EQ(result.live.size(), 50u);
    EXPECT_GE(result.peakSystem, trace.peakBytes()) << result.name;
  }
  std::ostringstream svg;
  drawOccupancy(svg, results);
  EXPECT_THAT(svg.str(), testing::AllOf(testing::HasSubstr(">QRTMemoryArena<"),
                                        testing::EndsWith("</svg>\n")));
  EXPECT_THAT(results[3].map, testing::EndsWith("</svg>\n"));
}

TEST_F(Poolmap, WhatATraceLeavesAllocatedIsFreed) {
  std::vector<TraceRecord> records;
  for (std::uint64_t i = 1; i <= 200; ++i) {
    records.push_back({i * 16, 100000, 0});
  }
  write(records);
  const Trace trace = Trace::load(file(), 1000);
  const auto allocated = [] {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
  };
  const std::size_t before = allocated();
  EXPECT_EQ(example::replayAll(trace, 2, 5, false).size(), 4u);
  EXPECT_LT(allocated(), before + 1000000) << "a round takes 20 MB";
}

TEST_F(Poolmap, TheRecorderSeesEveryBlockOfAnotherProgram) {
  // The correct run of the fault program: 24,000 blocks of 64 bytes with headers of 8.
  const std::string command =
      "POOLMAP_TRACE=" + file() + " LD_PRELOAD=" QRT_RECORDER " " + QRT_RECORDED " none large";
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  const Trace trace = Trace::load(file(), 1000000);
  std::size_t blocks = 0;
  for (const Trace::Event& event : trace.events()) {
    blocks += event.size == 72 ? 1 : 0;
  }
  EXPECT_GE(blocks, 24000u);
  EXPECT_LT(trace.slots(), 40000u) << "frees were recorded too";
}

}  // namespace
