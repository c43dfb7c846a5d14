#include "ByteSize.h"

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using example::parseBudget;
using example::parseByteSize;

TEST(ByteSize, reads_numbers_with_and_without_suffix) {
  const struct {
    const char* text;
    std::uint64_t bytes;
  } cases[] = {{"0", 0},
               {"1", 1},
               {"4096", 4096},
               {"512K", 512U << 10},
               {"512k", 512U << 10},
               {"16M", 16U << 20},
               {"3G", std::uint64_t{3} << 30},
               {"18446744073709551615", UINT64_MAX},
               {"17179869183G", 0xFFFFFFFFC0000000}};
  for (const auto& each : cases) {
    EXPECT_EQ(parseByteSize(each.text), each.bytes) << each.text;
  }
}

TEST(ByteSize, refuses_what_is_not_a_size) {
  for (const char* text : {"", " ", "M", "-1", "+1", "1.5M", "16MB", "16 M", "16T", "0x10", "M16",
                           "18446744073709551616", "17179869184G"}) {
    EXPECT_THROW(parseByteSize(text), std::invalid_argument) << "'" << text << "'";
  }
}

TEST(ByteSize, a_budget_is_what_a_manager_can_take) {
  EXPECT_EQ(parseBudget("1"), 1U);
  EXPECT_EQ(parseBudget("4095M"), 4095U << 20);
  EXPECT_EQ(parseBudget("4294967295"), 4294967295U);
  EXPECT_THROW(parseBudget("0"), std::invalid_argument);
  EXPECT_THROW(parseBudget("4G"), std::invalid_argument);
  EXPECT_THROW(parseBudget("4294967296"), std::invalid_argument);
}

TEST(ByteSize, the_error_says_what_was_given_and_what_would_do) {
  try {
    parseByteSize("12X");
    FAIL() << "12X was taken";
  } catch (const std::invalid_argument& error) {
    EXPECT_THAT(error.what(),
                testing::AllOf(testing::HasSubstr("12X"), testing::HasSubstr("use K, M or G")));
  }
}

TEST(ByteSize, writes_sizes_and_counts_for_people) {
  EXPECT_EQ(example::formatBytes(0), "0 bytes");
  EXPECT_EQ(example::formatBytes(1023), "1023 bytes");
  EXPECT_EQ(example::formatBytes(1536), "1.5 KiB");
  EXPECT_EQ(example::formatBytes(std::uint64_t{5} << 40), "5.0 TiB");
  EXPECT_EQ(example::formatBytes(std::uint64_t{5000} << 40), "5000.0 TiB");
  EXPECT_EQ(example::formatCount(0), "0");
  EXPECT_EQ(example::formatCount(999), "999");
  EXPECT_EQ(example::formatCount(1000), "1,000");
  EXPECT_EQ(example::formatCount(56736123), "56,736,123");
  EXPECT_EQ(example::formatSpeed(3'000'000, 2), "2 MB/s");
  EXPECT_EQ(example::formatSpeed(3'000'000, 0), "-");
}

}  // namespace
