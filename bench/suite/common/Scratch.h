#ifndef BENCH_SUITE_COMMON_SCRATCH_H
#define BENCH_SUITE_COMMON_SCRATCH_H

#include <filesystem>
#include <functional>

namespace suite {

/// Runs `work` in a child process that has a new directory for its files. The directory goes when
/// the child has ended, also when it failed, crashed or was killed; the child goes with its parent.
/// @param parent  where the directory is made
/// @param work    gets the directory
/// @return the status to exit with: the child's, or 128 and the signal that killed it
/// @throws std::filesystem::filesystem_error, std::system_error when it cannot be started
int runInScratchDirectory(const std::filesystem::path& parent,
                          const std::function<void(const std::filesystem::path&)>& work);

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_SCRATCH_H
