#ifndef LIBTCMALLOC_VIRTUALMM_PAGER_H
#define LIBTCMALLOC_VIRTUALMM_PAGER_H

#include <array>
#include <cstdint>

#include "libtcmalloc_virtualmm/BackingStore.h"
#include "libtcmalloc_virtualmm/DeferredPins.h"
#include "libtcmalloc_virtualmm/EpochClock.h"
#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "libtcmalloc_virtualmm/ReadAhead.h"
#include "libtcmalloc_virtualmm/ReplacementPolicy.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"
#include "libtcmalloc_virtualmm/SlabDirectory.h"
#include "libtcmalloc_virtualmm/SpanFile.h"
#include "libtcmalloc_virtualmm/StoreError.h"

namespace tcmalloc {

/// Counts of what the pager did, in pages.
struct PagerCounts {
  std::uint64_t reads = 0;    ///< read from the paging file
  std::uint64_t writes = 0;   ///< written to it
  std::uint64_t outs = 0;     ///< left memory with their content kept; less writes: writes saved
  std::uint64_t damaged = 0;  ///< spans that did not come back as they were written
};

/// The times that memory beyond the budget was taken because all of it was pinned.
struct BudgetExcess {
  std::uint64_t times = 0;       ///< spans brought in or made so
  std::uint64_t mostFrames = 0;  ///< most frames beyond the budget at one time
  std::uint64_t lastFrames = 0;  ///< the last time: frames of the span,
  std::uint64_t lastUsed = 0;    ///< frames in use before it,
  std::uint64_t lastBudget = 0;  ///< and frames of the budget
};

/// What the pager works with.
struct PagerOptions {
  std::uint32_t pageShift = 12;    ///< log2 of the page size, 12 to 14
  std::uint64_t budgetFrames = 0;  ///< frames of 4 KiB to stay under, at least 1
  std::uint32_t batch = 8;         ///< most spans written in one go, 1 to 16
  std::uint32_t readAhead = 16;    ///< most pages read in one go, 1 to 64
  bool moveOnUnpin = false;        ///< move every span at its last unpin, to catch kept addresses
};

/// Decides which spans are in memory: brings them in, makes room under the budget, writes what
/// changed. Spans with a pinned object never leave or move; what may let others do so flushes the
/// deferred pins first. Nothing here throws; what fails is noted in the StoreError and leaves every
/// span as it was.
class Pager {
 public:
  /// The parts are the engine's own and outlive the pager.
  Pager(const PagerOptions& options, const SizeClasses& classes, PageTable& table,
        FrameArena& arena, SlabDirectory& slabs, DeferredPins& deferred, BackingStore& store,
        StoreError& error);

  /// What came of a change of the budget: done; done, but what should leave cannot be written; or
  /// refused, since it finds no disk space.
  enum class Change { kDone, kBehind, kRefused };

  /// Takes another budget and what follows from it. Lowering it makes what is not pinned leave now,
  /// down to the budget; what is pinned follows at its last unpin, and what cannot be written is
  /// tried again at the next need. When that is refused, nothing has changed.
  /// @param options  the engine's set-up for that budget, but for the page size
  Change SetBudget(const PagerOptions& options) noexcept;

  /// Gives frames to a new span of `pages` pages whose kind is set, enters it as modified and, as
  /// long as its objects are not counted yet, unpinned.
  /// @return its first frame, or kNoFrame without memory or when room cannot be made
  std::uint32_t PlaceNew(std::uint32_t page, std::uint32_t pages) noexcept;

  /// Brings a span that is out, its leaf of the page table in memory, into memory and checks that
  /// it is what was written.
  /// @return false when it cannot be read intact; it stays out
  bool PageIn(std::uint32_t page) noexcept;

  /// Tells the system that a span will be brought in soon; ignored for anything but a page that
  /// begins a span that is out, and while that span's leaf of the page table is out as well.
  [[gnu::cold]] void Prefetch(std::uint32_t page) noexcept { Prefetch(&page, 1); }

  /// The same for several pages, in ascending order; spans that lie side by side are asked for at
  /// once.
  void Prefetch(const std::uint32_t* pages, std::uint32_t count) noexcept;

  /// Ends a span without objects, or a large object's: it leaves memory, without a write, and its
  /// pages are free. If the pager waited for its last unpin, this is it.
  void EndSpan(std::uint32_t page) noexcept;

