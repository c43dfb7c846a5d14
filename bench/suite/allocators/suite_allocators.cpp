// The allocators beside malloc and its like: processor time for one allocation and one free in
// patterns of use, and the memory that what is live then takes. "growth" makes a large memory pool
// of small heap blocks, which come in another order from another malloc: run it once as it is and
// once with LD_PRELOAD=libjemalloc.so.2. "beside" tells what fixed pools take beside their chunks.

#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <type_traits>

#include "Patterns.h"
#include "Peers.h"
#include "common/Figure.h"
#include "common/Heaps.h"
#include "common/Meter.h"
#include "common/Program.h"

namespace {

struct Options {
  suite::Amount live;  // none for as many as suit the pattern
  suite::Amount pairs{"4e6"};
  suite::Amount grown{"1G"};
};

/// Grows a pool to its allowance by 4 KiB at a time.
void measureGrowth(const char* workload, unsigned block, const Options& options) {
  constexpr std::size_t kMost = 0xFFFFFFFF;  // an allowance
  const suite::Meter meter;
  QRTMemoryPool pool(static_cast<unsigned>(std::min(options.grown.value, kMost)), 4096);
  while (void* const p = pool.alloc(block)) {
    std::memset(p, 1, 8);
  }
  unsigned heapBlocks = 0;
  unsigned increment = 0;
  unsigned remaining = 0;
  pool.getStats(heapBlocks, increment, remaining);
  suite::print({workload, "pool", "heap block", options.grown.text, "ns",
                meter.cpuSeconds() * 1e9 / heapBlocks});
}

/// Fills a pool with elements up to 2,000 chunks and prints what the heap counts in use beside
/// them, its own headers included, as a part of the chunks: when they are all there, and the most
/// there was at four chunks or more.
void measureBeside(const char* peer, unsigned size, int headers) {
  constexpr double kChunk = 32760;
  const auto inUse = [] { return static_cast<double>(::mallinfo2().uordblks); };
  const double before = inUse();
  QRTFixedMemoryPool pool(size, 0, headers);
  double beside = 0;
  double most = 0;
  for (int chunks = 1; chunks <= 2000; ++chunks) {
    pool.grow(nullptr);
    beside = (inUse() - before - chunks * kChunk) / (chunks * kChunk);
    most = chunks < 4 ? 0 : std::max(most, beside);
  }
  const std::string bytes = std::to_string(size);
  suite::print({"beside", peer, "at 2,000 chunks", bytes, "bytes/byte", beside});
  suite::print({"beside", peer, "the most", bytes, "bytes/byte", most});
}

template <class Pattern, class Allocator>
void measure(const char* workload, const char* peer, const Options& options) {
  const suite::Amount live = options.live.value != 0 ? options.live : suite::Amount(Pattern::kLive);
  Pattern pattern(live.value);
  const std::uint64_t before = suite::residentBytes();
  Allocator allocator(kBlock);
  pattern.fill(allocator);
  pattern.blocks.touch();
  pattern.run(allocator);  // free lists and caches are as they will be
  std::size_t pairs = 0;
  const suite::Meter meter;
  while (pairs < options.pairs.value) {
    pairs += pattern.run(allocator);
  }
  suite::print({workload, peer, "pair", live.text, "ns",
                meter.cpuSeconds() * 1e9 / static_cast<double>(pairs)});
  pattern.blocks.touch();
  suite::print({workload, peer, "resident", live.text, "bytes",
                static_cast<double>(suite::residentBytesNow() - before)});
}

template <class Allocator>
using AsItIs = Allocator;

/// Adds the peers that can do a pattern.
/// @tparam How  AsItIs or ReadBeforePut
template <class Pattern, template <class> class How = AsItIs>
void addPeers(suite::Program& program, const char* workload, const Options& options) {
  const auto add = [&]<class Allocator>(const char* peer, std::type_identity<Allocator>) {
    if constexpr (Pattern::kOneSize || !Allocator::kFixed) {
      program.add(workload, peer, [workload, peer, &options] {
        measure<Pattern, How<Allocator>>(workload, peer, options);
      });
    }
  };
  suite::eachHeap([&]<class Functions>(const char* peer, Functions) {
    add(peer, std::type_identity<Heap<Functions>>());
  });
#ifdef SUITE_BOOST_POOL
  add("boost pool", std::type_identity<BoostPool>());
#endif
  add("std pmr", std::type_identity<PmrPool>());
  add("fixed pool", std::type_identity<FixedPool<true>>());
  add("fixed pool, no header", std::type_identity<FixedPool<false>>());
  add("arena", std::type_identity<Arena>());
  add("pool", std::type_identity<NextFitPool>());
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  suite::Program program("Allocators");
  suite::loadHeaps(argv, program);
  program.option("--live", options.live, "blocks that are live at a time, instead of 1e3 to 1e5");
  program.option("--pairs", options.pairs, "allocations and frees to time, at least");
  addPeers<Lifo>(program, "lifo", options);
  addPeers<Fifo>(program, "fifo", options);
  addPeers<RandomOrder>(program, "random", options);
  addPeers<RandomOrder, ReadBeforePut>(program, "random read", options);
  addPeers<FixedChurn>(program, "fixed churn", options);
  addPeers<Churn>(program, "churn", options);
  addPeers<Churn, ReadBeforePut>(program, "churn read", options);
  addPeers<LargeChurn>(program, "churn large", options);
  addPeers<Burst>(program, "burst", options);
  program.option("--grown", options.grown, "bytes to which growth grows a pool, below 4G");
  // Blocks that take a whole heap block, and blocks that leave a little of each over.
  program.add("growth", "pool", [&options] { measureGrowth("growth", 4096, options); });
  program.add("growth small", "pool", [&options] { measureGrowth("growth small", 100, options); });
  for (const char* peer : {"fixed pool", "fixed pool, no header"}) {
    program.add("beside", peer, [peer] {
      for (const unsigned size : {8U, 16U, 64U, 256U, 1024U, 8192U, 32744U}) {
        measureBeside(peer, size, std::string(peer) == "fixed pool" ? 1 : 0);
      }
    });
  }
  return program.main(argc, argv);
}
