#ifndef EXAMPLES_COMMON_OUTPUTFILE_H
#define EXAMPLES_COMMON_OUTPUTFILE_H

#include <string>
#include <string_view>

namespace example {

/// A file being written, or standard output.
///
/// A regular file is written under a fresh name beside it, which nobody can guess or have put
/// there, and takes its own name once it is complete: until then, and when writing fails, what
/// stood there before stays. Its permissions are those of the file it replaces. Anything else
/// (a device, a pipe, a symbolic link) is opened and written in place, never replaced. Opening a
/// named pipe waits for its reader.
class OutputFile {
 public:
  /// @param path  the file; empty for standard output
  /// @throws std::runtime_error, naming the file, when it cannot be made or opened
  explicit OutputFile(const std::string& path);

  /// Removes the fresh file unless `finish` was reached.
  ~OutputFile();

  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Writes at once: callers collect small pieces.
  /// @throws std::runtime_error when not all of the text can be written
  void write(std::string_view text);

  /// Completes the file: closes it and gives it its name. Standard output stays open.
  /// @throws std::runtime_error when it cannot be completed; what stood there before stays then
  void finish();

 private:
  void openInPlace();
  void openBeside();
  void close();
  [[noreturn]] void raise() const;

  std::string m_path;     // the file; empty for standard output
  std::string m_fresh;    // the name it has until it is complete; empty when written in place
  int m_descriptor = -1;  // the system's handle; -1 once closed
};

}  // namespace example

#endif  // EXAMPLES_COMMON_OUTPUTFILE_H
