#include "Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "ByteSize.h"
#include "CheckedBy.h"
#include "MemoryPlan.h"

namespace example {

namespace {

constexpr const char* kDescription =
    "Sorts the lines of files that are larger than memory, as LC_ALL=C sort does: sorted runs go\n"
    "into virtual files, which a merge brings together.\n";

constexpr const char* kFooter =
    "\nExamples:\n"
    "  externalsort                                  1 GiB of this machine's word and package "
    "lists\n"
    "  externalsort --size 100M --compress           less of it, runs compressed\n"
    "  externalsort --budget 4M --output sorted big.txt more.txt\n"
    "\nThe result is checked whether or not it is written. The paging file goes to the directory "
    "that\n"
    "TMPDIR names, else to /tmp.\n"
    "\nExit status: 0 sorted, 1 a failure, 2 wrong arguments or nothing to sort.";

constexpr int kWrongArguments = 2;
constexpr const char* kDefaultSize = "1G";

/// Refuses budgets that sorting cannot do with.
void checkBudget(const std::string& text) {
  if (parseBudget(text) < MemoryPlan::kLeastBudget) {
    throw std::invalid_argument("'" + text + "': sorting takes a budget of at least " +
                                formatBytes(MemoryPlan::kLeastBudget));
  }
}

/// Word lists and package lists, whatever this machine has of them.
std::vector<std::string> listsOfThisMachine() {
  namespace fs = std::filesystem;
  struct Place {
    const char* directory;
    const char* ending;
  };
  std::vector<std::string> files;
  for (const Place& place :
       {Place{"/usr/share/dict", ""}, Place{"/var/lib/apt/lists", "_Packages"},
        Place{"/var/lib/dpkg/info", ".list"}, Place{"/var/lib/dpkg/info", ".md5sums"}}) {
    std::error_code error;
    for (fs::directory_iterator at(place.directory, error), end; !error && at != end;
         at.increment(error)) {
      std::error_code ignored;
      if (at->is_regular_file(ignored) && at->path().string().ends_with(place.ending)) {
        files.push_back(at->path().string());
      }
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  std::string budget = "16M";
  std::string size;
  CLI::App app(kDescription, "externalsort");
  app.footer(kFooter);
  app.add_option("files", options.files,
                 "Files to sort; without any, the word and package lists of this machine")
      ->check(CLI::ExistingFile);
  app.add_option("--budget", budget, "Memory to sort with: bytes, or with K, M or G")
      ->check(checkedBy(checkBudget))
      ->capture_default_str();
  app.add_option("--size", size,
                 "Bytes to sort, repeating the files as often as that takes [all files once; "
                 "1G of the lists]")
      ->check(checkedBy(parseByteSize));
  app.add_flag("--compress", options.compress, "Compress the runs");
  app.add_option("--output", options.output, "Where to write the result [nowhere]");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error) == 0 ? 0 : kWrongArguments;
    return std::nullopt;
  }
  for (const std::string& file : options.files) {
    std::error_code ignored;
    if (std::filesystem::equivalent(options.output, file, ignored)) {
      std::cerr << "--output: '" << options.output << "' is to be sorted; write elsewhere\n";
      exitCode = kWrongArguments;
      return std::nullopt;
    }
  }
  options.budget = parseBudget(budget);
  if (options.files.empty()) {
    options.files = listsOfThisMachine();
    size = size.empty() ? kDefaultSize : size;
  }
  options.size = size.empty() ? 0 : parseByteSize(size);
  return options;
}

}  // namespace example
