#include "Options.h"

#include <CLI/CLI.hpp>

#include "ByteSize.h"
#include "CheckedBy.h"
#include "Words.h"

namespace example {

namespace {

constexpr const char* kDescription =
    "Reads text files, plain or compressed by gzip, keeps every line and every distinct word as a\n"
    "stored string in a store that holds only the budget in memory, and prints the lines that "
    "hold\n"
    "a word, the word in its context. Files with zero bytes are taken for binary and passed "
    "over.\n";

constexpr const char* kFooter =
    "\nExamples:\n"
    "  concordance -w liability               a word in the documentation under /usr/share/doc\n"
    "  concordance -w page -w memory --limit 50 src/ README.md\n"
    "                                         two words in files of one's own\n"
    "  concordance --budget 4M                less memory; without a word the most frequent ones\n"
    "\nThe paging file goes to the directory that TMPDIR names, else to /tmp.\n"
    "\nExit status: 0 all was read and every word was found, 1 a word that no line holds or a\n"
    "failure of the store, 2 wrong arguments or no text.";

constexpr int kWrongArguments = 2;

std::string wordError(const std::string& text) {
  return singleWord(text).empty() ? "'" + text + "' is not one word of letters" : std::string();
}

}  // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  std::string budget = "16M";
  CLI::App app(kDescription, "concordance");
  app.footer(kFooter);
  app.add_option("paths", options.paths, "Files, and directories whose files, to read")
      ->check(CLI::ExistingPath)
      ->capture_default_str();
  app.add_option("-w,--word", options.words, "A word whose lines to print; may be given again")
      ->check(CLI::Validator(wordError, "WORD"))
      ->allow_extra_args(false);
  app.add_option("--limit", options.limit, "Most lines to print for a word")->capture_default_str();
  app.add_option("--budget", budget, "Memory the store may use: bytes, or with K, M or G")
      ->check(checkedBy(parseBudget))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error) == 0 ? 0 : kWrongArguments;
    return std::nullopt;
  }
  options.budget = parseBudget(budget);
  for (std::string& word : options.words) {
    word = singleWord(word);
  }
  return options;
}

}  // namespace example
