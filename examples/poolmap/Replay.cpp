#include "Replay.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <type_traits>

#include "QRTAllocatorMap.h"
#include "Subjects.h"

namespace example {

namespace {

using Clock = std::chrono::steady_clock;

// A next-fit pool that has crumbled takes time proportional to its crumbs. Beyond this a round is
// given up and said so.
constexpr std::chrono::seconds kLongestRound{20};
constexpr std::size_t kEventsBetweenLooks = 4096;

struct Block {
  void* p = nullptr;
  std::uint32_t size = 0;
};

/// Plays one event. Touches the block's two ends, as a program would.
template <class Subject>
bool play(Subject& subject, const Trace::Event& event, Block& block) {
  if (event.size == Trace::kFree) {
    if (block.p != nullptr) {
      subject.put(block.p, block.size);
      block.p = nullptr;
    }
    return true;
  }
  block = {subject.get(event.size), event.size};
  if (block.p == nullptr) {
    return false;
  }
  auto* const bytes = static_cast<volatile char*>(block.p);
  bytes[0] = 1;
  bytes[event.size - 1] = 1;
  return true;
}

template <class Subject>
void putRest(Subject& subject, std::vector<Block>& blocks) {
  for (Block& block : blocks) {
    if (block.p != nullptr) {
      subject.put(block.p, block.size);
      block.p = nullptr;
    }
  }
}

/// @return nanoseconds for one event; 0 when the round was given up
template <class Subject>
double timeRound(const Trace& trace) {
  std::vector<Block> blocks(trace.slots());
  const auto subject = std::make_unique<Subject>();
  const Clock::time_point start = Clock::now();
  std::size_t done = 0;
  for (const Trace::Event& event : trace.events()) {
    play(*subject, event, blocks[event.slot]);
    if (++done % kEventsBetweenLooks == 0 && Clock::now() - start > kLongestRound) {
      return 0;
    }
  }
  const std::chrono::duration<double, std::nano> took = Clock::now() - start;
  if constexpr (std::is_same_v<Subject, MallocSubject>) {
    putRest(*subject, blocks);  // the others release everything when they end
  }
  return took.count() / static_cast<double>(done);
}

void drawMap(const ArenaSubject& subject, const std::string& file) {
  std::ofstream os(file);
  QRTAllocatorMap(subject.arena()).writeSvg(os);
}

/// Plays the trace and takes the figures over time.
/// @return false when it was given up
template <class Subject>
bool sample(const Trace& trace, std::size_t samples, const std::string& mapFile,
            ReplayResult& result) {
  const Clock::time_point start = Clock::now();
  std::vector<Block> blocks(trace.slots());
  const auto subject = std::make_unique<Subject>();
  std::uint64_t live = 0;
  for (std::size_t i = 0; i < trace.events().size(); ++i) {
    const Trace::Event& event = trace.events()[i];
    Block& block = blocks[event.slot];
    const std::uint32_t freed = event.size == Trace::kFree && block.p != nullptr ? block.size : 0;
    if (!play(*subject, event, block)) {
      ++result.refused;
    } else {
      live += event.size == Trace::kFree ? 0 : event.size;
      live -= freed;
    }
    if (i * samples / trace.events().size() != (i + 1) * samples / trace.events().size()) {
      result.live.push_back(live);
      result.system.push_back(subject->systemBytes());
      result.peakSystem = std::max(result.peakSystem, result.system.back());
    }
    if constexpr (std::is_same_v<Subject, ArenaSubject>) {
      if (i + 1 == trace.peakEvent() && !mapFile.empty()) {
        drawMap(*subject, mapFile);
      }
    }
    if (i % kEventsBetweenLooks == 0 && Clock::now() - start > kLongestRound) {
      return false;
    }
  }
  if constexpr (std::is_same_v<Subject, MallocSubject>) {
    putRest(*subject, blocks);
  }
  return true;
}

template <class Subject>
ReplayResult replay(const std::string& name, const Trace& trace, unsigned rounds,
                    std::size_t samples, const std::string& mapFile) {
  ReplayResult result;
  result.name = name;
  // Over time first: rounds on the clock leave malloc with memory that it need not ask for again.
  result.isComplete = sample<Subject>(trace, samples, mapFile, result);
  for (unsigned round = 0; round < rounds && result.isComplete; ++round) {
    const double ns = timeRound<Subject>(trace);
    result.isComplete = ns > 0;
    result.nsPerEvent = round == 0 ? ns : std::min(result.nsPerEvent, ns);
  }
  return result;
}

}  // namespace

std::vector<ReplayResult> replayAll(const Trace& trace, unsigned rounds, std::size_t samples,
                                    const std::string& mapFile) {
  return {replay<MallocSubject>("malloc", trace, rounds, samples, mapFile),
          replay<PoolSubject>("QRTMemoryPool", trace, rounds, samples, mapFile),
          replay<FixedPoolsSubject>("QRTFixedMemoryPool", trace, rounds, samples, mapFile),
          replay<ArenaSubject>("QRTMemoryArena", trace, rounds, samples, mapFile)};
}

}  // namespace example
