#ifndef EXAMPLES_CONCORDANCE_LINEREADER_H
#define EXAMPLES_CONCORDANCE_LINEREADER_H

#include <zlib.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace example {

/// Reads a text file, plain or compressed by gzip, line by line through one buffer. A line longer
/// than kLongestLine comes in pieces, so that memory stays bounded whatever the file holds.
class LineReader {
 public:
  static constexpr std::size_t kLongestLine = std::size_t{64} * 1024;

  LineReader();
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Opens a file; on failure `error()` tells why.
  bool open(const std::string& path);

  /// Whether the beginning of the file has zero bytes, which text has not.
  bool isBinary() const { return m_isBinary; }

  /// Gives the next line, without its end, or the next piece of a long one.
  /// @param line  valid until the next call
  /// @return whether there was one; at the end `error()` tells whether it is the file's
  bool next(std::string_view& line);

  /// Number of the line that `next` gave, from 1.
  std::uint32_t lineNumber() const { return m_lineNumber; }

  /// Bytes read so far, decompressed.
  std::uint64_t bytes() const { return m_bytes; }

  /// Why reading stopped; empty when nothing failed.
  const std::string& error() const { return m_error; }

 private:
  void close();
  void fill();

  gzFile m_file = nullptr;           // zlib's handle, which reads plain files as well
  std::unique_ptr<char[]> m_buffer;  // kLongestLine bytes
  std::size_t m_at = 0;              // first byte in the buffer that was not given yet
  std::size_t m_end = 0;             // end of the bytes in the buffer
  bool m_ended = false;              // whether the file has no more
  bool m_isBinary = false;           // see isBinary
  bool m_inLine = false;             // whether the last piece did not end its line
  std::uint32_t m_lineNumber = 0;    // of the line given last
  std::uint64_t m_bytes = 0;         // read so far
  std::string m_error;               // why reading stopped
};

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_LINEREADER_H
