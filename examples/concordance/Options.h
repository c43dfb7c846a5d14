#ifndef EXAMPLES_CONCORDANCE_OPTIONS_H
#define EXAMPLES_CONCORDANCE_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace example {

/// What the user asked for.
struct Options {
  std::vector<std::string> paths{"/usr/share/doc"};  ///< files, and directories of files, to read
  std::vector<std::string> words;                    ///< whose lines to print, in lower case
  unsigned int budget = 16U << 20;                   ///< the store's memory budget in bytes
  std::uint32_t limit = 10;                          ///< most lines to print for a word
};

/// Reads the command line; writes help or an error message itself.
/// @param exitCode  receives the code to end with when there is nothing to run
/// @return the options, or nothing when the program is to end
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_OPTIONS_H
