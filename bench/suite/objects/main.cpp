// Compares the store with other ways to keep objects. One run measures one peer at one workload and
// size, and prints a line for each figure; what it measured it has also checked.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ByteSize.h"
#include "common/Figure.h"
#include "common/Scratch.h"
#include "objects/Peer.h"

namespace objects {

namespace {

using Measure = void (*)(const Settings&);

/// What measures a peer at a workload; null when it takes no part.
Measure measureOf(const Peer& peer, const std::string& workload) {
  if (workload == "hotpin" || workload == "dependent") {
    return peer.resident;
  }
  return workload == "paging" ? peer.paging : workload == "churn" ? peer.churn : peer.growth;
}

const CLI::IsMember kIsWorkload({"hotpin", "dependent", "churn", "paging", "growth"});

std::uint64_t parseCount(const std::string& text) {
  char* end = nullptr;
  const double count = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !(count >= 1 && count < 0x1p32) ||
      count != std::floor(count)) {
    throw CLI::ValidationError("--objects", "takes 1 to 4e9, such as 1000000 or 1e6: " + text);
  }
  return static_cast<std::uint64_t>(count);
}

/// Gives the defaults to what was left open, which depend on the workload.
void complete(Settings& settings) {
  const bool paged =
      settings.workload == "paging" || (settings.workload == "growth" && settings.objects == 0);
  if (!paged) {
    settings.bytes = 0;
    if (settings.objects == 0) {
      settings.objects = 1'000'000;
    }
  } else if (settings.bytes == 0) {
    settings.bytes = settings.workload == "paging" ? 2ULL << 30 : 64ULL << 20;
  }
  if (settings.budget == 0) {
    settings.budget = settings.workload == "paging"   ? 256ULL << 20
                      : settings.workload == "growth" ? 64ULL << 20
                                                      : settings.objects * 160 + (256ULL << 20);
  }
  if (paged && (settings.bytes % 4096 != 0 || settings.bytes >= 1ULL << 40)) {
    throw CLI::ValidationError("--bytes", "takes a multiple of 4K below 1024G");
  }
}

void listPeers(const std::string& workload) {
  for (const Peer& peer : peers()) {
    if (measureOf(peer, workload) != nullptr) {
      std::printf("%s\n", std::string(peer.name).c_str());
    }
  }
}

Measure find(const Settings& settings) {
  for (const Peer& peer : peers()) {
    if (peer.name == settings.peer && measureOf(peer, settings.workload) != nullptr) {
      return measureOf(peer, settings.workload);
    }
  }
  throw CLI::ValidationError("--peer", "is none for " + settings.workload + ": " + settings.peer);
}

int run(int argc, char** argv) {
  CLI::App app("Compares the store with other ways to keep objects.", "suite_objects");
  Settings settings;
  std::string list;
  std::string objects;
  std::string bytes;
  std::string budget;
  const char* const temporary = std::getenv("TMPDIR");
  std::string directory = temporary != nullptr && *temporary != '\0' ? temporary : "/tmp";
  settings.seconds = 5;
  app.add_option("--peers", list, "Print the peers of a workload, one a line")->check(kIsWorkload);
  app.add_option("--workload", settings.workload, "What to measure")->check(kIsWorkload);
  app.add_option("--peer", settings.peer, "Whom to measure");
  app.add_option("--objects", objects, "How many objects, such as 1e6; all stay in memory");
  app.add_option("--bytes", bytes, "Bytes of all objects, such as 2G, for paging and growth");
  app.add_option("--budget", budget, "Bytes of memory the peer may use [256M, for growth 64M]");
  app.add_option("--seconds", settings.seconds, "After which a phase ends")
      ->capture_default_str()
      ->check(CLI::NonNegativeNumber);
  app.add_option("--directory", directory, "Where files go, removed afterwards")
      ->capture_default_str()
      ->check(CLI::ExistingDirectory);
  try {
    app.parse(argc, argv);
    if (settings.workload == "churn" || list == "churn") {
      registerHeaps();
    }
    if (!list.empty()) {
      listPeers(list);
      return EXIT_SUCCESS;
    }
    if (settings.workload.empty() || settings.peer.empty()) {
      throw CLI::RequiredError("--workload and --peer, or --peers");
    }
    settings.objects = objects.empty() ? 0 : parseCount(objects);
    settings.bytes = bytes.empty() ? 0 : example::parseByteSize(bytes);
    settings.budget = budget.empty() ? 0 : example::parseByteSize(budget);
    complete(settings);
    const Measure measure = find(settings);
    return suite::runInScratchDirectory(directory, [&](const std::filesystem::path& scratch) {
      settings.directory = scratch;
      ::setenv("TMPDIR", scratch.c_str(), 1);  // the store's paging file goes there as well
      measure(settings);
    });
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  }
}

}  // namespace

}  // namespace objects

int main(int argc, char** argv) {
  // A heap that is loaded at run time needs more room for its thread's own data than is set aside.
  constexpr const char* kTunables = "GLIBC_TUNABLES";
  if (std::getenv(kTunables) == nullptr) {
    ::setenv(kTunables, "glibc.rtld.optional_static_tls=16384", 1);
    ::execv("/proc/self/exe", argv);
  }
  try {
    return objects::run(argc, argv);
  } catch (const std::exception& error) {
    suite::fail(error.what());
  }
}
