#include <exception>
#include <iostream>
#include <optional>

#include "ConcordanceRun.h"
#include "ExitStatus.h"
#include "Options.h"

/// Finds words in more text than the memory budget holds.
int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    const std::optional<example::Options> options = example::parseOptions(argc, argv, exitCode);
    return example::exitStatus("concordance",
                               options ? example::ConcordanceRun(*options).run() : exitCode);
  } catch (const std::exception& error) {
    std::cerr << "concordance: " << error.what() << '\n';
    return 1;
  }
}
