#ifndef BENCH_SUITE_OBJECTS_GROWTH_H
#define BENCH_SUITE_OBJECTS_GROWTH_H

#include "objects/Peer.h"

namespace objects {

/// Workload growth: what the store's operations and its own structures cost as it grows. With a
/// number of objects, they are 64 bytes each and all in memory; with a number of bytes, they are
/// 256 bytes each under the budget given.
void measureGrowth(const Settings& settings);

}  // namespace objects

#endif  // BENCH_SUITE_OBJECTS_GROWTH_H
