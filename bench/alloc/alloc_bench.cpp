// Compares the allocators with malloc, mimalloc, jemalloc, Boost.Pool and std::pmr's pool: the same
// patterns in one run, nanoseconds for one allocate and one free, resident memory beside them.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "Patterns.h"
#include "Peers.h"

namespace {

std::size_t residentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Resident memory that a pattern costs, printed by a process of its own: what other benchmarks
/// left in the heaps would hide it.
template <class Pattern, class Allocator>
void printResident() {
  Pattern pattern;
  const std::size_t before = residentBytes();
  Allocator allocator(64);
  pattern.fill(allocator);
  pattern.run(allocator);
  std::cout << residentBytes() - before << std::endl;
  pattern.empty(allocator);
}

std::map<std::string, void (*)()> g_residents;  // what such a process does, by benchmark name
const std::string kResidentOption = "--resident=";

double residentMiB(const std::string& benchmark) {
  const std::string command = std::filesystem::read_symlink("/proc/self/exe").string() + " '" +
                              kResidentOption + benchmark + "'";
  FILE* const process = popen(command.c_str(), "r");
  double bytes = 0;
  if (process != nullptr) {
    if (std::fscanf(process, "%lf", &bytes) != 1) {
      bytes = 0;
    }
    pclose(process);
  }
  return bytes / (1024 * 1024);
}

template <class Pattern, class Allocator>
void measure(benchmark::State& state) {
  Pattern pattern;
  Allocator allocator(64);
  pattern.fill(allocator);
  std::size_t pairs = 0;
  for (auto _ : state) {
    pairs += pattern.run(allocator);
  }
  pattern.empty(allocator);
  state.counters["ns_per_pair"] = benchmark::Counter(
      static_cast<double>(pairs) * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/// Prints the table: for each pattern the peers and ours, each with its best time, that as a ratio
/// to malloc's, and its resident memory.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type == Run::RT_Aggregate) {
        continue;
      }
      const std::string& name = run.run_name.function_name;
      const std::size_t slash = name.find('/');
      if (m_rows.empty() || m_rows.back().name != name.substr(0, slash)) {
        m_rows.push_back({name.substr(0, slash), {}});
      }
      Cell& cell = m_rows.back().cells[name.substr(slash + 1)];
      const double ns = run.counters.at("ns_per_pair");
      cell.ns = cell.ns == 0 ? ns : std::min(cell.ns, ns);
    }
  }

  void Finalize() override {
    std::cout << "\nns for one allocate and one free (times malloc; resident MiB)\n";
    for (const Row& row : m_rows) {
      const auto base = row.cells.find(Malloc::kName);
      std::cout << row.name << "\n";
      for (const auto& [name, cell] : row.cells) {
        std::cout << "  " << std::left << std::setw(20) << name << std::right << std::fixed
                  << std::setprecision(1) << std::setw(10) << cell.ns << std::setprecision(2)
                  << std::setw(8) << (base != row.cells.end() ? cell.ns / base->second.ns : 0)
                  << " x" << std::setprecision(1) << std::setw(8)
                  << residentMiB(row.name + "/" + name) << "\n";
      }
    }
  }

 private:
  struct Cell {
    double ns = 0;
  };
  struct Row {
    std::string name;
    std::map<std::string, Cell> cells;
  };
  std::vector<Row> m_rows;
};

constexpr int kRepetitions = 5;  // the best counts: other work on the machine only adds

template <class Pattern, class Allocator>
void add() {
  if constexpr (Pattern::kOneSize || !Allocator::kFixed) {
    const std::string name = std::string(Pattern::kName) + "/" + Allocator::kName;
    benchmark::RegisterBenchmark(name.c_str(), measure<Pattern, Allocator>)
        ->Repetitions(kRepetitions);
    g_residents[name] = printResident<Pattern, Allocator>;
  }
}

template <class Pattern>
void addAll() {
  add<Pattern, Malloc>();
  if (g_mimalloc.get != nullptr) {
    add<Pattern, Mimalloc>();
  }
  if (g_jemalloc.get != nullptr) {
    add<Pattern, Jemalloc>();
  }
  add<Pattern, BoostPool>();
  add<Pattern, PmrPool>();
  add<Pattern, FixedPool>();
  add<Pattern, PlainPool>();
  add<Pattern, Arena>();
}

template <class Pattern>
void addCurve() {
  add<Pattern, Malloc>();
  add<Pattern, NextFitPool>();
}

}  // namespace

int main(int argc, char** argv) {
  loadHeaps(argv);
  addAll<Lifo>();
  add<Lifo, NextFitPool>();
  addAll<Fifo>();
  addAll<RandomOrder<100000>>();
  add<RandomOrder<100000>, NextFitPool>();
  addAll<Churn<64, 64>>();
  addAll<Churn<8, 256>>();
  add<Churn<8, 256>, NextFitPool>();
  // How the cost of frees in random order grows for the next-fit pool.
  addCurve<RandomOrder<100>>();
  addCurve<RandomOrder<1000>>();
  addCurve<RandomOrder<10000>>();
  const std::string first = argc > 1 ? argv[1] : "";
  if (first.rfind(kResidentOption, 0) == 0) {
    const auto resident = g_residents.find(first.substr(kResidentOption.size()));
    if (resident == g_residents.end()) {
      return 1;
    }
    resident->second();
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
