#ifndef EXAMPLES_EXTERNALSORT_EXTERNALSORT_H
#define EXAMPLES_EXTERNALSORT_EXTERNALSORT_H

#include <cstdint>
#include <list>
#include <vector>

#include "InputLines.h"
#include "MemoryPlan.h"
#include "Options.h"
#include "QRTVirtualMemoryMgr.h"
#include "SortedOutput.h"
#include "SortedRun.h"

namespace example {

/// The whole job: make sorted runs, merge some of them where one merge cannot read them all, merge
/// and check, report.
class ExternalSort {
 public:
  /// @throws std::runtime_error when an input or the output cannot be opened
  explicit ExternalSort(const Options& options);

  /// Runs the job and writes its report.
  /// @return the program's exit status
  /// @throws std::runtime_error, and what the store raises, for instance when the disk is full
  int run();

  /// Why the store last failed; empty if it did not.
  const char* storeError() const { return m_manager.getLastStoreError(); }

 private:
  void makeRuns();
  void mergeSurplus();
  std::vector<SortedRun*> smallestRuns(std::size_t count);
  void writeResult();
  void printTable();
  bool isSorted() const;

  const Options m_options;
  InputLines m_input;
  const MemoryPlan m_plan;
  SortedOutput m_output;
  QRTVirtualMemoryMgr m_manager;    // the store
  std::list<SortedRun> m_runs;      // what is sorted so far
  LineSum m_sum;                    // of the input
  std::uint64_t m_stored = 0;       // bytes that the first runs take
  std::size_t m_firstRuns = 0;      // runs made of the input
  std::uint64_t m_merges = 0;       // merges before the last one
  std::uint64_t m_mergedBytes = 0;  // bytes of lines that went through them
  double m_seconds = 0;             // the whole job
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_EXTERNALSORT_H
