// What the bits of a page in its group say:
//
//                  Group::free   Group::retired
//     free              1              0
//     taken             0              0
//     retired           0              1         only groups with such pages have this set
//
// BitRuns calls a set bit "free", in `retired` as well, where it is a retired page.
//
// Two bounds make searches short. They may be too generous and are never too strict:
//
//     Group::longestRun   no run of free pages in the group is longer; 0 only when there is none
//     m_firstVacant       no group below has a free page
//
// m_usedEnd is exact, for the paging file is cut off there.

#include "libtcmalloc_virtualmm/PageMap.h"

#include <algorithm>
#include <exception>
#include <new>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

// Page numbers end where the offset's 32 bits end; the last group stays unused so that no count
// wraps around.
constexpr std::size_t kMaxGroups = (1U << 22) - 1;

}  // namespace

std::uint64_t PageMap::Bytes() const {
  const auto withRetired = std::count_if(m_groups.begin(), m_groups.end(), [](const Group& group) {
    return group.retired != nullptr;
  });
  return m_groups.capacity() * sizeof(Group) +
         static_cast<std::uint64_t>(withRetired) * sizeof(Pages);
}

/// A run up to a group's length lies in one group, which bounds the search to one bit set at a
/// time. A longer one begins with a group; what is left of its last group is free for shorter ones.
///  1. Find the lowest run in the groups there are.
///  2. Without one add groups. A long run starts on the free groups that the map ends with, if
///     there are any and it may begin there; they are fewer than it needs, or step 1 would have
///     found them.
///  3. Mark it as taken.
/// Nothing is changed when step 2 fails but the bounds, which are as true as before.
std::uint32_t PageMap::Acquire(std::uint32_t count, std::uint32_t from) noexcept {
  LIBTCMALLOC_ASSERT(count > 0 && from <= PageCount());
  const bool inGroup = count <= kGroupPages;
  // Step 1.
  std::uint32_t first = inGroup ? FindInGroup(count, from) : FindWholeGroups(count, from);
  if (first == kNoPage) {
    // Step 2.
    std::size_t freeTail = 0;
    while (!inGroup &&
           m_groups.size() - freeTail > from / kGroupPages + (from % kGroupPages != 0 ? 1 : 0) &&
           IsFree(m_groups[m_groups.size() - 1 - freeTail])) {
      ++freeTail;
    }
    first = static_cast<std::uint32_t>(m_groups.size() - freeTail) * kGroupPages;
    const std::size_t groups = (count + kGroupPages - 1) / kGroupPages;
    if (!AddGroups(groups - freeTail)) {
      return kNoPage;
    }
  }
  // Step 3.
  Mark(first, count, false);
  m_usedPages += count;
  m_usedEnd = std::max(m_usedEnd, first + count);
  LIBTCMALLOC_ASSERT(m_usedEnd <= PageCount() && m_usedPages <= m_usedEnd);
  return first;
}

void PageMap::Release(std::uint32_t first, std::uint32_t count) noexcept {
  LIBTCMALLOC_ASSERT(count > 0 && count <= m_usedPages);
  LIBTCMALLOC_ASSERT(first < m_usedEnd && count <= m_usedEnd - first);
  m_usedPages -= count;
  m_firstVacant = std::min<std::size_t>(m_firstVacant, first / kGroupPages);
  Mark(first, count, true);
  if (first + count == m_usedEnd) {
    LowerUsedEnd();
  }
  LIBTCMALLOC_ASSERT(m_usedPages <= m_usedEnd);
}

/// A retired page is neither taken nor free: its bit in `free` says taken and its bit in `retired`
/// tells it from pages in use. The caller had it as part of a run and gives the rest of that back
/// itself. Without memory for the second set of bits the page counts as taken for good: it is not
/// used again either, but m_usedEnd never falls below it.
void PageMap::Retire(std::uint32_t page) noexcept {
  LIBTCMALLOC_ASSERT(page < m_usedEnd && m_usedPages > 0);
  Group& group = m_groups[page / kGroupPages];
  LIBTCMALLOC_ASSERT(!group.free.IsFree(page % kGroupPages));
  if (group.retired == nullptr) {
    group.retired.reset(new (std::nothrow) Pages);
    if (group.retired == nullptr) {
      return;
    }
  }
  // Before LowerUsedEnd, which would find the page itself otherwise.
  group.retired->Mark(page % kGroupPages, 1, true);
  --m_usedPages;
  ++m_retiredPages;
  if (page + 1 == m_usedEnd) {
    LowerUsedEnd();
  }
}

