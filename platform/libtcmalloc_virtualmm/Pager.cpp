#include "libtcmalloc_virtualmm/Pager.h"

#include <algorithm>
#include <utility>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

// Written batches and reads ahead stay below these shares of the budget, so that a small budget
// is not emptied by its own machinery.
constexpr std::uint64_t kBatchShare = 32;
constexpr std::uint64_t kReadAheadShare = 16;

std::uint32_t Share(std::uint64_t frames, std::uint64_t share, std::uint32_t most) {
  return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(frames / share, 1, most));
}

}  // namespace

Pager::Pager(const PagerOptions& options, const SizeClasses& classes, PageTable& table,
             FrameArena& arena, SlabDirectory& slabs, DeferredPins& deferred, BackingStore& store,
             StoreError& error)
    : m_options(options),
      m_frameShift(options.pageShift - FrameArena::kFrameShift),
      m_classes(classes),
      m_table(table),
      m_arena(arena),
      m_slabs(slabs),
      m_deferred(deferred),
      m_store(store),
      m_file(store, arena, options.pageShift),
      m_error(error),
      m_policy(table, arena, options.budgetFrames),
      m_readAhead(1),
      m_clock(options.budgetFrames) {
  LIBTCMALLOC_ASSERT(options.pageShift >= 12 && options.pageShift <= 14);
  LIBTCMALLOC_ASSERT(options.budgetFrames > 0 && options.batch > 0 && options.readAhead > 0);
  LIBTCMALLOC_ASSERT(options.readAhead <= PagingFile::kMaxSlices);
  TakeShares(options);
}

/// Takes the budget over, and what is a share of it.
void Pager::TakeShares(const PagerOptions& options) noexcept {
  const std::uint64_t frames = options.budgetFrames;
  m_options.budgetFrames = frames;
  m_options.batch = Share(frames, kBatchShare, std::min(options.batch, std::uint32_t{kMaxBatch}));
  m_options.readAhead = Share(frames, kReadAheadShare, options.readAhead);
  m_readAhead.SetMaxWindow(m_options.readAhead);
  m_policy.SetBudget(frames);
  m_clock.SetBudget(frames);
}

///  1. Of a smaller budget, what is stored may be larger, so that it needs disk space from now on.
///     Without it the budget stays: what had to leave could not, and new objects would find no
///     place in memory or in the file.
///  2. Take the budget over.
///  3. Go down to it. A compaction that was given up before is tried again: much may be free now.
Pager::Change Pager::SetBudget(const PagerOptions& options) noexcept {
  LIBTCMALLOC_ASSERT(options.budgetFrames > 0);
  m_deferred.Flush();
  // Step 1.
  const std::uint64_t before = std::exchange(m_options.budgetFrames, options.budgetFrames);
  if (options.budgetFrames < before && !ReserveDiskSpace()) {
    m_options.budgetFrames = before;
    return Change::kRefused;
  }
  // Steps 2 and 3.
  TakeShares(options);
  m_compactPause = 0;
  return TrimExcess() == Outcome::kWriteFailed ? Change::kBehind : Change::kDone;
}

std::uint32_t Pager::SpanPages(std::uint32_t page) noexcept {
  const PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(entry.IsSpanHead());
  if (entry.Kind() != PageEntry::kLarge) {
    return m_classes[entry.Kind()].pages;
  }
  const std::uint64_t pageBytes = std::uint64_t{1} << m_options.pageShift;
  return static_cast<std::uint32_t>((m_table.LargeBytes(page) + pageBytes - 1) >>
                                    m_options.pageShift);
}

/// Whether a span in memory is a slab without objects.
bool Pager::IsEmptySlab(const PageEntry& entry) const noexcept {
  return entry.Kind() != PageEntry::kLarge && entry.live.freeSlots == m_classes[entry.Kind()].slots;
}

// ---- the end of spans ---------------------------------------------------------------------------

/// A span flagged kNotify may be what a compaction or memory beyond the budget waits for: with its
/// end that wait is over, as with its last unpin.
void Pager::EndSpan(std::uint32_t page) noexcept {
  const bool awaited = m_table[page].Resident() && m_table[page].Notifies();
  RemoveSpan(page);
  if (awaited) {
    m_deferred.Flush();
    TrimExcess();
  }
}

/// Takes a span apart wherever it is, without a write:
///  1. In memory: the slab directory, the policy and the arena forget it, in this order, since the
///     first two look it up by its frame's descriptor. The table counts it out of its leaf.
///  2. Its page numbers are free again. If the first one is retired instead, its place in the file
///     is never used again and goes back to the file system.
void Pager::RemoveSpan(std::uint32_t page) noexcept {
  const PageEntry& entry = m_table[page];
  const std::uint32_t pages = SpanPages(page);
  // Step 1.
  if (entry.Resident()) {
    LIBTCMALLOC_ASSERT(m_arena[entry.where].page == page && PagesAt(entry.where) == pages);
    LIBTCMALLOC_ASSERT(entry.Kind() == PageEntry::kLarge || IsEmptySlab(entry));
    if (entry.Kind() != PageEntry::kLarge) {
      m_slabs.OnRelease(entry.where);
    }
    m_policy.Remove(entry.where);
    m_arena.Release(entry.where);
    m_table.OnSpanOut(page);
  }
  // Step 2.
  const bool isRetired = entry.IsUsedUp();
  m_table.Release(page, pages);
  if (isRetired) {
    m_store.Discard(m_file.Offset(page), m_file.Bytes(1));
  }
}

// ---- the length of the paging file --------------------------------------------------------------

/// As long as the store fits into the budget nothing needs to be written, so no space is asked for,
/// and no file is made. After that what has page numbers has disk space: a page that has to leave
/// finds its place.
bool Pager::ReserveDiskSpace() noexcept {
  if (m_table.UsedPages() << m_frameShift <= m_options.budgetFrames) {
    return true;
  }
  // Retired pages need no space: what lies between them is set aside run by run.
  const std::uint32_t end = m_table.UsedEnd();
  auto page = static_cast<std::uint32_t>(m_store.ReservedEnd() >> m_options.pageShift);
  while (page < end) {
    const std::uint32_t first = m_table.EndOfRun(page, true);
    page = std::min(end, m_table.EndOfRun(first, false));
    if (!m_store.Reserve(m_file.Offset(first), m_file.Offset(page), page == end)) {
      return false;
    }
  }
  return true;
}

/// A slab that a class keeps open without an object in it ends here if it is all that keeps a long
/// free end of the file in use. Elsewhere such slabs stay: the next object of the class needs one.
void Pager::CutFile() noexcept {
  const auto used = static_cast<std::uint32_t>(m_table.UsedPages() + m_table.RetiredPages());
  if (m_store.WorthCutting(m_file.Offset(used)) &&
      !m_store.WorthCutting(m_file.Offset(m_table.UsedEnd()))) {
    for (std::uint32_t i = 0; i < m_classes.Count(); ++i) {
      const SlabDirectory::ClassState& state = m_slabs[static_cast<std::uint8_t>(i)];
      if (state.openSlab != nullptr && state.openPage >= used && IsEmptySlab(*state.openEntry)) {
        RemoveSpan(state.openPage);
      }
    }
  }
  m_store.CutTail(m_file.Offset(m_table.UsedEnd()));
}

}  // namespace tcmalloc
