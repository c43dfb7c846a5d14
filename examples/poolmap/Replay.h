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
  std::string map;                    ///< picture of the arena at the trace's peak; else empty
};

/// Plays a trace through malloc and the three allocators, one after the other, the arena last:
/// `rounds` times on the clock, and once more for the figures over time. What the trace leaves
/// allocated is freed.
/// @param samples  how many figures over time
/// @param drawMap  whether to draw the arena at the trace's peak, as SVG
std::vector<ReplayResult> replayAll(const Trace& trace, unsigned rounds, std::size_t samples,
                                    bool drawMap);

}  // namespace example

#endif  // EXAMPLES_POOLMAP_REPLAY_H
