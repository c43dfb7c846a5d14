#ifndef EXAMPLES_FILESTORE_OPTIONS_H
#define EXAMPLES_FILESTORE_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace example {

/// What the user asked for.
struct Options {
  std::vector<std::string> directories{"/usr/share"};  ///< whose files to store
  unsigned int budget = 16U << 20;                     ///< the store's memory budget in bytes
  std::uint64_t seed = 1;                              ///< decides orders and updates
};

/// Reads the command line; writes help or an error message itself.
/// @param exitCode  receives the code to end with when there is nothing to run
/// @return the options, or nothing when the program is to end
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace example

#endif  // EXAMPLES_FILESTORE_OPTIONS_H
