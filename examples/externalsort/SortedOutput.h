#ifndef EXAMPLES_EXTERNALSORT_SORTEDOUTPUT_H
#define EXAMPLES_EXTERNALSORT_SORTEDOUTPUT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OutputFile.h"

namespace example {

/// What a set of lines comes to, in whatever order they come.
struct LineSum {
  void add(std::string_view line);
  bool operator==(const LineSum&) const = default;

  std::uint64_t lines = 0;   ///< how many
  std::uint64_t bytes = 0;   ///< with their newlines
  std::uint64_t hashes = 0;  ///< sum of their hashes
};

/// Where the result goes: a file or nowhere. Either way the order is checked.
class SortedOutput {
 public:
  /// @param path  the file to write; empty for none
  /// @throws std::runtime_error when it cannot be made
  explicit SortedOutput(const std::string& path);

  /// Takes the next line. @throws std::runtime_error when it cannot be written
  void add(std::string_view line);

  /// Completes the file. @throws std::runtime_error as `add`
  void close();

  const LineSum& sum() const { return m_sum; }
  std::uint64_t misplaced() const { return m_misplaced; }  ///< lines smaller than the one before

 private:
  void write();

  std::optional<OutputFile> m_file;  // the file; nothing for none
  std::vector<char> m_waiting;       // lines to be written in one piece
  std::string m_last;                // the line before
  LineSum m_sum;                     // of all lines
  std::uint64_t m_misplaced = 0;     // lines out of order
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_SORTEDOUTPUT_H
