#include "UpdatePattern.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using example::UpdatePattern;

TEST(UpdatePattern, changes_every_byte_and_is_taken_back_by_a_second_application) {
  const UpdatePattern pattern(7);
  for (const std::size_t size : {0U, 1U, 7U, 8U, 9U, 1000U, 4096U}) {
    const std::vector<std::byte> original(size, std::byte{0x5A});
    std::vector<std::byte> bytes = original;
    pattern.apply(3, bytes.data(), size);
    for (std::size_t place = 0; place < size; ++place) {
      EXPECT_NE(bytes[place], original[place]) << "byte " << place << " of " << size;
    }
    pattern.apply(3, bytes.data(), size);
    EXPECT_EQ(bytes, original) << size << " bytes";
  }
}

TEST(UpdatePattern, selects_about_a_tenth_whatever_the_seed) {
  constexpr std::uint64_t kObjects = 100'000;
  for (const std::uint64_t seed : {std::uint64_t{0}, std::uint64_t{1}, UINT64_MAX}) {
    const UpdatePattern pattern(seed);
    std::uint64_t selected = 0;
    for (std::uint64_t object = 0; object < kObjects; ++object) {
      selected += pattern.selects(object) ? 1U : 0U;
    }
    // Five standard deviations of a fair tenth.
    EXPECT_NEAR(static_cast<double>(selected), 10'000, 5 * 95) << "seed " << seed;
  }
}

TEST(UpdatePattern, objects_and_seeds_have_patterns_of_their_own) {
  const auto updated = [](std::uint64_t seed, std::uint64_t object) {
    std::vector<std::byte> bytes(64);
    UpdatePattern(seed).apply(object, bytes.data(), bytes.size());
    return bytes;
  };
  EXPECT_EQ(updated(1, 1), updated(1, 1));
  EXPECT_NE(updated(1, 1), updated(1, 2));
  EXPECT_NE(updated(1, 1), updated(2, 1));
}

}  // namespace
