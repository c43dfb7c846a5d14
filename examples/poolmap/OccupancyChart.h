#ifndef EXAMPLES_POOLMAP_OCCUPANCYCHART_H
#define EXAMPLES_POOLMAP_OCCUPANCYCHART_H

#include <iosfwd>
#include <vector>

#include "Replay.h"

namespace example {

/// Draws occupancy over time as SVG, one panel per allocator on a common scale: the bytes live as
/// an area, the bytes from the system as a line above it. What lies between them is waste.
void drawOccupancy(std::ostream& os, const std::vector<ReplayResult>& results);

}  // namespace example

#endif  // EXAMPLES_POOLMAP_OCCUPANCYCHART_H
