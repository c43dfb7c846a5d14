#include <exception>
#include <iostream>
#include <optional>

#include "ExitStatus.h"
#include "FileStoreRun.h"
#include "Options.h"

/// Shows the store at work on real files many times larger than its memory budget.
int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    const std::optional<example::Options> options = example::parseOptions(argc, argv, exitCode);
    return example::exitStatus("filestore",
                               options ? example::FileStoreRun(*options).run() : exitCode);
  } catch (const std::exception& error) {
    std::cerr << "filestore: " << error.what() << '\n';
    return 1;
  }
}
