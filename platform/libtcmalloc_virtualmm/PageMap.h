#ifndef LIBTCMALLOC_VIRTUALMM_PAGEMAP_H
#define LIBTCMALLOC_VIRTUALMM_PAGEMAP_H

#include <cstdint>
#include <memory>
#include <vector>

#include "libtcmalloc_virtualmm/BitRuns.h"

namespace tcmalloc {

/// Which page numbers are free. They are given out lowest first, which keeps the paging file short.
/// A bit a page, in groups of 1,024 that the map grows by; groups with retired pages, which are
/// neither taken nor ever free again, have a second one.
class PageMap {
 public:
  static constexpr std::uint32_t kGroupPages = 1024;
  static constexpr std::uint32_t kNoPage = ~0U;

  /// Takes the lowest run of `count` free pages (at least 1); it crosses a group only when it is
  /// longer than one, and begins with a group then.
  /// @param from  where the run may begin, or later
  /// @return the first page, or kNoPage when memory for the map or page numbers run out
  std::uint32_t Acquire(std::uint32_t count, std::uint32_t from = 0) noexcept;

  /// Gives a run back. Cannot fail.
  void Release(std::uint32_t first, std::uint32_t count) noexcept;

  /// Takes a page out of use for good instead. Cannot fail: without memory to note it, the page
  /// counts as taken.
  void Retire(std::uint32_t page) noexcept;

  /// One past the run of pages from `from` on that are all retired, or all not.
  std::uint32_t EndOfRun(std::uint32_t from, bool retired) const;

  /// Pages that the map knows, free ones included: all below this number.
  std::uint32_t PageCount() const {
    return static_cast<std::uint32_t>(m_groups.size()) * kGroupPages;
  }
  /// Bytes of memory that the map takes.
  std::uint64_t Bytes() const;

  /// Pages taken.
  std::uint64_t UsedPages() const { return m_usedPages; }
  /// Pages retired.
  std::uint64_t RetiredPages() const { return m_retiredPages; }
  /// One past the highest page taken.
  std::uint32_t UsedEnd() const { return m_usedEnd; }

 private:
  friend class EngineChecker;

  using Pages = BitRuns<kGroupPages>;

  struct Group {
    Group() { free.Mark(0, kGroupPages, true); }

    Pages free;
    std::uint32_t longestRun = kGroupPages;  // no run of free pages is longer
    std::unique_ptr<Pages> retired;          // retired pages; null while there are none
  };

  bool IsFree(const Group& group) const {
    return group.longestRun == kGroupPages && group.free.NextTaken(0) == kGroupPages;
  }
  std::uint32_t FindInGroup(std::uint32_t count, std::uint32_t from);
  std::uint32_t FindWholeGroups(std::uint32_t count, std::uint32_t from);
  bool AddGroups(std::size_t count) noexcept;
  void LowerUsedEnd();
  void Mark(std::uint32_t first, std::uint32_t count, bool free);

  std::vector<Group> m_groups;
  std::size_t m_firstVacant = 0;     // no group below has a free page
  std::uint32_t m_usedEnd = 0;       // one past the highest page taken
  std::uint64_t m_usedPages = 0;     // pages taken
  std::uint64_t m_retiredPages = 0;  // pages retired
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGEMAP_H
