#include <gtest/gtest.h>

#include <iostream>

#include "model/ModelMachine.h"
#include "support/TestSeed.h"

// The whole library beside its models, from some seeds of one family. What a seed does is the same
// on every system. A longer search is scripts/soak.sh, one that learns is fuzz/.

namespace {

constexpr std::uint64_t kSteps = 1500;  // for a seed

class ModelTest : public testing::TestWithParam<int> {};

TEST_P(ModelTest, AgreesWithTheLibraryWhateverFails) {
  const std::uint64_t family = testSeed();
  model::RunCounts counts;
  for (std::uint64_t i = 0; i < 5; ++i) {
    const std::uint64_t seed = family * 1000 + static_cast<std::uint64_t>(GetParam()) * 100 + i;
    model::Choices choices(seed, SIZE_MAX);
    model::RunSettings settings;
    settings.mostSteps = kSteps;
    model::ModelMachine machine(choices, settings);
    const std::string problem = machine.run();
    counts += machine.counts();
    ASSERT_EQ(problem, "") << "seed " << seed;
  }
  std::cout << counts.operations << " operations, " << counts.faults << " faults, "
            << counts.failedCalls << " calls failed\n";
  EXPECT_GT(counts.faults, 0U);
  EXPECT_GT(counts.failedCalls, 0U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, ModelTest, testing::Range(0, 4));

}  // namespace
