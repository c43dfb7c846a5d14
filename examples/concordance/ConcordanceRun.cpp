#include "ConcordanceRun.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include "ByteSize.h"
#include "HostProcess.h"
#include "QRTCore/QRTThrowable.h"
#include "ResultTable.h"
#include "StoreStatistics.h"
#include "Words.h"

namespace example {

namespace fs = std::filesystem;

namespace {

constexpr int kAllFound = 0;
constexpr int kFailed = 1;
constexpr int kNoText = 2;

}  // namespace

ConcordanceRun::ConcordanceRun(const Options& options)
    : m_options(options), m_manager(options.budget, 0, 0), m_concordance(m_manager) {}

int ConcordanceRun::run() {
  readFiles();
  if (m_concordance.lines() == 0 && !m_full) {
    printProblems();
    std::cerr << "there is no text in the files given\n";
    return kNoText;
  }
  for (const std::string& word : m_options.words) {
    printWord(word);
  }
  if (m_options.words.empty()) {
    printMostFrequentWords();
  }
  printProblems();
  printTable();
  return m_full || m_missing != 0 ? kFailed : kAllFound;
}

void ConcordanceRun::readFiles() {
  ProgressBar progress("read", 0);
  m_reading.start();
  try {
    for (const std::string& path : m_options.paths) {
      std::error_code ignored;
      if (!fs::is_directory(path, ignored)) {
        readFile(path, progress);
        continue;
      }
      m_walk.walk(path,
                  [&](const std::string& directory, const std::string& name, const FileStatus&) {
                    readFile((fs::path(directory) / name).string(), progress);
                  });
    }
  } catch (const QRTOutOfMemoryError&) {
    m_full = true;  // what was read so far can be asked for all the same
  }
  m_reading.stop();
  progress.finish(formatCount(m_concordance.lines()) + " lines of " +
                  formatCount(m_concordance.files()) + " files");
}

void ConcordanceRun::readFile(const std::string& path, ProgressBar& progress) {
  if (!m_reader.open(path)) {
    m_unreadable.add(path, m_reader.error());
    return;
  }
  if (m_reader.isBinary()) {
    ++m_binaryFiles;
    return;
  }
  m_concordance.addFile(path);
  std::string_view line;
  while (m_reader.next(line)) {
    m_concordance.addLine(line, m_reader.lineNumber());
    progress.advance(1);
  }
  if (!m_reader.error().empty()) {
    m_unreadable.add(path + " from line " + std::to_string(m_reader.lineNumber()),
                     m_reader.error());
  }
}

void ConcordanceRun::printWord(const std::string& word) {
  const std::uint32_t number = m_concordance.words().find(word);
  if (number == WordIndex::kNone) {
    std::cout << '\n' << word << ": no line holds it\n";
    ++m_missing;
    return;
  }
  const WordRecord record = m_concordance.words().record(number);
  std::cout << '\n'
            << word << ": " << formatCount(record.occurrences) << " times in "
            << formatCount(record.lines) << " lines\n";
  std::uint32_t printed = 0;
  m_concordance.words().forEachLine(number, [&](std::uint32_t line) {
    if (printed == m_options.limit) {
      return false;
    }
    ++printed;
    const Concordance::Line found = m_concordance.line(line);
    Words words(found.text);
    while (words.next() && words.word() != word) {
    }
    std::cout << "  " << keywordInContext(found.text, words.begin(), words.end()) << "  "
              << found.file << ':' << found.number << '\n';
    return true;
  });
  if (record.lines > printed) {
    std::cout << "  ... and " << formatCount(record.lines - printed)
              << " lines more; --limit shows more of them\n";
  }
}

void ConcordanceRun::printMostFrequentWords() {
  constexpr std::size_t kMost = 10;
  constexpr unsigned int kFewestBytes = 6;  // leaves out the words that every text is full of
  std::vector<std::pair<std::uint32_t, std::uint32_t>> most;  // occurrences and word, ascending
  for (std::uint32_t word = 0; word < m_concordance.words().size(); ++word) {
    const WordRecord record = m_concordance.words().record(word);
    if (record.text.getSize() < kFewestBytes ||
        (most.size() == kMost && record.occurrences <= most.front().first)) {
      continue;
    }
    if (most.size() == kMost) {
      most.erase(most.begin());
    }
    const std::pair<std::uint32_t, std::uint32_t> found(record.occurrences, word);
    most.insert(std::upper_bound(most.begin(), most.end(), found), found);
  }
  std::cout << "\nmost frequent words of six letters and more; -w WORD prints a word's lines\n";
  for (auto found = most.rbegin(); found != most.rend(); ++found) {
    std::cout << "  " << m_concordance.words().text(found->second) << "  "
              << formatCount(found->first) << '\n';
  }
}

void ConcordanceRun::printProblems() {
  m_walk.unreadable().print("could not be looked at");
  m_unreadable.print("files that could not be read, or not to their end");
  if (m_full) {
    std::cerr << "the store was full after " << formatCount(m_concordance.lines())
              << " lines: " << m_manager.getLastStoreError() << '\n';
  }
}

void ConcordanceRun::printTable() {
  const StoreStatistics statistics = readStatistics(m_manager);
  const std::uint64_t peak = peakResidentBytes();
  const std::uint64_t budget = m_options.budget;
  ResultTable table;
  table.add("files", formatCount(m_concordance.files()),
            formatCount(m_binaryFiles) + " binary ones passed over");
  table.add("lines", formatCount(m_concordance.lines()),
            "of " + formatBytes(m_concordance.textBytes()));
  table.add("words", formatCount(m_concordance.words().size()),
            "distinct, " + formatCount(m_concordance.occurrences()) + " in all");
  table.add("objects in the store", formatCount(statistics.currentObjects));
  table.add("budget", formatBytes(budget));
  table.add("peak resident memory", formatBytes(peak),
            peak > budget ? "the budget and " + formatBytes(peak - budget) : "");
  table.add("directories in memory", formatBytes(m_concordance.memoryBytes()),
            "all that the program itself keeps of the index");
  table.add("paging file", formatBytes(statistics.pagingFileSize),
            "pages of " + formatBytes(statistics.pageSize));
  table.add("pages written", formatCount(statistics.pageWrites));
  table.add("writes saved", formatCount(statistics.writesSaved()));
  table.add("page reads", formatCount(statistics.pageReads));
  table.add("speed", formatSpeed(m_concordance.textBytes(), m_reading.seconds()),
            "reading the files included");
  std::cout << '\n';
  table.print(std::cout, standardOutputColumns());
  std::cout.flush();
}

}  // namespace example
