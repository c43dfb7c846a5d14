// Plays the allocations of a real program through malloc and the three allocators, and compares
// time, memory from the system and waste.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "ByteSize.h"
#include "ExitStatus.h"
#include "NamelessFile.h"
#include "OccupancyChart.h"
#include "OutputFile.h"
#include "Replay.h"
#include "SourceFile.h"
#include "Trace.h"

namespace {

constexpr std::size_t kSamples = 400;

constexpr const char* kDescription =
    "Plays the allocations of a real program through malloc and the three allocators of the\n"
    "library and prints time, bytes from the system and waste.\n";

constexpr const char* kFooter =
    "\nWithout --trace or --record the program recorded is perl, counting the words of the\n"
    "package database and the licence texts of this system.\n"
    "\nExamples:\n"
    "  poolmap --svg run.svg                         the default trace, occupancy over time as "
    "SVG\n"
    "  poolmap --record git.trace -- git log --stat records a program, then plays it\n"
    "  poolmap --trace git.trace --map arena.svg     plays it again, draws the arena at its "
    "fullest\n"
    "\nExit status: 0 everything was played, 1 the trace could not be had or is damaged, or\n"
    "a file could not be written, 2 wrong arguments.";

// Words, their counts, and the lines they stand on: many small blocks of all ages.
constexpr const char* kDefaultProgram =
    "my (%count, %lines);"
    "while (<>) { for my $word (grep { length } split /\\W+/) { $count{lc $word}++;"
    " push @{$lines{lc $word}}, $. if length $word > 3 } }"
    "delete $lines{$_} for grep { $count{$_} > 50 } keys %count;"
    "my @top = sort { $count{$b} <=> $count{$a} || $a cmp $b } keys %count;"
    "print scalar(@top), ' words, most often \"', $top[0], qq{\"\\n};";

std::vector<std::string> defaultCommand() {
  std::vector<std::string> command{"perl", "-e", kDefaultProgram};
  for (const char* place : {"/var/lib/dpkg/status", "/usr/share/common-licenses"}) {
    std::error_code ignored;
    if (std::filesystem::is_regular_file(place, ignored)) {
      command.emplace_back(place);
    }
    for (const auto& entry : std::filesystem::directory_iterator(place, ignored)) {
      if (entry.is_regular_file(ignored)) {
        command.push_back(entry.path().string());
      }
    }
  }
  return command;
}

/// The recorder lies beside this program.
std::string recorderPath() {
  return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "libpoolmap_record.so")
      .string();
}

/// Runs a command with the recorder preloaded.
void recordTrace(const std::string& file, const std::vector<std::string>& command) {
  const std::string recorder = recorderPath();
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    setenv("LD_PRELOAD", recorder.c_str(), 1);
    setenv("POOLMAP_TRACE", file.c_str(), 1);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || WEXITSTATUS(status) == 127) {
    throw std::runtime_error(command.front() + " cannot be run.");
  }
}

double wasteOf(const example::ReplayResult& result, std::uint64_t peak) {
  return (static_cast<double>(result.peakSystem) / static_cast<double>(peak) - 1) * 100;
}

void print(const example::Trace& trace, const std::vector<example::ReplayResult>& results) {
  std::cout << example::formatCount(trace.allocations()) << " allocations, "
            << example::formatCount(trace.events().size() - trace.allocations()) << " frees, "
            << example::formatBytes(trace.bytes()) << " asked for, at most "
            << example::formatBytes(trace.peakBytes()) << " live at once\n\n"
            << std::left << std::setw(22) << "" << std::right << std::setw(12) << "ns per call"
            << std::setw(14) << "from system" << std::setw(9) << "waste" << std::setw(10)
            << "refused" << '\n';
  for (const example::ReplayResult& result : results) {
    std::cout << std::left << std::setw(22) << result.name << std::right;
    if (!result.isComplete) {
      std::cout << "  given up: took too long\n";
      continue;
    }
    std::cout << std::fixed << std::setprecision(1) << std::setw(12) << result.nsPerEvent
              << std::setw(14) << example::formatBytes(result.peakSystem) << std::setprecision(0)
              << std::setw(7) << wasteOf(result, trace.peakBytes()) << " %" << std::setw(10)
              << example::formatCount(result.refused) << '\n';
  }
}

