#include "Options.h"

#include <CLI/CLI.hpp>

#include "ByteSize.h"
#include "CheckedBy.h"

namespace example {

namespace {

constexpr const char* kDescription =
    "Stores every regular file under the directories in a store that keeps only the budget in\n"
    "memory, reads everything back in random order, compares it with the files, updates a tenth\n"
    "of the objects and verifies everything again.\n";

constexpr const char* kFooter =
    "\nExamples:\n"
    "  filestore                              /usr/share through 16 MiB of memory\n"
    "  filestore --budget 4M /usr/lib         less memory, other files\n"
    "  filestore --seed 7 /usr/share /etc     two directories, another order and other updates\n"
    "\nThe paging file goes to the directory that TMPDIR names, else to /tmp.\n"
    "\nExit status: 0 every object came back intact, 1 a mismatch or a failure of the store,\n"
    "2 wrong arguments or nothing to store.";

constexpr int kWrongArguments = 2;

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  std::string budget = "16M";
  CLI::App app(kDescription, "filestore");
  app.footer(kFooter);
  app.add_option("directories", options.directories, "Directories whose files to store")
      ->check(CLI::ExistingDirectory)
      ->capture_default_str();
  app.add_option("--budget", budget, "Memory the store may use: bytes, or with K, M or G")
      ->check(checkedBy(parseBudget))
      ->capture_default_str();
  app.add_option("--seed", options.seed, "Decides the random order and the updates")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error) == 0 ? 0 : kWrongArguments;
    return std::nullopt;
  }
  options.budget = parseBudget(budget);
  return options;
}

}  // namespace example
