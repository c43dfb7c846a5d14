#include "FileStoreRun.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <numeric>
#include <string>

#include "ByteSize.h"
#include "HostProcess.h"
#include "QRTCore/QRTThrowable.h"
#include "ResultTable.h"
#include "StoreStatistics.h"

namespace example {

namespace {

constexpr int kIntact = 0;
constexpr int kFailed = 1;
constexpr int kNothingToStore = 2;

std::string ratio(std::uint64_t of, std::uint64_t to) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f",
                static_cast<double>(of) / static_cast<double>(to));
  return text.data();
}

}  // namespace

FileStoreRun::FileStoreRun(const Options& options)
    : m_options(options),
      m_manager(options.budget, 0, 0),
      m_catalogue(m_manager),
      m_store(m_manager, m_catalogue),
      m_verifier(m_manager, m_catalogue, m_store),
      m_random(options.seed) {}

int FileStoreRun::run() {
  const UpdatePattern pattern(m_options.seed);
  findFiles();
  if (m_catalogue.size() == 0) {
    m_walk.unreadable().print("could not be looked at");
    std::cerr << "there is no regular file under the directories given: nothing to store\n";
    return kNothingToStore;
  }
  storeFiles();
  verifyObjects(nullptr);
  updateObjects(pattern);
  verifyObjects(&pattern);
  printProblems();
  printTable();
  return storeFailed() ? kFailed : kIntact;
}

void FileStoreRun::findFiles() {
  ProgressBar progress("find", 0);
  try {
    for (const std::string& directory : m_options.directories) {
      m_walk.walk(directory,
                  [&](const std::string& path, const std::string& name, const FileStatus& status) {
                    m_catalogue.add(path, name, status);
                    progress.advance(1);
                  });
    }
  } catch (const QRTOutOfMemoryError&) {
    m_full = true;  // what was found so far is stored and verified all the same
  }
  progress.finish(formatCount(m_catalogue.size()) + " files of " +
                  formatBytes(m_catalogue.bytes()));
}

void FileStoreRun::storeFiles() {
  ProgressBar progress("store", m_catalogue.bytes());
  try {
    m_store.storeFiles(progress);
  } catch (const QRTOutOfMemoryError&) {
    m_full = true;  // everything stored before this must still come back intact
  }
  m_order.resize(m_store.objects().size());
  std::iota(m_order.begin(), m_order.end(), 0U);
  progress.finish(formatCount(m_order.size()) + " objects of " + formatBytes(m_store.bytes()));
}

void FileStoreRun::verifyObjects(const UpdatePattern* updates) {
  shuffleOrder();
  ProgressBar progress("verify", m_order.size());
  const std::uint64_t before = m_verifier.bytes();
  m_verifier.verify(m_order, updates, progress);
  progress.finish(formatCount(m_order.size()) + " objects of " +
                  formatBytes(m_verifier.bytes() - before) + " in random order");
}

void FileStoreRun::updateObjects(const UpdatePattern& pattern) {
  shuffleOrder();
  ProgressBar progress("update", m_order.size());
  for (const std::uint32_t object : m_order) {
    // An object that cannot be pinned is left to the verifier, which names it.
    if (pattern.selects(object) && m_store.update(object, pattern)) {
      ++m_updated;
    }
    progress.advance(1);
  }
  progress.finish(formatCount(m_updated) + " objects in place");
}

void FileStoreRun::shuffleOrder() {
  std::shuffle(m_order.begin(), m_order.end(), m_random);
}

std::uint64_t FileStoreRun::mismatches() const {
  return m_store.lostPaths().count() + m_verifier.mismatches().count();
}

bool FileStoreRun::storeFailed() {
  return m_full || mismatches() != 0 || readStatistics(m_manager).pinnedObjects != 0;
}

void FileStoreRun::printProblems() const {
  m_walk.unreadable().print("could not be looked at");
  m_store.unreadable().print("files that could not be read");
  m_store.unsettled().print("files that changed while they were stored");
  m_verifier.changed().print("objects whose file changed after it was stored; the store is intact");
  m_store.lostPaths().print("MISMATCHES, paths that did not come back for storing");
  m_verifier.mismatches().print("MISMATCHES");
  if (m_full) {
    std::cerr << "the store was full after " << formatCount(m_store.objects().size())
              << " objects: " << m_manager.getLastStoreError() << '\n';
  }
}

void FileStoreRun::printTable() {
  const StoreStatistics statistics = readStatistics(m_manager);
  const std::uint64_t peak = peakResidentBytes();
  const std::uint64_t budget = m_options.budget;
  ResultTable table;
  table.add(
      "objects", formatCount(m_store.objects().size()),
      "of " + formatCount(m_catalogue.size()) + " files, " + formatCount(m_updated) + " updated");
  table.add("bytes stored", formatBytes(m_store.bytes()),
            ratio(m_store.bytes(), budget) + " times the budget");
  table.add("budget", formatBytes(budget));
  table.add("peak resident memory", formatBytes(peak),
            peak > budget ? "the budget and " + formatBytes(peak - budget) : "");
  table.add("paging file", formatBytes(statistics.pagingFileSize),
            "pages of " + formatBytes(statistics.pageSize));
  table.add("page-outs", formatCount(statistics.pageOuts));
  table.add("pages written", formatCount(statistics.pageWrites));
  table.add("writes saved", formatCount(statistics.writesSaved()));
  table.add("page reads", formatCount(statistics.pageReads));
  table.add("speed in", formatSpeed(m_store.bytes(), m_store.secondsInStore()),
            "reading the files not counted");
  table.add("speed out", formatSpeed(m_verifier.bytes(), m_verifier.secondsInStore()),
            "comparing included, reading the files not");
  table.add("mismatches", formatCount(mismatches()));
  std::cout << '\n';
  table.print(std::cout, standardOutputColumns());
  std::cout.flush();
  if (statistics.pinnedObjects != 0) {
    std::cerr << "objects left pinned: " << formatCount(statistics.pinnedObjects) << '\n';
    m_manager.dumpReferences(std::cerr);
  }
}

}  // namespace example
