#include <algorithm>
#include <iostream>
#include <vector>

#include "faults/Scene.h"

// Every call of a workload fails, one after the other and in every way. What it cannot do is told,
// everything else is as it should be, and once the fault is gone everything works.

namespace {

class FailingCalls : public WorkloadTest {};

INSTANTIATE_TEST_SUITE_P(Workloads, FailingCalls, testing::ValuesIn(kWorkloads), nameOf);

/// A spread of the calls from 1 to `count`, or all: they are many and alike, so that ordinary runs
/// take some of them, the first ones and others of every rest of the division.
std::vector<std::size_t> placesOf(std::size_t count) {
  constexpr std::size_t kFirst = 4;
  constexpr std::size_t kMost = 10;
  const std::size_t step = wantsAll() ? 1 : std::max<std::size_t>(count / kMost, 1);
  std::vector<std::size_t> places;
  for (std::size_t nth = 1; nth <= count; nth += nth < kFirst ? 1 : step) {
    places.push_back(nth);
  }
  return places;
}

TEST_P(FailingCalls, NothingIsLostWhicheverFails) {
  const auto countCalls = [&] {
    Scene scene(GetParam(), nullptr);
    scene.workload->run(scene.trial);
    const FaultPlan::Counts counts = FaultPlan::get().counts();
    scene.expectWhole();
    return counts;
  };
  const FaultPlan::Counts counts = countCalls();
  std::size_t runs = 0;
  std::size_t told = 0;
  for (const FaultMode& mode : kFaultModes) {
    for (const std::size_t nth : placesOf(counts[static_cast<std::size_t>(mode.site)])) {
      SCOPED_TRACE(testing::Message() << mode.name << ", call " << nth);
      Scene scene(GetParam(), &mode, nth);
      if (scene.manager != nullptr) {
        scene.workload->run(scene.trial);
        told += scene.trial.failed() != 0 ? 1 : 0;
        EXPECT_GE(FaultPlan::get().hits(), 1U) << "the run is the same up to the fault";
        scene.endFaults();
        scene.expectWhole();
      }
      if (HasFailure()) {
        return;  // one at a time
      }
      ++runs;
    }
  }
  std::cout << runs << " runs, " << told << " of them with a failed call\n";
  EXPECT_GE(told, runs / 8) << "faults that nobody notices prove nothing";
}

}  // namespace
