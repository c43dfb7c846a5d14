#ifndef BENCH_SUITE_COMMON_SCRATCH_H
#define BENCH_SUITE_COMMON_SCRATCH_H

#include <filesystem>
#include <functional>
#include <string>

namespace suite {

/// Runs `work` in a child process that has a new directory for its files, which TMPDIR names there.
/// The directory goes when the child has ended, also when it failed, crashed or was killed; the
/// child goes with its parent, and a signal that ends the child ends the parent as well.
/// @param parent  where the directory is made
/// @return the status to exit with: the child's
/// @throws std::filesystem::filesystem_error, std::system_error when it cannot be started
int runInScratchDirectory(const std::filesystem::path& parent, const std::function<void()>& work);

/// The path of a file in that directory.
inline std::string scratchPath(const char* name) {
  return (std::filesystem::temp_directory_path() / name).string();
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_SCRATCH_H