  /// To be called at the last unpin of a span flagged kNotify: it may leave again, and what memory
  /// exceeds the budget is given back.
  void OnLastUnpin(std::uint32_t page) noexcept;

  /// Makes sure that everything up to the last page has disk space once the store outgrows the
  /// budget, so that a full disk is noticed while all data is safe.
  bool ReserveDiskSpace() noexcept;

  /// Cuts the paging file off behind the last page when that is worth it.
  void CutFile() noexcept;

  /// Pages of the span at `page`.
  std::uint32_t SpanPages(std::uint32_t page) noexcept;

  /// The current epoch (see EpochClock).
  std::uint16_t Epoch() const { return m_clock.Now(); }
  /// What PageEntry::Live::touched says of a modified span touched in the current epoch.
  std::uint16_t ModifiedEpoch() const { return m_clock.Modified(); }
  const PagerCounts& Counts() const { return m_counts; }
  std::uint64_t BudgetFrames() const { return m_options.budgetFrames; }
  const BudgetExcess& Excess() const { return m_excess; }

 private:
  friend class EngineChecker;
  enum class Purpose { kNewSpan, kStoredSpan, kReadAhead };
  enum class Outcome { kFreed, kNothingToFree, kWriteFailed };
  static constexpr std::uint32_t kMaxBatch = 16;

  // Coming in: PagerIn.cpp.
  std::size_t CollectReads(std::uint32_t page,
                           std::array<MovingSpan, PagingFile::kMaxSlices>& spans,
                           std::uint32_t wanted) noexcept;
  bool Read(const MovingSpan* spans, std::size_t count) noexcept;
  bool Install(const MovingSpan& span) noexcept;
  void MapSpan(std::uint32_t frame, std::uint32_t page, std::uint32_t evictedAt,
               std::uint8_t flags) noexcept;

  // Going out: PagerOut.cpp.
  Outcome EvictBatch() noexcept;
  bool EvictOne(std::uint32_t frame) noexcept;
  bool IsColdSpan(std::uint32_t page) noexcept;
  bool IsUnchanged(MovingSpan& span) noexcept;
  bool WriteBatch(const MovingSpan* spans, std::size_t count) noexcept;
  void Drop(const MovingSpan& span) noexcept;
  void Requeue(const MovingSpan& span) noexcept;

  // Frames and the budget: PagerFrames.cpp.
  std::uint32_t ObtainFrames(std::uint32_t count, Purpose purpose) noexcept;
  Outcome EvictToFit(std::uint64_t count) noexcept;
  bool ReleaseOneChunk() noexcept;
  bool CompactOneChunk() noexcept;
  void MoveSpan(std::uint32_t from, std::uint32_t to) noexcept;
  void HideObjects(std::uint32_t frame) noexcept;
  void NoteExcess(std::uint32_t frames) noexcept;
  Outcome TrimExcess() noexcept;

  void TakeShares(const PagerOptions& options) noexcept;

  // The end of spans, and what several of the above need: Pager.cpp.
  void RemoveSpan(std::uint32_t page) noexcept;
  bool IsEmptySlab(const PageEntry& entry) const noexcept;
  std::uint32_t FramesOf(std::uint32_t pages) const { return pages << m_frameShift; }
  std::uint32_t PagesAt(std::uint32_t frame) { return m_arena[frame].count >> m_frameShift; }

  PagerOptions m_options;
  std::uint32_t m_frameShift;  // log2 of the frames of a page
  const SizeClasses& m_classes;
  PageTable& m_table;
  FrameArena& m_arena;
  SlabDirectory& m_slabs;
  DeferredPins& m_deferred;
  BackingStore& m_store;             // the paging file: its length, its space, whether it is ours
  SpanFile m_file;                   // the paging file: what is read and written of it
  StoreError& m_error;               // receives failures
  ReplacementPolicy m_policy;        // what leaves next
  ReadAhead m_readAhead;             // how much to read at a fault
  EpochClock m_clock;                // ticks with the misses
  PagerCounts m_counts;              // what was done so far
  BudgetExcess m_excess;             // what pins took beyond the budget
  std::uint32_t m_compactPause = 0;  // requests for a compaction to pass over
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGER_H
