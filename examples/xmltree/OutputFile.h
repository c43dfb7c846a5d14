#ifndef EXAMPLES_XMLTREE_OUTPUTFILE_H
#define EXAMPLES_XMLTREE_OUTPUTFILE_H

#include <cstdio>
#include <string>
#include <string_view>

namespace example {

/// A file being written, or standard output. A file takes its name only once it is complete: until
/// then, and when writing fails, what stood there before stays.
class OutputFile {
 public:
  /// @param path  the file; empty for standard output
  /// @throws XmlError when it cannot be made
  explicit OutputFile(const std::string& path);
  ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// @throws XmlError when the text cannot be written
  void write(std::string_view text);

  /// Completes the file. @throws XmlError when it cannot be completed
  void finish();

 private:
  [[noreturn]] void raise() const;

  std::string m_path;       // the file; empty for standard output
  std::string m_temporary;  // the name it has until it is complete
  std::FILE* m_file;        // open for writing; null once closed
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_OUTPUTFILE_H
