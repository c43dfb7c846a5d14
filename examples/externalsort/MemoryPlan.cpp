#include "MemoryPlan.h"

#include <algorithm>
#include <bit>

namespace example {

namespace {

// What the compressor of the run being written and the decompressor of each run being read take.
constexpr std::size_t kCompressorBytes = 512U << 10;
constexpr std::size_t kDecompressorBytes = 96U << 10;

// Small pages leave room for many runs; beyond the largest a read does not get faster.
constexpr std::size_t kSmallestPage = 4U << 10;
constexpr std::size_t kLargestPage = 64U << 10;

}  // namespace

MemoryPlan::MemoryPlan(unsigned int budget, std::uint64_t inputBytes, bool compress)
    : storeBytes(budget / 2) {
  const std::size_t ours = budget - storeBytes - (compress ? kCompressorBytes : 0);
  sortBytes = ours - longestLine(budget);
  const std::size_t perReader = compress ? kDecompressorBytes : 0;
  const std::uint64_t runs = inputBytes / sortBytes + 1;

  // The largest page with which all runs can be merged at once, if there is one.
  std::size_t page = kLargestPage;
  const auto fanInWith = [&](std::size_t size) {
    // A reader's buffer holds a page of content; when it inflates, compressed bytes as well.
    const std::size_t readers = ours / (size * (compress ? 2 : 1) + perReader);
    return std::max<std::size_t>(2, std::min(readers, storeBytes / 2 / size));
  };
  while (page > kSmallestPage && fanInWith(page) < runs) {
    page /= 2;
  }
  pageSize = static_cast<unsigned int>(page);
  bufferBytes = page;
  fanIn = fanInWith(page);
}

}  // namespace example
