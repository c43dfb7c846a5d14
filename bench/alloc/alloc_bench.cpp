// Compares the allocators with malloc, mimalloc, jemalloc, Boost.Pool and std::pmr's pool: the same
// patterns in one run, nanoseconds for one allocate and one free, resident memory beside them.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
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

/// Resident memory that a pattern costs, measured in a process of its own: what other benchmarks
/// left in the heaps would hide it.
template <class Pattern, class Allocator>
double residentOf() {
  int ends[2];
  if (pipe(ends) != 0) {
    return 0;
  }
  const pid_t child = fork();
  if (child == 0) {
    Pattern pattern;
    const std::size_t before = residentBytes();
    Allocator allocator(64);
    pattern.fill(allocator);
    pattern.run(allocator);
    const std::size_t bytes = residentBytes() - before;
    _exit(write(ends[1], &bytes, sizeof bytes) == sizeof bytes ? 0 : 1);
  }
  std::size_t bytes = 0;
  const bool got = read(ends[0], &bytes, sizeof bytes) == sizeof bytes;
  close(ends[0]);
  close(ends[1]);
  waitpid(child, nullptr, 0);
  return got ? static_cast<double>(bytes) : 0;
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
  state.counters["resident_MiB"] = residentOf<Pattern, Allocator>() / (1024 * 1024);
}

/// Prints the table: one row for each pattern, the peers and ours as columns, each as its time and
/// as its ratio to malloc.
class TableReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const bool isMedian = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (run.error_occurred || (run.run_type == Run::RT_Aggregate && !isMedian)) {
        continue;
      }
      const std::string& name = run.run_name.function_name;
      const std::size_t slash = name.find('/');
      if (m_rows.empty() || m_rows.back().name != name.substr(0, slash)) {
        m_rows.push_back({name.substr(0, slash), {}});
      }
      Cell& cell = m_rows.back().cells[name.substr(slash + 1)];
      const double ns = run.counters.at("ns_per_pair");
      cell.ns = isMedian || cell.ns == 0 ? ns : std::min(cell.ns, ns);
      cell.mib = run.counters.at("resident_MiB");
    }
  }

  void Finalize() override {
    std::cout << "\nns for one allocate and one free (times malloc; resident MiB)\n";
    for (const Row& row : m_rows) {
      const auto base = row.cells.find(Malloc::kName);
      std::cout << row.name << "\n";
      for (const auto& [name, cell] : row.cells) {
        std::cout << "  " << std::left << std::setw(20) << name << std::right << std::fixed
                  << std::setprecision(1) << std::setw(10) << cell.ns;
        if (base != row.cells.end()) {
          std::cout << std::setprecision(2) << std::setw(8) << cell.ns / base->second.ns << " x";
        }
        std::cout << std::setprecision(1) << std::setw(8) << cell.mib << "\n";
      }
    }
  }

 private:
  struct Cell {
    double ns = 0;
    double mib = 0;
  };
  struct Row {
    std::string name;
    std::map<std::string, Cell> cells;
  };
  std::vector<Row> m_rows;
};

template <class Pattern, class Allocator>
void add() {
  if constexpr (Pattern::kOneSize || !Allocator::kFixed) {
    benchmark::RegisterBenchmark((std::string(Pattern::kName) + "/" + Allocator::kName).c_str(),
                                 measure<Pattern, Allocator>);
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

}  // namespace

int main(int argc, char** argv) {
  loadHeaps(argv);
  addAll<Lifo>();
  add<Lifo, NextFitPool>();
  addAll<Fifo>();
  addAll<RandomOrder>();
  addAll<Churn<64, 64>>();
  addAll<Churn<8, 256>>();
  benchmark::Initialize(&argc, argv);
  TableReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
