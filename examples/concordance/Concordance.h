#ifndef EXAMPLES_CONCORDANCE_CONCORDANCE_H
#define EXAMPLES_CONCORDANCE_CONCORDANCE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualVector.h"
#include "WordIndex.h"

namespace example {

/// The lines of many files and the words in them, all in a store.
class Concordance {
 public:
  /// A line as it is fetched from the store.
  struct Line {
    std::string text;      ///< its text; ill-formed UTF-8 has become U+FFFD
    std::string file;      ///< path of its file
    std::uint32_t number;  ///< its number in the file, from 1
  };

  /// @param manager  keeps everything; must outlive the concordance
  explicit Concordance(QRTVirtualMemoryMgr& manager);

  /// Begins a file; the lines that follow are its. Throws what the manager throws when the store is
  /// full, as `addLine` does; what was added before stays.
  void addFile(const std::string& path);

  /// Adds a line with its words.
  void addLine(std::string_view text, std::uint32_t number);

  /// Fetches a line.
  /// @param line  its number among all lines, as the word index has it
  Line line(std::uint32_t line) const;

  const WordIndex& words() const { return m_words; }
  std::uint64_t files() const { return m_files.size(); }       ///< files begun
  std::uint64_t lines() const { return m_lines.size(); }       ///< lines added
  std::uint64_t occurrences() const { return m_occurrences; }  ///< words in them
  std::uint64_t textBytes() const { return m_textBytes; }      ///< bytes of the lines
  /// Bytes that the process itself keeps.
  std::uint64_t memoryBytes() const { return m_words.memoryBytes(); }

 private:
  struct LineRecord {
    QRTVirtualPageItem text;   // a stored string; empty for an empty line
    std::uint32_t file = 0;    // its number among the files
    std::uint32_t number = 0;  // see Line
  };

  QRTVirtualMemoryMgr& m_manager;                // not owned
  QRTVirtualVector<QRTVirtualPageItem> m_files;  // paths, as stored strings
  QRTVirtualVector<LineRecord> m_lines;          // the lines
  WordIndex m_words;                             // which lines hold which words
  std::uint64_t m_occurrences = 0;               // words in the lines
  std::uint64_t m_textBytes = 0;                 // bytes of the lines
};

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_CONCORDANCE_H
