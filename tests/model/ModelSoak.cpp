#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

#include "model/ModelMachine.h"

// The model machine for as long as one likes; scripts/soak.sh runs one of these on each core.
//   model_soak <plain|faults|disk> <seconds>      random seeds
//   model_soak <plain|faults|disk> seed <seed>    one of them again
// With disk, paging files go to the directory that TMPDIR names, which may fill up.

namespace {

constexpr std::uint64_t kSteps = 5000;  // for a seed

model::RunSettings settingsFor(const std::string& mode) {
  model::RunSettings settings;
  settings.mostSteps = kSteps;
  settings.mayFault = mode == "faults";
  if (mode == "disk") {
    const char* const directory = std::getenv("TMPDIR");
    settings.directory = directory != nullptr ? directory : ".";
  }
  return settings;
}

// Runs one seed. @return whether library and models agree
bool run(const std::string& mode, std::uint64_t seed, model::RunCounts& counts) {
  std::cout << "seed " << seed << std::endl;  // seen in the log of a run that crashes
  model::Choices choices(seed, SIZE_MAX);
  model::ModelMachine machine(choices, settingsFor(mode));
  const std::string problem = machine.run();
  counts += machine.counts();
  if (!problem.empty()) {
    std::cout << "MISMATCH: " << problem << "  again with: model_soak " << mode << " seed " << seed
              << std::endl;
  }
  return problem.empty();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  const bool again = argc == 4 && argv[2] == std::string("seed");
  if ((mode != "plain" && mode != "faults" && mode != "disk") || (argc != 3 && !again)) {
    std::cerr << "usage: model_soak plain|faults|disk <seconds>|seed <seed>\n";
    return 2;
  }
  model::RunCounts counts;
  bool agrees = true;
  if (again) {
    agrees = run(mode, std::strtoull(argv[3], nullptr, 10), counts);
  } else {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[2]));
    std::random_device random;
    while (agrees && std::chrono::steady_clock::now() < end) {
      const std::uint64_t seed = std::uint64_t{random()} << 32U | random();
      agrees = run(mode, seed, counts);
    }
  }
  std::cout << "counts " << counts.runs << ' ' << counts.operations << ' ' << counts.faults << ' '
            << counts.failedCalls << ' ' << (agrees ? 0 : 1) << std::endl;
  return agrees ? 0 : 1;
}
