#ifndef LIBTCMALLOC_VIRTUALMM_ENGINECHECKER_H
#define LIBTCMALLOC_VIRTUALMM_ENGINECHECKER_H

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "libtcmalloc_virtualmm/Engine.h"

namespace tcmalloc {

/// Compares all that an engine keeps in two places: frames with the page table, the page table with
/// the page numbers in use, replacement queues with what is in memory, free slots with the chains
/// in slabs, pin counts with headers, the classes' counts with their slabs, and the paging file's
/// length and reserved space with the pages it holds.
///
/// It is for tests and debugging. It changes nothing and never touches the disk, so it does not see
/// what leaves of the page table that are out describe; counts are compared as far as that allows.
class EngineChecker {
 public:
  class Damage;  ///< defined by the tests, which have to reach what the checker is to find broken

  /// @param engine            the engine; not to be used while it is checked
  /// @param wasShortOfMemory  whether an allocation of the engine's own may have failed: then slabs
  ///                          with free slots may be missing from their class's list
  EngineChecker(const Engine& engine, bool wasShortOfMemory);

  /// Checks everything.
  /// @return a line for each contradiction, the first kMostFindings of them; empty when all agrees
  /// @throws std::bad_alloc
  /// Cost: O(pages in the table and slots in memory).
  std::string Run();

  static constexpr std::uint32_t kMostFindings = 20;

 private:
  /// What was seen of a size class.
  struct ClassSeen {
    std::uint32_t spans = 0;         // slabs
    std::uint64_t leastObjects = 0;  // objects they hold at least
    std::uint64_t mostObjects = 0;   // objects they hold at most: slabs that are out are not read
  };

  void CheckArena();
  void CheckRun(std::uint32_t frame);
  void CheckSlab(std::uint32_t page, const PageEntry& entry);
  void CheckQueues();
  void CheckLeaves();
  void CheckSpans();
  void CheckSpan(std::uint32_t page, const PageEntry& entry, std::uint32_t pages);
  void CheckPageMap();
  void CheckClasses();
  void CheckDeferredPins();
  void CheckPendingFrees();
  void CheckCounts();
  void CheckFiles();
  void CheckBudget();

  const Frame& FrameAt(std::uint32_t frame) const;
  bool IsTaken(std::uint32_t page) const;
  bool IsRetired(std::uint32_t page) const;
  bool IsSeen(std::uint32_t page) const;
  std::uint32_t PagesOf(std::uint32_t page, const PageEntry& entry) const;

  /// Notes a contradiction, put together from `parts`, unless `holds`. @return holds
  template <typename... Parts>
  bool Require(bool holds, const Parts&... parts);

  const Engine& m_engine;
  const SizeClasses& m_classes;
  const PageTable& m_table;
  const FrameArena& m_arena;
  const Pager& m_pager;
  bool m_wasShortOfMemory;
  bool m_seesAll = true;              // no leaf is in the file: counts can be compared as they are
  std::vector<std::uint32_t> m_runs;  // first frames of the runs in use
  std::vector<ClassSeen> m_seen;      // by size class
  std::uint64_t m_largeObjects = 0;   // large objects seen
  std::uint64_t m_largePages = 0;     // pages of large objects seen
  std::uint32_t m_findings = 0;       // contradictions so far
  std::ostringstream m_report;        // the lines about them
};

template <typename... Parts>
bool EngineChecker::Require(bool holds, const Parts&... parts) {
  if (!holds && m_findings++ < kMostFindings) {
    (m_report << ... << parts) << '\n';
  }
  return holds;
}

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINECHECKER_H
