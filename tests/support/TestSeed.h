#ifndef TESTS_SUPPORT_TESTSEED_H
#define TESTS_SUPPORT_TESTSEED_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <random>
#include <string>

/// The seed of a random test, printed so that a failure can be repeated. It is the same in every
/// run: QRT_TEST_SEED=7 sets another one, QRT_TEST_SEED=random draws one for each test.
inline unsigned int testSeed() {
  constexpr unsigned int kFixed = 20240511;
  const char* const wanted = std::getenv("QRT_TEST_SEED");
  unsigned int seed = kFixed;
  if (wanted != nullptr) {
    seed = wanted == std::string("random")
               ? std::random_device{}()
               : static_cast<unsigned int>(std::strtoul(wanted, nullptr, 10));
  }
  std::cout << "seed " << seed << ", set by QRT_TEST_SEED\n";
  return seed;
}

#endif  // TESTS_SUPPORT_TESTSEED_H
