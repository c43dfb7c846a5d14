#include "PathExpression.h"

#include <charconv>

#include "XmlError.h"

namespace example {

PathExpression::PathExpression(std::string_view text) : m_text(text), m_rest(text) {
  do {
    m_steps.push_back(parseStep());
    if (m_steps.size() > kMostSteps) {
      raise("no more than " + std::to_string(kMostSteps) + " steps");
    }
  } while (!m_rest.empty());
}

PathStep PathExpression::parseStep() {
  PathStep step;
  require("/");
  step.descendant = skip("/");
  if (skip("text()")) {
    step.text = true;
  } else if (!skip("*")) {
    step.name = parseName();
  }
  while (skip("[")) {
    step.predicates.push_back(parsePredicate());
    require("]");
  }
  return step;
}

PathPredicate PathExpression::parsePredicate() {
  PathPredicate predicate;
  if (!skip("@")) {
    const char* const end = m_rest.data() + m_rest.size();
    const auto parsed = std::from_chars(m_rest.data(), end, predicate.position);
    if (parsed.ec != std::errc() || predicate.position == 0) {
      raise("@name, @name='value' or a number from 1");
    }
    m_rest.remove_prefix(static_cast<std::size_t>(parsed.ptr - m_rest.data()));
    return predicate;
  }
  predicate.attribute = parseName();
  if (skip("=")) {
    const char quote = m_rest.empty() ? '\0' : m_rest.front();
    const std::size_t end = m_rest.find(quote, 1);
    if ((quote != '\'' && quote != '"') || end == std::string_view::npos) {
      raise("a value in quotes");
    }
    predicate.value = m_rest.substr(1, end - 1);
    m_rest.remove_prefix(end + 1);
  }
  return predicate;
}

std::string PathExpression::parseName() {
  const std::string_view name = m_rest.substr(0, m_rest.find_first_of("/[]()@='\"*<>& \t\n"));
  if (name.empty()) {
    raise("a name");
  }
  m_rest.remove_prefix(name.size());
  return std::string(name);
}

bool PathExpression::skip(std::string_view expected) {
  const bool found = m_rest.starts_with(expected);
  m_rest.remove_prefix(found ? expected.size() : 0);
  return found;
}

void PathExpression::require(std::string_view expected) {
  if (!skip(expected)) {
    raise("'" + std::string(expected) + "'");
  }
}

void PathExpression::raise(const std::string& expected) const {
  throw XmlError("path '" + std::string(m_text) + "', character " +
                 std::to_string(m_text.size() - m_rest.size() + 1) + ": expected " + expected);
}

}  // namespace example
