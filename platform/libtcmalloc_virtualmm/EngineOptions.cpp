#include "libtcmalloc_virtualmm/EngineOptions.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "libtcmalloc_virtualmm/PendingFrees.h"

namespace tcmalloc {

namespace {

constexpr std::uint32_t kSmallPage = 4096;
constexpr std::uint32_t kLargePage = 16384;

// Two bounds of one value for two reasons. From the first on a 32-bit process uses large pages: its
// page table has to fit into its address space together with everything else. From the second on
// memory comes in huge pages: the 2 MiB that a chunk may take too much are little beside it.
constexpr std::uint64_t kLargePageBudget = 64U << 20;
constexpr std::uint64_t kHugePageBudget = 64U << 20;

// The page table may take this share of the budget, which is enough for stores of 32 times the
// budget, and 2 MiB at least, which describe half a gigabyte.
constexpr std::uint64_t kTableShare = 8;
constexpr std::uint64_t kLeastTableBytes = 2U << 20;

// The frees that wait for their pages may take this share of the budget, within these bounds: 8,192
// of them at the least, 131,072 at the most, for which a new one still finds its place quickly.
constexpr std::uint64_t kPendingFreesShare = 16;
constexpr std::uint64_t kLeastPendingFreesBytes = 64U << 10;
constexpr std::uint64_t kMostPendingFreesBytes = 1U << 20;

// A budget above this is as good as this one: frame numbers end here, and in a 32-bit process its
// addresses do. The cut also keeps what is reckoned from budgets within its types.
constexpr std::uint64_t kMostBudget = std::min<std::uint64_t>(
    std::uint64_t{kNoFrame} << FrameArena::kFrameShift, std::numeric_limits<std::size_t>::max());

}  // namespace

EngineOptions EngineOptions::WithBudget(std::uint64_t bytes) const {
  EngineOptions changed = *this;
  changed.budgetBytes = std::min(bytes, kMostBudget);
  return changed;
}

std::uint32_t EngineOptions::PageShift() const {
  const bool large = sizeof(void*) == 4 && budgetBytes >= kLargePageBudget;
  const std::uint32_t chosen = large ? kLargePage : kSmallPage;
  return static_cast<std::uint32_t>(std::countr_zero(pageSize != 0 ? pageSize : chosen));
}

bool EngineOptions::HugePages() const {
  return budgetBytes >= kHugePageBudget;
}

std::uint32_t EngineOptions::TableLeaves() const {
  constexpr std::uint64_t kLeafBytes = PageTable::kLeafPages * sizeof(PageEntry);
  const std::uint64_t bytes = std::max(budgetBytes / kTableShare, kLeastTableBytes);
  return tableLeaves != 0 ? tableLeaves : static_cast<std::uint32_t>(bytes / kLeafBytes);
}

std::uint16_t EngineOptions::FirstGeneration() const {
  return firstGeneration ? *firstGeneration : DrawFirstGeneration();
}

std::size_t EngineOptions::MostPendingFrees() const {
  const std::uint64_t bytes =
      std::clamp(budgetBytes / kPendingFreesShare, kLeastPendingFreesBytes, kMostPendingFreesBytes);
  return static_cast<std::size_t>(bytes / PendingFrees::kBytes);
}

PagerOptions EngineOptions::ForPager() const {
  PagerOptions pager;
  pager.pageShift = PageShift();
  pager.budgetFrames = std::max<std::uint64_t>(
      {budgetBytes >> FrameArena::kFrameShift, minimumFrames, std::uint64_t{1}});
  pager.batch = batch;
  pager.readAhead = readAhead;
  pager.moveOnUnpin = moveOnUnpin;
  return pager;
}

}  // namespace tcmalloc
