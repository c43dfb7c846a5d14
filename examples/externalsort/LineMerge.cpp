#include "LineMerge.h"

#include <utility>

#include "LineKey.h"

namespace example {

namespace {

bool before(const RunReader& a, const RunReader& b) {
  return lineBefore(a.key(), a.line(), b.key(), b.line());
}

}  // namespace

LineMerge::LineMerge(const std::vector<SortedRun*>& runs, const MemoryPlan& plan) {
  for (SortedRun* run : runs) {
    m_readers.emplace_back(*run, plan);
    if (m_readers.back().next()) {
      m_heap.push_back(&m_readers.back());
    }
  }
  for (std::size_t at = m_heap.size() / 2; at-- > 0;) {
    sink(at);
  }
}

void LineMerge::pop() {
  if (!m_heap.front()->next()) {
    m_heap.front() = m_heap.back();
    m_heap.pop_back();
  }
  sink(0);
}

/// Moves a reader down to its place below all smaller ones.
void LineMerge::sink(std::size_t at) {
  for (std::size_t child = 2 * at + 1; child < m_heap.size(); child = 2 * at + 1) {
    if (child + 1 < m_heap.size() && before(*m_heap[child + 1], *m_heap[child])) {
      ++child;
    }
    if (!before(*m_heap[child], *m_heap[at])) {
      break;
    }
    std::swap(m_heap[child], m_heap[at]);
    at = child;
  }
}

}  // namespace example