struct Options {
  std::string trace;                 // to play
  std::string record;                // to record to and keep
  std::string svg;                   // occupancy over time
  std::string map;                   // the arena at its fullest
  std::uint64_t limit = 2000000;     // records to play
  unsigned rounds = 5;               // on the clock
  std::vector<std::string> command;  // to record
};

/// An output file, if the user named one. Opened before the work: what cannot be written is told
/// before a long run, not after it.
void openIfNamed(std::optional<example::OutputFile>& file, const std::string& name) {
  if (!name.empty()) {
    file.emplace(name);
  }
}

void copy(const std::string& from, example::OutputFile& to) {
  example::SourceFile source;
  std::vector<std::byte> buffer(std::size_t{1} << 16);
  std::uint64_t offset = 0;
  for (std::size_t got = source.openNamed(from) ? buffer.size() : 0; got == buffer.size();) {
    got = source.read(offset, buffer.data(), buffer.size());
    to.write({reinterpret_cast<const char*>(buffer.data()), got});
    offset += got;
  }
  if (!source.error().empty()) {
    throw std::runtime_error("the trace cannot be read back: " + source.error());
  }
}

example::Trace traceFor(const Options& options) {
  if (!options.trace.empty()) {
    return example::Trace::load(options.trace, options.limit);
  }
  std::optional<example::OutputFile> kept;
  openIfNamed(kept, options.record);
  const example::NamelessFile file;
  const std::vector<std::string> command =
      options.command.empty() ? defaultCommand() : options.command;
  recordTrace(file.path(), command);
  if (std::filesystem::file_size(file.path()) == 0) {
    throw std::runtime_error("nothing could be recorded of " + command.front() +
                             "; of a program that is linked statically nothing can.");
  }
  if (kept) {
    copy(file.path(), *kept);
    kept->finish();
  }
  return example::Trace::load(file.path(), options.limit);
}

void run(const Options& options) {
  std::optional<example::OutputFile> svg;
  std::optional<example::OutputFile> map;
  openIfNamed(svg, options.svg);
  openIfNamed(map, options.map);
  const example::Trace trace = traceFor(options);
  const std::vector<example::ReplayResult> results =
      example::replayAll(trace, options.rounds, kSamples, map.has_value());
  print(trace, results);
  if (svg) {
    std::ostringstream picture;
    example::drawOccupancy(picture, results);
    svg->write(picture.str());
    svg->finish();
  }
  if (map) {
    if (results.back().map.empty()) {
      throw std::runtime_error("there is no picture of the arena, which was given up.");
    }
    map->write(results.back().map);
    map->finish();
  }
}

/// @return the options, or none when `exitCode` says how to end
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode) {
  Options options;
  CLI::App app(kDescription, "poolmap");
  app.footer(kFooter);
  auto* const trace =
      app.add_option("--trace", options.trace, "Trace to play")->check(CLI::ExistingFile);
  app.add_option("--record", options.record, "Trace to record first")->excludes(trace);
  app.add_option("--svg", options.svg, "Picture of occupancy over time to write");
  app.add_option("--map", options.map, "Picture of the arena at its fullest to write");
  app.add_option("--limit", options.limit, "Records to play at most")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Rounds on the clock, the best counts")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("command", options.command, "Program to record, with its arguments, behind --");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    exitCode = app.exit(error) == 0 ? 0 : 2;
    return std::nullopt;
  }
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    int exitCode = 0;
    const std::optional<Options> options = parseOptions(argc, argv, exitCode);
    if (options) {
      run(*options);
    }
    return example::exitStatus("poolmap", exitCode);
  } catch (const std::exception& error) {
    std::cerr << "poolmap: " << error.what() << '\n';
    return 1;
  }
}
