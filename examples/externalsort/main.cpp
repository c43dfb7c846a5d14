#include <exception>
#include <iostream>
#include <optional>

#include "ExitStatus.h"
#include "ExternalSort.h"
#include "Options.h"

/// Sorts files larger than memory through virtual files.
int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    const std::optional<example::Options> options = example::parseOptions(argc, argv, exitCode);
    if (!options) {
      return example::exitStatus("externalsort", exitCode);
    }
    example::ExternalSort sort(*options);
    try {
      return example::exitStatus("externalsort", sort.run());
    } catch (const std::exception& error) {
      std::cerr << "externalsort: " << error.what() << '\n';
      if (*sort.storeError() != '\0') {
        std::cerr << "the store: " << sort.storeError() << '\n';
      }
    }
  } catch (const std::exception& error) {
    std::cerr << "externalsort: " << error.what() << '\n';
  }
  return 1;
}
