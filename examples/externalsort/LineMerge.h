#ifndef EXAMPLES_EXTERNALSORT_LINEMERGE_H
#define EXAMPLES_EXTERNALSORT_LINEMERGE_H

#include <cstddef>
#include <list>
#include <string_view>
#include <vector>

#include "SortedRun.h"

namespace example {

/// Brings sorted runs together: a heap of their readers, the one with the smallest line on top.
class LineMerge {
 public:
  /// @param runs   closed, outlive the merge
  LineMerge(const std::vector<SortedRun*>& runs, const MemoryPlan& plan);

  bool empty() const { return m_heap.empty(); }

  /// The smallest line, valid until `pop`.
  std::string_view top() const { return m_heap.front()->line(); }

  /// Goes on to the next line.
  void pop();

 private:
  void sink(std::size_t at);

  std::list<RunReader> m_readers;
  std::vector<RunReader*> m_heap;  // those with a line left; children of i are 2 i + 1 and 2 i + 2
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_LINEMERGE_H
