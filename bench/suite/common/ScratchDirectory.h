#ifndef BENCH_SUITE_COMMON_SCRATCHDIRECTORY_H
#define BENCH_SUITE_COMMON_SCRATCHDIRECTORY_H

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace suite {

/// A new directory for files, which TMPDIR names from then on. It goes with the object, and also
/// when the process fails, crashes or is killed: a child process waits for the end of this one.
class ScratchDirectory {
 public:
  /// @param parent  where the directory is made
  /// @throws std::system_error when it cannot be made, or no process to watch over it
  explicit ScratchDirectory(const std::filesystem::path& parent);
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

 private:
  int m_alive = -1;  // end of a pipe; when it is closed, the child tidies up
  pid_t m_child = -1;
};

/// The path of a file in that directory.
inline std::string scratchPath(const char* name) {
  return (std::filesystem::temp_directory_path() / name).string();
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_SCRATCHDIRECTORY_H
