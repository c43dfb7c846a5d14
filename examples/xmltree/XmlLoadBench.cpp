// Loads the same XML files in three ways, in turn and several times over, each time in a process of
// its own so that its peak memory can be told, and prints the medians:
//   parser    the parser with handlers that do nothing
//   xmltree   into a store with a budget of 16 MiB
//   pugixml   into trees in memory, all of them kept, as the store keeps them
//
//   xml_bench [--rounds N] directory...

#include <expat.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <pugixml.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "DocumentStore.h"
#include "FilePieces.h"
#include "SourceList.h"

namespace {

using example::SourceList;

void parseOnly(const SourceList& list) {
  for (const example::Source& source : list.sources()) {
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr),
                                                                         XML_ParserFree);
    XML_SetElementHandler(
        parser.get(), [](void*, const XML_Char*, const XML_Char**) {},
        [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser.get(), [](void*, const XML_Char*, int) {});
    XML_SetCommentHandler(parser.get(), [](void*, const XML_Char*) {});
    example::FilePieces file(source.path);
    for (std::string_view piece = file.next();; piece = file.next()) {
      const int last = piece.empty() ? 1 : 0;
      if (XML_Parse(parser.get(), piece.data(), static_cast<int>(piece.size()), last) == 0) {
        throw std::runtime_error(source.path + " is malformed");
      }
      if (last != 0) {
        break;
      }
    }
  }
}

void loadIntoStore(const SourceList& list) {
  example::DocumentStore store(16U << 20);
  for (const example::Source& source : list.sources()) {
    store.load(source.path, [](std::uint64_t) {});
  }
}

void loadIntoMemory(const SourceList& list) {
  std::vector<std::unique_ptr<pugi::xml_document>> documents;
  for (const example::Source& source : list.sources()) {
    documents.push_back(std::make_unique<pugi::xml_document>());
    if (!documents.back()->load_file(source.path.c_str(),
                                     pugi::parse_full | pugi::parse_ws_pcdata)) {
      throw std::runtime_error(source.path + " is malformed");
    }
  }
}

struct Way {
  const char* name;
  void (*load)(const SourceList&);
  std::vector<double> seconds{};
  std::vector<double> processorSeconds{};
  std::vector<double> peakMebibytes{};
};

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// Runs a way in a child process and notes what it took.
void measure(Way& way, const SourceList& list) {
  const auto begun = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    int status = 0;
    try {
      way.load(list);
    } catch (const std::exception& error) {
      std::cerr << error.what() << '\n';
      status = 1;
    }
    std::_Exit(status);
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
    throw std::runtime_error(std::string(way.name) + " failed");
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begun;
  way.seconds.push_back(elapsed.count());
  way.processorSeconds.push_back(secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime));
  way.peakMebibytes.push_back(static_cast<double>(usage.ru_maxrss) / 1024);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

void run(const std::vector<std::string>& arguments) {
  SourceList list;
  int rounds = 7;
  for (std::size_t number = 0; number < arguments.size(); ++number) {
    if (arguments[number] == "--rounds" && number + 1 < arguments.size()) {
      rounds = std::max(1, std::atoi(arguments[++number].c_str()));
    } else {
      list.add(arguments[number]);
    }
  }
  if (list.sources().empty()) {
    throw std::runtime_error("usage: xml_bench [--rounds N] directory...");
  }
  const double megabytes = static_cast<double>(list.bytes()) / 1e6;
  std::printf("%zu files, %.1f MB, medians of %d rounds\n", list.sources().size(), megabytes,
              rounds);
  std::array<Way, 3> ways{Way{"parser", parseOnly}, Way{"xmltree", loadIntoStore},
                          Way{"pugixml", loadIntoMemory}};
  for (int round = 0; round <= rounds; ++round) {
    for (Way& way : ways) {
      measure(way, list);
      if (round == 0) {  // warms the page cache up
        way = Way{way.name, way.load};
      }
    }
  }
  const double reference = median(ways[0].processorSeconds);
  std::printf("%-8s %8s %8s %10s %12s %10s\n", "", "s", "MB/s", "CPU s", "CPU/parser", "peak MiB");
  for (const Way& way : ways) {
    const double seconds = median(way.seconds);
    const double processor = median(way.processorSeconds);
    std::printf("%-8s %8.2f %8.0f %10.2f %12.2f %10.1f\n", way.name, seconds, megabytes / seconds,
                processor, processor / reference, median(way.peakMebibytes));
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& error) {
    std::cerr << "xml_bench: " << error.what() << '\n';
    return 1;
  }
}
