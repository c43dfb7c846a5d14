#ifndef EXAMPLES_POOLMAP_REPLAY_H
#define EXAMPLES_POOLMAP_REPLAY_H

#include <cstdint>
#include <string>
#include <vector>

#include "Trace.h"

namespace example {

/// What came of playing a trace through one allocator.
struct ReplayResult {
  std::string name;
  double nsPerEvent = 0;              ///< best of the rounds
  std::uint64_t peakSystem = 0;       ///< bytes from the system at most
  std::uint64_t refused = 0;          ///< allocations that gave null
  bool isComplete = true;             ///< false when it was given up for taking too long
  std::vector<std::uint64_t> live;    ///< bytes asked for and live, at evenly spaced events
  std::vector<std::uint64_t> system;  ///< bytes from the system, at the same events
};

/// Plays a trace through malloc and the three allocators, one after the other: `rounds` times on
/// the clock, and once more for the figures over time.
/// @param samples  how many figures over time
/// @param mapFile  receives a picture of the arena at the trace's peak; empty for none
std::vector<ReplayResult> replayAll(const Trace& trace, unsigned rounds, std::size_t samples,
                                    const std::string& mapFile);

}  // namespace example

#endif  // EXAMPLES_POOLMAP_REPLAY_H