/// Finds m_usedEnd anew after the highest used page was given back: searches down from there,
/// passing over retired pages, which need no place in the file. Cost: 16 words for each group whose
/// pages are all free or retired, down to the first that has one taken.
void PageMap::LowerUsedEnd() {
  std::size_t group = (m_usedEnd - 1) / kGroupPages + 1;
  m_usedEnd = 0;
  while (group-- > 0) {
    const std::uint32_t last = m_groups[group].free.LastTaken(m_groups[group].retired.get());
    if (last != Pages::kNone) {
      m_usedEnd = static_cast<std::uint32_t>(group) * kGroupPages + last + 1;
      return;
    }
  }
}

std::uint32_t PageMap::EndOfRun(std::uint32_t from, bool retired) const {
  std::uint32_t page = from;
  while (page < PageCount()) {
    const Pages* bits = m_groups[page / kGroupPages].retired.get();
    if (bits == nullptr && retired) {
      return page;
    }
    const std::uint32_t place = page % kGroupPages;
    const std::uint32_t end = bits == nullptr ? kGroupPages
                              : retired       ? bits->NextTaken(place)
                                              : bits->NextFree(place);
    page += end - place;
    if (end != kGroupPages) {
      return page;
    }
  }
  return page;
}

/// longestRun is a bound, not a count: a release sets it back to a whole group, and a search in
/// vain over all of it lowers it to the longest run met, so that the next one for as long a run
/// passes the group by. Cost: a look at each group from m_firstVacant on, and at the bits of those
/// whose bound allows the run.
std::uint32_t PageMap::FindInGroup(std::uint32_t count, std::uint32_t from) {
  while (m_firstVacant < m_groups.size() && m_groups[m_firstVacant].longestRun == 0) {
    ++m_firstVacant;
  }
  const std::size_t fromGroup = from / kGroupPages;
  for (std::size_t i = std::max(m_firstVacant, fromGroup); i < m_groups.size(); ++i) {
    Group& group = m_groups[i];
    if (group.longestRun < count) {
      continue;
    }
    std::uint32_t longest = 0;
    const std::uint32_t begin = i == fromGroup ? from % kGroupPages : 0;
    const std::uint32_t at = group.free.Find(count, longest, begin);
    if (at != Pages::kNone) {
      return static_cast<std::uint32_t>(i) * kGroupPages + at;
    }
    if (begin == 0) {
      group.longestRun = longest;
    }
  }
  return kNoPage;
}

/// The lowest run of free groups that holds `count` pages; cost: O(groups). Free pages at the end
/// of the group in front of it are left to shorter runs.
std::uint32_t PageMap::FindWholeGroups(std::uint32_t count, std::uint32_t from) {
  const std::uint32_t wanted = (count + kGroupPages - 1) / kGroupPages;
  std::uint32_t found = 0;
  for (std::uint32_t i = (from + kGroupPages - 1) / kGroupPages; i < m_groups.size(); ++i) {
    found = IsFree(m_groups[i]) ? found + 1 : 0;
    if (found == wanted) {
      return (i + 1 - wanted) * kGroupPages;
    }
  }
  return kNoPage;
}

/// Adds groups of free pages at the end. @return false, with nothing changed, when page numbers or
/// memory run out
bool PageMap::AddGroups(std::size_t count) noexcept {
  if (count > kMaxGroups - m_groups.size()) {
    return false;
  }
  try {
    m_groups.resize(m_groups.size() + count);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

/// Marks a run, group by group, and keeps the bounds true: a release may have made any run, and a
/// group without a free page has none. Pages between that are taken lower no bound: to find the
/// longest run that is left would cost each of them a search, and FindInGroup does it when it has
/// to look anyway.
void PageMap::Mark(std::uint32_t first, std::uint32_t count, bool free) {
  while (count > 0) {
    Group& group = m_groups[first / kGroupPages];
    const std::uint32_t here = std::min(count, kGroupPages - first % kGroupPages);
    LIBTCMALLOC_ASSERT(group.free.AreAll(first % kGroupPages, here, !free));
    group.free.Mark(first % kGroupPages, here, free);
    if (free) {
      group.longestRun = kGroupPages;
    } else if (group.free.NextFree(0) == kGroupPages) {
      group.longestRun = 0;
    }
    first += here;
    count -= here;
  }
}

}  // namespace tcmalloc
