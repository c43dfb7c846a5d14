#include "Replay.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <sstream>
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

/// An allocator with the blocks that a trace has live in it. Frees them at its end, wherever the
/// trace was left: not every subject gives its memory back by itself.
template <class Subject>
class Player {
 public:
  explicit Player(const Trace& trace) : m_blocks(trace.slots()) {}
  ~Player() {
    for (Block& block : m_blocks) {
      put(block);
    }
  }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// Plays one event. Touches the block's two ends, as a program would.
  /// @return false when an allocation gave null
  bool play(const Trace::Event& event) {
    Block& block = m_blocks[event.slot];
    if (event.size == Trace::kFree) {
      put(block);
      return true;
    }
    block = {m_subject.get(event.size), event.size};
    if (block.p == nullptr) {
      return false;
    }
    m_live += event.size;
    auto* const bytes = static_cast<volatile char*>(block.p);
    bytes[0] = 1;
    bytes[event.size - 1] = 1;
    return true;
  }

  /// Bytes of the blocks that are live.
  std::uint64_t live() const { return m_live; }
  const Subject& subject() const { return m_subject; }

 private:
  void put(Block& block) {
    if (block.p != nullptr) {
      m_subject.put(block.p, block.size);
      m_live -= block.size;
      block.p = nullptr;
    }
  }

  std::vector<Block> m_blocks;  // by slot; before the subject, whose figures leave it out
  Subject m_subject;            // where they are
  std::uint64_t m_live = 0;     // bytes of those that are live
};

/// @return nanoseconds for one event; 0 when the round was given up
template <class Subject>
double timeRound(const Trace& trace) {
  const auto player = std::make_unique<Player<Subject>>(trace);
  const Clock::time_point start = Clock::now();
  std::size_t done = 0;
  for (const Trace::Event& event : trace.events()) {
    player->play(event);
    if (++done % kEventsBetweenLooks == 0 && Clock::now() - start > kLongestRound) {
      return 0;
    }
  }
  const std::chrono::duration<double, std::nano> took = Clock::now() - start;
  return took.count() / static_cast<double>(done);
}

std::string mapOf(const ArenaSubject& subject) {
  std::ostringstream svg;
  QRTAllocatorMap(subject.arena()).writeSvg(svg);
  return svg.str();
}

/// Plays the trace and takes the figures over time.
/// @return false when it was given up
template <class Subject>
bool sample(const Trace& trace, std::size_t samples, bool drawMap, ReplayResult& result) {
  const Clock::time_point start = Clock::now();
  const auto player = std::make_unique<Player<Subject>>(trace);
  for (std::size_t i = 0; i < trace.events().size(); ++i) {
    result.refused += player->play(trace.events()[i]) ? 0U : 1U;
    if (i * samples / trace.events().size() != (i + 1) * samples / trace.events().size()) {
      result.live.push_back(player->live());
      result.system.push_back(player->subject().systemBytes());
      result.peakSystem = std::max(result.peakSystem, result.system.back());
    }
    if constexpr (std::is_same_v<Subject, ArenaSubject>) {
      if (i + 1 == trace.peakEvent() && drawMap) {
        result.map = mapOf(player->subject());
      }
    }
    if (i % kEventsBetweenLooks == 0 && Clock::now() - start > kLongestRound) {
      return false;
    }
  }
  return true;
}

template <class Subject>
ReplayResult replay(const std::string& name, const Trace& trace, unsigned rounds,
                    std::size_t samples, bool drawMap) {
  ReplayResult result;
  result.name = name;
  // Over time first: rounds on the clock leave malloc with memory that it need not ask for again.
  result.isComplete = sample<Subject>(trace, samples, drawMap, result);
  for (unsigned round = 0; round < rounds && result.isComplete; ++round) {
    const double ns = timeRound<Subject>(trace);
    result.isComplete = ns > 0;
    result.nsPerEvent = round == 0 ? ns : std::min(result.nsPerEvent, ns);
  }
  return result;
}

}  // namespace

std::vector<ReplayResult> replayAll(const Trace& trace, unsigned rounds, std::size_t samples,
                                    bool drawMap) {
  return {replay<MallocSubject>("malloc", trace, rounds, samples, drawMap),
          replay<PoolSubject>("QRTMemoryPool", trace, rounds, samples, drawMap),
          replay<FixedPoolsSubject>("QRTFixedMemoryPool", trace, rounds, samples, drawMap),
          replay<ArenaSubject>("QRTMemoryArena", trace, rounds, samples, drawMap)};
}

}  // namespace example
