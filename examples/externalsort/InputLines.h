#ifndef EXAMPLES_EXTERNALSORT_INPUTLINES_H
#define EXAMPLES_EXTERNALSORT_INPUTLINES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "SourceFile.h"

namespace example {

/// The lines of files, one after another, the whole list again and again until there is enough. A
/// last line without its newline is a line like any other.
class InputLines {
 public:
  /// @param files    paths, in the order to read them
  /// @param bytes    stop with the line that reaches this many bytes; 0 for all files once
  /// @param longest  bytes that a line may have
  /// @throws std::runtime_error when a file cannot be opened or is none to read to its end
  InputLines(std::vector<std::string> files, std::uint64_t bytes, std::size_t longest);

  /// About how many bytes of lines there will be.
  std::uint64_t expectedBytes() const { return m_wanted != 0 ? m_wanted : m_onceBytes; }

  /// Whether there is nothing to read.
  bool empty() const { return m_onceBytes == 0; }

  /// Fetches the next line.
  /// @param line  receives it, without its newline; valid until the next call
  /// @return false at the end
  /// @throws std::runtime_error when a file cannot be read or a line is too long
  bool next(std::string_view& line);

 private:
  bool nextFile();
  bool fill();

  std::vector<std::string> m_files;  // paths
  std::uint64_t m_wanted;            // bytes to give; 0 for all files once
  std::uint64_t m_onceBytes = 0;     // bytes of all files
  std::uint64_t m_given = 0;         // bytes given, newlines included
  std::size_t m_nextFile = 0;        // the file to open next
  SourceFile m_file;                 // the file being read
  std::uint64_t m_offset = 0;        // bytes read of it
  bool m_isOpen = false;             // whether there is one
  std::vector<char> m_buffer;        // what was read; the longest line fits
  std::size_t m_begin = 0;           // first byte not given yet
  std::size_t m_end = 0;             // behind the last byte read
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_INPUTLINES_H
