// Plays the allocations of a real program through malloc and the three allocators, and compares
// time, memory from the system and waste.

#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ByteSize.h"
#include "OccupancyChart.h"
#include "Replay.h"
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
    "\nExit status: 0 everything was played, 1 the trace could not be had or is damaged,\n"
    "2 wrong arguments.";

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

/// A trace file that is removed at the end unless the user named it.
class TraceFile {
 public:
  explicit TraceFile(const std::string& name)
      : m_name(!name.empty() ? name
                             : (std::filesystem::temp_directory_path() /
                                ("poolmap-" + std::to_string(getpid()) + ".trace"))
                                   .string()),
        m_isTemporary(name.empty()) {}
  ~TraceFile() {
    std::error_code ignored;
    if (m_isTemporary) {
      std::filesystem::remove(m_name, ignored);
    }
  }
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  const std::string& name() const { return m_name; }

 private:
  std::string m_name;
  bool m_isTemporary;
};

example::Trace traceFor(const Options& options) {
  if (!options.trace.empty()) {
    return example::Trace::load(options.trace, options.limit);
  }
  const TraceFile file(options.record);
  recordTrace(file.name(), options.command.empty() ? defaultCommand() : options.command);
  return example::Trace::load(file.name(), options.limit);
}

void run(const Options& options) {
  const example::Trace trace = traceFor(options);
  const std::vector<example::ReplayResult> results =
      example::replayAll(trace, options.rounds, kSamples, options.map);
  print(trace, results);
  if (!options.svg.empty()) {
    std::ofstream os(options.svg);
    example::drawOccupancy(os, results);
    if (!os.flush()) {
      throw std::runtime_error(options.svg + " cannot be written.");
    }
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
    return exitCode;
  } catch (const std::exception& error) {
    std::cerr << "poolmap: " << error.what() << '\n';
    return 1;
  }
}
