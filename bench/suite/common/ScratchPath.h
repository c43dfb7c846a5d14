#ifndef BENCH_SUITE_COMMON_SCRATCHPATH_H
#define BENCH_SUITE_COMMON_SCRATCHPATH_H

#include <unistd.h>

#include <filesystem>
#include <string>

namespace suite {

/// A path of this process's own where temporary files belong, for a file that is unlinked as soon
/// as it is open, so that nothing is left whatever happens.
inline std::string scratchPath() {
  return (std::filesystem::temp_directory_path() / ("suite-" + std::to_string(::getpid())))
      .string();
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_SCRATCHPATH_H
