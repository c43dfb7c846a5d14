#ifndef EXAMPLES_XMLTREE_XMLERROR_H
#define EXAMPLES_XMLTREE_XMLERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>

namespace example {

/// A document, a path or a file is not what it should be. The text is for the user.
class XmlError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  /// A fault at a place in a document: "file:line:column: what".
  /// @param line    counted from 1
  /// @param column  in bytes, counted from 1
  XmlError(const std::string& source, std::uint64_t line, std::uint64_t column,
           const std::string& what)
      : std::runtime_error(source + ":" + std::to_string(line) + ":" + std::to_string(column) +
                           ": " + what) {}
};

/// A parser would need more memory than it may have.
class ParserMemoryError : public XmlError {
 public:
  using XmlError::XmlError;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLERROR_H
