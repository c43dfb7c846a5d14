#ifndef EXAMPLES_XMLTREE_PATHEXPRESSION_H
#define EXAMPLES_XMLTREE_PATHEXPRESSION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace example {

/// One condition in brackets: an attribute, or a position when no attribute is named.
struct PathPredicate {
  std::string attribute;             ///< name of the attribute; empty for a position
  std::optional<std::string> value;  ///< what it must be; any value when not given
  std::uint64_t position = 0;        ///< which match of its parent, counted from 1
};

/// One step of a path.
struct PathStep {
  bool descendant = false;                ///< at any depth below, not only a child
  bool text = false;                      ///< a text, not an element
  std::string name;                       ///< name of the element as written; empty for any
  std::vector<PathPredicate> predicates;  ///< all must hold; a position counts what passed before
};

/// A path through a document, for example "//territory[@type='DE']/text()".
class PathExpression {
 public:
  static constexpr std::size_t kMostSteps = 63;  ///< a set of steps fits 64 bits

  /// @throws XmlError for anything but a path, naming the character
  explicit PathExpression(std::string_view text);

  const std::vector<PathStep>& steps() const { return m_steps; }

 private:
  PathStep parseStep();
  PathPredicate parsePredicate();
  std::string parseName();
  bool skip(std::string_view expected);
  void require(std::string_view expected);
  [[noreturn]] void raise(const std::string& expected) const;

  std::string_view m_text;  // the path, while it is being parsed
  std::string_view m_rest;  // what of it is still to be parsed
  std::vector<PathStep> m_steps;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_PATHEXPRESSION_H
