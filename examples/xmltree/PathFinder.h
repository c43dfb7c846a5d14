#ifndef EXAMPLES_XMLTREE_PATHFINDER_H
#define EXAMPLES_XMLTREE_PATHFINDER_H

#include <cstdint>
#include <deque>
#include <functional>

#include "PathExpression.h"
#include "XmlNode.h"

namespace example {

/// Finds what a path leads to, in one walk through a document. What it keeps for a level of the
/// tree are 8 bytes, and as many for each position that the path asks for.
class PathFinder {
 public:
  /// Called with each match, in document order.
  /// @return whether to go on
  using Visitor = std::function<bool(XmlNode& match)>;

  /// @param outermost  whether to leave out matches below other matches
  PathFinder(const PathExpression& path, bool outermost);

  /// @throws std::runtime_error when the store cannot read something back
  /// @return whether the visitor saw all matches
  bool search(XmlNode& document, const Visitor& visit);

 private:
  std::uint64_t enter(XmlNode& node, bool& matched);
  bool matches(const PathStep& step, XmlNode& node, std::size_t position);
  void push(std::uint64_t active);
  void pop();

  const std::vector<PathStep> m_steps;
  const bool m_outermost;                // whether to leave out matches below others
  std::size_t m_positions = 0;           // positions the path asks for
  std::deque<std::uint64_t> m_active;    // per open node: steps that its children may match
  std::deque<std::uint64_t> m_counters;  // per open node and position: children counted so far
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_PATHFINDER_H
