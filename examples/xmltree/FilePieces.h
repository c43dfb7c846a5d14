#ifndef EXAMPLES_XMLTREE_FILEPIECES_H
#define EXAMPLES_XMLTREE_FILEPIECES_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "SourceFile.h"

namespace example {

/// Reads a file from its beginning to its end through one buffer.
class FilePieces {
 public:
  /// @throws XmlError when the file cannot be opened
  explicit FilePieces(const std::string& path);

  /// The next piece, good until the next call; empty at the end of the file.
  /// @throws XmlError when the file cannot be read
  std::string_view next();

 private:
  static constexpr std::size_t kPieceBytes = std::size_t{64} << 10;

  std::string m_path;                     // for errors
  SourceFile m_file;                      // open for reading
  std::uint64_t m_offset = 0;             // bytes read so far
  std::unique_ptr<std::byte[]> m_buffer;  // one piece
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_FILEPIECES_H
