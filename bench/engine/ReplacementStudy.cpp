// Misses of the engine on four traces, as ratios to the least possible (Belady's optimum, computed
// from the whole trace), beside plain CLOCK and LRU on the same pages. The engine runs for real;
// its page reads are counted.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <map>
#include <random>
#include <set>
#include <unordered_map>
#include <vector>

#include "libtcmalloc_virtualmm/Engine.h"

namespace {

constexpr std::uint32_t kPages = 4096;  // pages of the data
constexpr std::uint32_t kPerPage = 16;  // objects of a page, 240 bytes each
constexpr std::uint32_t kObjectBytes = 240;
using Trace = std::vector<std::uint32_t>;  // objects in the order they are pinned

/// A depth-first walk over a tree laid out in the order it was built, starting at random nodes:
/// bursts of neighbours, then a jump.
Trace TreeWalks(std::mt19937& random) {
  Trace trace;
  std::geometric_distribution<std::uint32_t> length(0.01);
  while (trace.size() < 600'000) {
    // Some subtrees are visited far more often than others.
    const double u = std::uniform_real_distribution<double>(0, 1)(random);
    auto node = static_cast<std::uint32_t>(u * u * u * (kPages * kPerPage - 1));
    for (std::uint32_t steps = length(random) + 1; steps > 0 && node < kPages * kPerPage; --steps) {
      trace.push_back(node++);
    }
  }
  return trace;
}

Trace Zipf(std::mt19937& random) {
  Trace trace(400'000);
  for (std::uint32_t& object : trace) {
    const double u = std::uniform_real_distribution<double>(0, 1)(random);
    object = static_cast<std::uint32_t>(std::pow(u, 6.0) * (kPages * kPerPage - 1)) * 2654435761U %
             (kPages * kPerPage);
  }
  return trace;
}

/// A hot tenth of the data under a scan over everything.
Trace HotAndScan(std::mt19937& random) {
  Trace trace;
  for (std::uint32_t scan = 0; trace.size() < 600'000; ++scan) {
    trace.push_back(scan % (kPages * kPerPage));
    const auto hotPage = static_cast<std::uint32_t>(random() % (kPages / 10) * 10);
    trace.push_back(hotPage * kPerPage + static_cast<std::uint32_t>(random() % kPerPage));
  }
  return trace;
}

/// The hot tenth moves on every now and then.
Trace MovingHotSet(std::mt19937& random) {
  Trace trace;
  for (std::uint32_t i = 0; i < 500'000; ++i) {
    const std::uint32_t base = i / 50'000 * 397 % kPages;
    const bool hot = random() % 10 < 9;
    const std::uint32_t page = hot ? (base + random() % (kPages / 40)) % kPages : random() % kPages;
    trace.push_back(page * kPerPage + random() % kPerPage);
  }
  return trace;
}

std::uint64_t EngineMisses(const Trace& trace, std::uint32_t frames) {
  tcmalloc::EngineOptions options;
  options.budgetBytes = frames * 4096;
  options.minimumFrames = frames;
  options.readAhead = 1;
  tcmalloc::Engine engine(options, tcmalloc::MakePagingFile("/tmp"),
                          tcmalloc::MakePagingFile("/tmp"));
  std::vector<std::uint64_t> offsets(kPages * kPerPage);
  for (std::uint64_t& offset : offsets) {
    std::memset(engine.Allocate(kObjectBytes, offset), 1, kObjectBytes);
    engine.Dismiss(offset);
  }
  const auto reads = [&engine] {
    std::vector<char> buffer(1 << 16);
    std::uint32_t needed = 0;
    auto* stats = reinterpret_cast<tcmalloc::VirtualMemoryStats*>(buffer.data());
    engine.ExtractStats(stats, static_cast<std::uint32_t>(buffer.size()), needed);
    return stats->pageReads;
  };
  const std::uint64_t before = reads();
  for (const std::uint32_t object : trace) {
    engine.GetAddress(offsets[object], true);
    engine.Dismiss(offsets[object]);
  }
  return reads() - before;
}

std::uint64_t OptimalMisses(const Trace& trace, std::uint32_t frames) {
  std::vector<std::size_t> nextUse(trace.size());
  std::vector<std::size_t> last(kPages, trace.size());
  for (std::size_t i = trace.size(); i-- > 0;) {
    nextUse[i] = last[trace[i] / kPerPage];
    last[trace[i] / kPerPage] = i;
  }
  std::set<std::pair<std::size_t, std::uint32_t>> byNextUse;  // the resident pages
  std::vector<std::size_t> key(kPages);
  std::uint64_t misses = 0;
  for (std::size_t i = 0; i < trace.size(); ++i) {
    const std::uint32_t page = trace[i] / kPerPage;
    if (byNextUse.erase({key[page], page}) == 0) {
      ++misses;
      if (byNextUse.size() == frames) {
        byNextUse.erase(std::prev(byNextUse.end()));
      }
    }
    key[page] = nextUse[i];
    byNextUse.insert({key[page], page});
  }
  return misses;
}

std::uint64_t LruMisses(const Trace& trace, std::uint32_t frames) {
  std::list<std::uint32_t> order;
  std::unordered_map<std::uint32_t, std::list<std::uint32_t>::iterator> at;
  std::uint64_t misses = 0;
  for (const std::uint32_t object : trace) {
    const std::uint32_t page = object / kPerPage;
    if (const auto found = at.find(page); found != at.end()) {
      order.splice(order.begin(), order, found->second);
      continue;
    }
    ++misses;
    if (order.size() == frames) {
      at.erase(order.back());
      order.pop_back();
    }
    order.push_front(page);
    at[page] = order.begin();
  }
  return misses;
}

std::uint64_t ClockMisses(const Trace& trace, std::uint32_t frames) {
  std::vector<std::uint32_t> ring;
  std::vector<int> slotOf(kPages, -1);
  std::vector<bool> used(frames);
  std::size_t hand = 0;
  std::uint64_t misses = 0;
  for (const std::uint32_t object : trace) {
    const std::uint32_t page = object / kPerPage;
    if (slotOf[page] >= 0) {
      used[static_cast<std::size_t>(slotOf[page])] = true;
      continue;
    }
    ++misses;
    if (ring.size() < frames) {
      slotOf[page] = static_cast<int>(ring.size());
      ring.push_back(page);
      continue;
    }
    for (; used[hand]; hand = (hand + 1) % frames) {
      used[hand] = false;
    }
    slotOf[ring[hand]] = -1;
    ring[hand] = page;
    slotOf[page] = static_cast<int>(hand);
    hand = (hand + 1) % frames;
  }
  return misses;
}

}  // namespace

void PrintReplacementStudy() {
  std::printf("Misses as ratios to the optimum, %u pages of data\n", kPages);
  std::printf("%-14s %7s %10s %8s %8s %8s\n", "trace", "frames", "optimum", "engine", "CLOCK",
              "LRU");
  std::mt19937 random(1);
  const std::map<const char*, Trace> traces = {{"tree walks", TreeWalks(random)},
                                               {"zipf", Zipf(random)},
                                               {"hot and scan", HotAndScan(random)},
                                               {"moving hot set", MovingHotSet(random)}};
  for (const std::uint32_t frames : {64U, 256U, 1024U}) {
    for (const auto& [name, trace] : traces) {
      const auto optimum = static_cast<double>(OptimalMisses(trace, frames));
      std::printf("%-14s %7u %10.0f %8.2f %8.2f %8.2f\n", name, frames, optimum,
                  static_cast<double>(EngineMisses(trace, frames)) / optimum,
                  static_cast<double>(ClockMisses(trace, frames)) / optimum,
                  static_cast<double>(LruMisses(trace, frames)) / optimum);
    }
  }
}
