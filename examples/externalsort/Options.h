#ifndef EXAMPLES_EXTERNALSORT_OPTIONS_H
#define EXAMPLES_EXTERNALSORT_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace example {

/// What the user asked for.
struct Options {
  std::vector<std::string> files;   ///< what to sort
  std::uint64_t size = 0;           ///< bytes to sort, repeating the files; 0 for all files once
  unsigned int budget = 16U << 20;  ///< memory to sort with, in bytes
  bool compress = false;            ///< whether runs are compressed
  std::string output;               ///< where the result goes; empty for nowhere
};

/// Reads the command line; writes help or an error message itself.
/// @param exitCode  receives the code to end with when there is nothing to run
/// @return the options, or nothing when the program is to end
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_OPTIONS_H
