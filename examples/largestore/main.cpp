// Fills one store with more than a 32-bit process can address, and verifies, edits and verifies it
// again, while the process may not map more than a few hundred MiB.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "ByteSize.h"
#include "CheckedBy.h"
#include "ExitStatus.h"
#include "Files.h"
#include "HostProcess.h"
#include "NodeTree.h"
#include "PlainObjects.h"
#include "QRTVirtualMemoryMgr.h"
#include "ResultTable.h"
#include "Stopwatch.h"
#include "StoreStatistics.h"
#include "Texts.h"

namespace {

using namespace example;

constexpr int kWrongArguments = 2;
constexpr int kSkipped = 77;

struct Options {
  std::string size = "12G";
  std::string budget = "64M";
  std::string limit = "256M";
};

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", value);
  return text;
}

/// Runs one step for every kind of content and adds a row for each to the table.
template <typename Step>
void forEach(const std::vector<std::unique_ptr<Content>>& contents, const char* what,
             ResultTable& table, Step step) {
  for (const auto& content : contents) {
    std::cerr << what << ' ' << content->name() << '\n';
    Stopwatch watch;
    watch.start();
    step(*content);
    watch.stop();
    table.add(std::string(what) + ", " + content->name(), seconds(watch.seconds()),
              formatSpeed(content->bytes(), watch.seconds()));
  }
}

int run(const Options& options) {
  const std::uint64_t size = parseByteSize(options.size);
  const std::uint64_t limit = parseByteSize(options.limit);
  const auto directory = std::filesystem::temp_directory_path();
  const std::uint64_t room = std::filesystem::space(directory).available;
  if (size > room - room / 5) {
    std::cerr << "largestore: skipped, " << formatBytes(size)
              << " and a quarter more are needed in " << directory << ", which has "
              << formatBytes(room) << '\n';
    return kSkipped;
  }
  if (limit != 0 && !limitMappedBytes(limit)) {
    std::cerr << "largestore: the system does not limit the process; its table still tells\n";
  }

  ResultTable table;
  QRTVirtualMemoryMgr manager(parseBudget(options.budget));
  std::vector<std::unique_ptr<Content>> contents;
  contents.push_back(std::make_unique<PlainObjects>(manager));
  contents.push_back(std::make_unique<NodeTree>(manager));
  contents.push_back(std::make_unique<Texts>(manager));
  contents.push_back(std::make_unique<Files>(manager));

  table.add("width of the process", std::to_string(8 * sizeof(void*)) + " bits");
  forEach(contents, "build", table,
          [&](Content& content) { content.build(size / contents.size()); });
  forEach(contents, "verify", table, [](Content& content) { content.verify(); });
  forEach(contents, "edit", table, [](Content& content) { content.edit(); });
  forEach(contents, "verify edited", table, [](Content& content) { content.verify(); });

  std::uint64_t bytes = 0;
  for (const auto& content : contents) {
    table.add(content->name(), formatCount(content->count()), formatBytes(content->bytes()));
    bytes += content->bytes();
  }
  const StoreStatistics statistics = readStatistics(manager);
  const std::uint64_t mapped = peakMappedBytes();
  table.add("bytes stored", formatBytes(bytes));
  table.add("memory budget", formatBytes(parseBudget(options.budget)));
  table.add("page size", formatBytes(statistics.pageSize));
  table.add("paging file", formatBytes(statistics.pagingFileSize));
  table.add("pages read", formatCount(statistics.pageReads));
  table.add("pages written", formatCount(statistics.pageWrites),
            formatCount(statistics.writesSaved()) + " writes saved");
  table.add("most ever mapped", formatBytes(mapped),
            limit != 0 ? "of " + formatBytes(limit) + " allowed" : "");
  table.add("most ever resident", formatBytes(peakResidentBytes()));
  table.print(std::cout, standardOutputColumns());
  return statistics.pinnedObjects == 0 && (limit == 0 || mapped <= limit) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Fills a store with more than a 32-bit process can address and verifies it.");
    Options options;
    app.footer(
        "\nExit status: 0 all came back, 1 a failure, 2 wrong arguments, 77 no room for it.");
    app.add_option("--size", options.size, "Bytes to store, at least")
        ->check(checkedBy(parseByteSize))
        ->capture_default_str();
    app.add_option("--budget", options.budget, "Memory budget of the store")
        ->check(checkedBy(parseBudget))
        ->capture_default_str();
    app.add_option("--limit", options.limit, "Memory the process may map; 0 for no limit")
        ->check(checkedBy(parseByteSize))
        ->capture_default_str();
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return exitStatus("largestore", app.exit(error) == 0 ? 0 : kWrongArguments);
    }
    return exitStatus("largestore", run(options));
  } catch (const std::exception& error) {
    std::cerr << "largestore: " << error.what() << '\n';
    return 1;
  }
}
