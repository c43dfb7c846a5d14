#include "PathFinder.h"

#include "DocumentWalk.h"
#include "XmlElement.h"

namespace example {

PathFinder::PathFinder(const PathExpression& path, bool outermost)
    : m_steps(path.steps()), m_outermost(outermost) {
  for (const PathStep& step : m_steps) {
    for (const PathPredicate& predicate : step.predicates) {
      m_positions += predicate.attribute.empty() ? 1U : 0U;
    }
  }
}

// The steps are the states of a machine. Bit i of an open node's set says that step i may be made
// from it to a child: because the step before it led here, or because step i looks at any depth.
bool PathFinder::search(XmlNode& document, const Visitor& visit) {
  m_active.clear();
  m_counters.clear();
  for (DocumentWalk walk(document); !walk.atEnd(); walk.advance()) {
    if (!walk.entering()) {
      pop();
      continue;
    }
    bool matched = false;
    const std::uint64_t below = walk.depth() == 0 ? 1 : enter(walk.node(), matched);
    if (matched && !visit(walk.node())) {
      return false;
    }
    if (below == 0 || (matched && m_outermost)) {
      walk.skipChildren();
    }
    push(below);
  }
  return true;
}

/// Makes every step that leads to a node.
/// @return the steps that may be made from it
std::uint64_t PathFinder::enter(XmlNode& node, bool& matched) {
  const std::uint64_t active = m_active.back();
  std::uint64_t below = 0;
  std::size_t position = m_counters.size() - m_positions;
  for (std::size_t number = 0; number < m_steps.size(); ++number) {
    const PathStep& step = m_steps[number];
    if ((active >> number & 1) != 0) {
      below |= step.descendant ? std::uint64_t{1} << number : 0;
      if (matches(step, node, position)) {
        matched = matched || number + 1 == m_steps.size();
        below |= number + 1 == m_steps.size() ? 0 : std::uint64_t{2} << number;
      }
    }
    for (const PathPredicate& predicate : step.predicates) {
      position += predicate.attribute.empty() ? 1U : 0U;
    }
  }
  return below;
}

/// @param position  number of the counter of the step's first position
bool PathFinder::matches(const PathStep& step, XmlNode& node, std::size_t position) {
  if (node.kind() != (step.text ? NodeKind::eText : NodeKind::eElement)) {
    return false;
  }
  const XmlElement* const element = step.text ? nullptr : static_cast<XmlElement*>(&node);
  if (element != nullptr && !step.name.empty() && !element->isNamed(step.name)) {
    return false;
  }
  for (const PathPredicate& predicate : step.predicates) {
    if (predicate.attribute.empty()) {
      if (++m_counters[position++] != predicate.position) {
        return false;
      }
    } else if (element == nullptr || !element->hasAttribute(predicate.attribute, predicate.value)) {
      return false;
    }
  }
  return true;
}

void PathFinder::push(std::uint64_t active) {
  m_active.push_back(active);
  m_counters.resize(m_counters.size() + m_positions, 0);
}

void PathFinder::pop() {
  m_active.pop_back();
  m_counters.resize(m_counters.size() - m_positions);
}

}  // namespace example
