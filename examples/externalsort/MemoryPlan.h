#ifndef EXAMPLES_EXTERNALSORT_MEMORYPLAN_H
#define EXAMPLES_EXTERNALSORT_MEMORYPLAN_H

#include <cstddef>
#include <cstdint>

namespace example {

/// How the memory budget is spent. Half of it is the store's, for the pages of the runs. The other
/// half holds the input's longest line and the lines of one run while runs are made, and the
/// readers of the runs while they are merged. A run that is read pins one page at most, and all of
/// them together may take half of the store.
struct MemoryPlan {
  /// Below this there is no room for the store's own least and a few readers.
  static constexpr unsigned int kLeastBudget = 4U << 20;

  /// Bytes of the longest line that a budget allows.
  static std::size_t longestLine(unsigned int budget) { return budget / 16; }

  /// @param budget      bytes to spend, at least kLeastBudget
  /// @param inputBytes  about how much is to be sorted
  /// @param compress    whether runs are compressed, which takes memory for each of them
  MemoryPlan(unsigned int budget, std::uint64_t inputBytes, bool compress);

  unsigned int storeBytes;  ///< the store's budget
  std::size_t sortBytes;    ///< for the lines of a run in memory
  unsigned int pageSize;    ///< of the virtual files
  std::size_t bufferBytes;  ///< of one reader
  std::size_t fanIn;        ///< runs to merge at a time, at least 2
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_MEMORYPLAN_H
