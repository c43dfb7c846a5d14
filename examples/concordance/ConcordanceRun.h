#ifndef EXAMPLES_CONCORDANCE_CONCORDANCERUN_H
#define EXAMPLES_CONCORDANCE_CONCORDANCERUN_H

#include <cstdint>
#include <string>

#include "Concordance.h"
#include "DirectoryWalk.h"
#include "LineReader.h"
#include "Options.h"
#include "ProblemLog.h"
#include "ProgressBar.h"
#include "Stopwatch.h"

namespace example {

/// The whole job: read, index, answer, report.
class ConcordanceRun {
 public:
  explicit ConcordanceRun(const Options& options);

  /// Runs the job and writes its report.
  /// @return the program's exit status
  int run();

 private:
  void readFiles();
  void readFile(const std::string& path, ProgressBar& progress);
  void printWord(const std::string& word);
  void printMostFrequentWords();
  void printProblems();
  void printTable();

  const Options m_options;
  QRTVirtualMemoryMgr m_manager;    // the store
  Concordance m_concordance;        // what was read
  DirectoryWalk m_walk;             // finds the files
  LineReader m_reader;              // reads them
  Stopwatch m_reading;              // runs while files are read and indexed
  ProblemLog m_unreadable;          // files that could not be read, or not to their end
  std::uint64_t m_binaryFiles = 0;  // files passed over
  std::uint64_t m_missing = 0;      // words that no line holds
  bool m_full = false;              // whether the store refused a string
};

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_CONCORDANCERUN_H
