#include "ExternalSort.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>

#include "ByteSize.h"
#include "HostProcess.h"
#include "LineMerge.h"
#include "ProgressBar.h"
#include "ResultTable.h"
#include "SortBuffer.h"
#include "Stopwatch.h"
#include "StoreStatistics.h"

namespace example {

namespace {

constexpr int kSorted = 0;
constexpr int kFailed = 1;
constexpr int kNothingToSort = 2;

// A virtual file holds less than 4 GiB; compressed, lines that do not compress take a little more
// than they have.
constexpr std::uint64_t kMostRunBytes = std::uint64_t{4000} << 20;

// How often the progress bar hears of the last merge.
constexpr std::uint64_t kLinesPerStep = 1000;

std::string ratio(std::uint64_t of, std::uint64_t to) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f",
                static_cast<double>(of) / static_cast<double>(std::max<std::uint64_t>(to, 1)));
  return text.data();
}

}  // namespace

ExternalSort::ExternalSort(const Options& options)
    : m_options(options),
      m_input(options.files, options.size, MemoryPlan::longestLine(options.budget)),
      m_plan(options.budget, m_input.expectedBytes(), options.compress),
      m_output(options.output),
      m_manager(m_plan.storeBytes, 0U, 64) {}

int ExternalSort::run() {
  if (m_input.empty()) {
    std::cerr << "the files are empty, or there are none: nothing to sort\n";
    return kNothingToSort;
  }
  Stopwatch watch;
  watch.start();
  makeRuns();
  mergeSurplus();
  writeResult();
  watch.stop();
  m_seconds = watch.seconds();
  printTable();
  return isSorted() ? kSorted : kFailed;
}

void ExternalSort::makeRuns() {
  ProgressBar progress("sort", m_input.expectedBytes());
  SortBuffer buffer(m_plan.sortBytes);
  const auto flush = [&] {
    buffer.sort();
    SortedRun& run = m_runs.emplace_back(m_manager, m_plan, m_options.compress);
    buffer.forEach([&](std::string_view line) { run.add(line); });
    run.close();
    m_stored += run.storedBytes();
    progress.advance(run.plainBytes());
    buffer.clear();
  };
  for (std::string_view line; m_input.next(line);) {
    m_sum.add(line);
    if (!buffer.add(line)) {
      flush();
      buffer.add(line);
    }
  }
  if (!buffer.empty()) {
    flush();
  }
  m_firstRuns = m_runs.size();
  progress.finish(formatCount(m_sum.lines) + " lines of " + formatBytes(m_sum.bytes) + " in " +
                  formatCount(m_firstRuns) + " runs");
}

/// Merges as few bytes as it takes to leave no more runs than the last merge can read: the smallest
/// runs, and only as many of them as there are too many.
void ExternalSort::mergeSurplus() {
  if (m_runs.size() <= m_plan.fanIn) {
    return;
  }
  ProgressBar progress("merge", 0);
  const std::size_t before = m_runs.size();
  while (m_runs.size() > m_plan.fanIn) {
    const std::vector<SortedRun*> group = smallestRuns(m_runs.size() - m_plan.fanIn + 1);
    SortedRun& run = m_runs.emplace_back(m_manager, m_plan, m_options.compress);
    for (LineMerge merge(group, m_plan); !merge.empty(); merge.pop()) {
      run.add(merge.top());
    }
    run.close();
    m_runs.erase(m_runs.begin(), std::next(m_runs.begin(), static_cast<long>(group.size())));
    ++m_merges;
    m_mergedBytes += run.plainBytes();
    progress.advance(run.plainBytes());
  }
  progress.finish(formatCount(before) + " runs into " + formatCount(m_runs.size()) + ", " +
                  formatBytes(m_mergedBytes) + " of lines");
}

/// Brings the smallest runs to the front: up to `count`, as many as one merge can read and a
/// virtual file can hold.
std::vector<SortedRun*> ExternalSort::smallestRuns(std::size_t count) {
  m_runs.sort(
      [](const SortedRun& a, const SortedRun& b) { return a.plainBytes() < b.plainBytes(); });
  std::vector<SortedRun*> runs;
  std::uint64_t bytes = 0;
  for (SortedRun& run : m_runs) {
    bytes += run.plainBytes();
    if (runs.size() == std::min(count, m_plan.fanIn) || bytes > kMostRunBytes) {
      break;
    }
    runs.push_back(&run);
  }
  if (runs.size() < 2) {
    throw std::runtime_error("with this budget " + formatCount(m_plan.fanIn) +
                             " runs of up to 4 GiB can be merged, and there are " +
                             formatCount(m_runs.size()) + "; raise --budget");
  }
  return runs;
}

void ExternalSort::writeResult() {
  ProgressBar progress("write", m_sum.bytes);
  std::vector<SortedRun*> runs;
  for (SortedRun& run : m_runs) {
    runs.push_back(&run);
  }
  std::uint64_t done = 0;
  for (LineMerge merge(runs, m_plan); !merge.empty(); merge.pop()) {
    m_output.add(merge.top());
    if (m_output.sum().lines % kLinesPerStep == 0) {
      progress.advance(m_output.sum().bytes - done);
      done = m_output.sum().bytes;
    }
  }
  m_output.close();
  progress.finish(formatCount(m_output.sum().lines) + " lines" +
                  (m_options.output.empty() ? ", checked only" : " to " + m_options.output));
}

bool ExternalSort::isSorted() const {
  return m_output.misplaced() == 0 && m_output.sum() == m_sum;
}

void ExternalSort::printTable() {
  const StoreStatistics statistics = readStatistics(m_manager);
  const std::uint64_t budget = m_options.budget;
  const std::uint64_t peak = peakResidentBytes();
  ResultTable table;
  table.add("lines", formatCount(m_sum.lines));
  table.add("bytes sorted", formatBytes(m_sum.bytes),
            ratio(m_sum.bytes, budget) + " times the budget");
  table.add("budget", formatBytes(budget), formatBytes(m_plan.storeBytes) + " of it the store's");
  table.add("peak resident memory", formatBytes(peak),
            peak > budget ? "the budget and " + formatBytes(peak - budget) : "");
  table.add("runs", formatCount(m_firstRuns),
            "pages of " + formatBytes(m_plan.pageSize) + ", up to " + formatCount(m_plan.fanIn) +
                " merged at a time");
  table.add("merges before the last", formatCount(m_merges),
            m_merges != 0 ? "of " + formatBytes(m_mergedBytes) : "");
  table.add("bytes in runs", formatBytes(m_stored),
            m_options.compress ? ratio(m_sum.bytes, m_stored) + " times smaller" : "");
  table.add("paging file", formatBytes(statistics.pagingFileSize));
  table.add("page reads", formatCount(statistics.pageReads));
  table.add("pages written", formatCount(statistics.pageWrites));
  table.add("speed", formatSpeed(m_sum.bytes, m_seconds));
  table.add("lines out of order", formatCount(m_output.misplaced()));
  table.add("lines lost or changed", m_output.sum() == m_sum ? "none" : "SOME",
            "by their number, bytes and hashes");
  std::cout << '\n';
  table.print(std::cout, standardOutputColumns());
}

}  // namespace example
