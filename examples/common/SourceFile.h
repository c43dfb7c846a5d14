#ifndef EXAMPLES_COMMON_SOURCEFILE_H
#define EXAMPLES_COMMON_SOURCEFILE_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace example {

/// What the file system says about a file or directory.
struct FileStatus {
  std::uint64_t device = 0;    ///< with `inode`: which file it is, whatever its name
  std::uint64_t inode = 0;     ///< see `device`
  std::uint64_t links = 0;     ///< names the file has
  std::uint64_t size = 0;      ///< bytes
  std::int64_t modified = 0;   ///< time of the last change, in nanoseconds
  bool isDirectory = false;    ///< whether it is a directory
  bool isRegularFile = false;  ///< whether it is a regular file
};

/// Asks for the status of `path` itself, a symbolic link not followed.
/// @param error  receives the system's message on failure
/// @return whether the status could be had
bool readStatus(const std::string& path, FileStatus& status, std::string& error);

/// A regular file, open for reading. Anything else is refused, a symbolic link included: what has
/// to be waited for, a pipe or a device, would hold a program up for good. For the same reason
/// reading never waits, not even for those of the system's own files that pass for regular ones.
class SourceFile {
 public:
  SourceFile() = default;
  ~SourceFile();

  SourceFile(const SourceFile&) = delete;
  SourceFile& operator=(const SourceFile&) = delete;

  /// Opens a file; on failure `error()` tells why.
  bool open(const std::string& path);

  /// Opens what a user named, which may be a link to a file; on failure `error()` tells why.
  bool openNamed(const std::string& path);

  /// Hands the system's handle over, which is the caller's to close then; -1 when none is open.
  int release();

  /// Asks for the status of the open file; on failure `error()` tells why.
  bool readStatus(FileStatus& status);

  /// Reads up to `size` bytes at `offset`; fewer only at the end of the file or on an error.
  /// @return the bytes read
  std::size_t read(std::uint64_t offset, std::byte* buffer, std::size_t size);

  /// The system's message for the first failure since `open`; empty when nothing failed.
  const std::string& error() const { return m_error; }

 private:
  bool openWith(const std::string& path, int flags);
  void close();

  int m_descriptor = -1;  // the system's handle; -1 when no file is open
  std::string m_error;    // why the first failing operation failed
};

}  // namespace example

#endif  // EXAMPLES_COMMON_SOURCEFILE_H
