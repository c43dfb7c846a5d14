#ifndef EXAMPLES_EXTERNALSORT_SORTEDRUN_H
#define EXAMPLES_EXTERNALSORT_SORTEDRUN_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "MemoryPlan.h"
#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"

namespace example {

/// Sorted lines in a virtual file. A line is stored with a newline behind it.
class SortedRun {
 public:
  /// @param manager   holds the pages; outlives the run
  SortedRun(QRTVirtualMemoryMgr& manager, const MemoryPlan& plan, bool compress);

  /// Adds a line behind the others.
  void add(std::string_view line);

  /// Ends the adding. @throws what the store raises when it is full
  void close();

  std::uint64_t plainBytes() const { return m_plainBytes; }
  std::uint64_t storedBytes() { return static_cast<unsigned int>(m_file.getLength()); }

 private:
  friend class RunReader;

  void write();

  QRTVirtualFile m_file;
  bool m_compress;                 // whether the file compresses
  std::vector<char> m_waiting;     // lines to be written in one piece, a page at most
  std::uint64_t m_plainBytes = 0;  // bytes of all lines
};

/// The lines of a closed run from its beginning.
class RunReader {
 public:
  RunReader(SortedRun& run, const MemoryPlan& plan);

  /// Fetches the next line. @return false at the end
  bool next();

  /// The line that `next` fetched, valid until it is called again, and its key.
  std::string_view line() const { return m_line; }
  std::uint64_t key() const { return m_key; }

 private:
  bool fill();

  QRTVirtualFile& m_file;
  std::unique_ptr<QRTVirtualFileGZIPReader> m_reader;  // null for a run that is not compressed
  std::vector<char> m_buffer;                          // grows for a line that does not fit
  std::size_t m_begin = 0;                             // first byte not given yet
  std::size_t m_end = 0;                               // behind the last byte read
  std::string_view m_line;
  std::uint64_t m_key = 0;
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_SORTEDRUN_H
