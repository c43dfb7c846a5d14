#ifndef EXAMPLES_XMLTREE_CANONICALCOMPARISON_H
#define EXAMPLES_XMLTREE_CANONICALCOMPARISON_H

#include <string>
#include <string_view>

#include "CanonicalForm.h"
#include "FilePieces.h"
#include "XmlParser.h"

namespace example {

/// Compares a document that comes in pieces with a file, by what the two say and not by how they
/// are written. Neither has to fit into memory: both are parsed side by side.
class CanonicalComparison {
 public:
  /// @param file  path of the file to compare with
  /// @param name  names the other document in errors
  /// @throws XmlError when the file cannot be opened
  CanonicalComparison(const std::string& file, const std::string& name);

  /// Takes the next piece of the other document.
  /// @throws XmlError at the first difference, and when either is malformed
  void feed(std::string_view piece);

  /// Takes its end. @throws as `feed`
  void finish();

 private:
  void compare();
  bool advanceFile();
  [[noreturn]] void raiseDifference(std::size_t place) const;

  const std::string m_path;  // the file
  FilePieces m_file;         // read as far as the other document has come
  CanonicalForm m_expected;  // of the file
  CanonicalForm m_actual;    // of the other document
  XmlParser m_fileParser;    // of the file
  XmlParser m_parser;        // of the other document
  bool m_fileAtEnd = false;  // whether the file has been read
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_CANONICALCOMPARISON_H
