#include "libtcmalloc_virtualmm/Pager.h"

#include <algorithm>
#include <cstring>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"
#include "libtcmalloc_virtualmm/PageHash.h"

namespace tcmalloc {

namespace {

// An epoch is this share of the budget in misses.
constexpr std::uint64_t kEpochShare = 8;

// Written batches and reads ahead stay below these shares of the budget, so that a small budget
// is not emptied by its own machinery.
constexpr std::uint64_t kBatchShare = 32;
constexpr std::uint64_t kReadAheadShare = 16;

// A batch of large spans ends after this many pages: beyond, one transfer is long enough.
constexpr std::uint32_t kBatchPages = 64;

// Victims to try before a disk that takes nothing is believed.
constexpr std::uint32_t kWriteTries = 16;

// Memory that runs of frames may waste in chunks before spans are moved together.
constexpr std::uint64_t kSlackFrames = FrameArena::kChunkFrames;

// After a compaction that a failing disk stopped, so many wishes for one are passed over.
constexpr std::uint32_t kFailurePause = 64;

// After one that found a pinned span in every chunk, one wish for every so many chunks is passed
// over, so that the search costs each of them the same however many chunks there are.
constexpr std::uint32_t kChunksPerPause = 2;

// What fills the old place of a span that was moved to catch kept addresses.
constexpr int kMovedFill = 0xDD;

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
      m_error(error),
      m_policy(table, arena, options.budgetFrames),
      m_readAhead(Share(options.budgetFrames, kReadAheadShare, options.readAhead)),
      m_epochLength(std::max<std::uint64_t>(1, options.budgetFrames / kEpochShare)) {
  LIBTCMALLOC_ASSERT(options.pageShift >= 12 && options.pageShift <= 14);
  LIBTCMALLOC_ASSERT(options.budgetFrames > 0 && options.batch > 0 && options.readAhead > 0);
  LIBTCMALLOC_ASSERT(options.readAhead <= PagingFile::kMaxSlices);
  m_options.batch =
      Share(options.budgetFrames, kBatchShare, std::min(options.batch, std::uint32_t{kMaxBatch}));
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

std::uint64_t Pager::Hash(const Moving& span) const noexcept {
  LIBTCMALLOC_ASSERT(span.frame != kNoFrame && span.pages > 0);
  // The page number is the seed: an image that ends up at another page's place does not fit.
  return PageHash(m_arena.Address(span.frame), SpanBytes(span.pages), span.page);
}

// ---- coming in ----------------------------------------------------------------------------------

std::uint32_t Pager::PlaceNew(std::uint32_t page, std::uint32_t pages) noexcept {
  LIBTCMALLOC_ASSERT(SpanPages(page) == pages && !m_table[page].Resident());
  m_deferred.Flush();
  const std::uint32_t frame = ObtainFrames(FramesOf(pages), Purpose::kNewSpan);
  if (frame != kNoFrame) {
    MapSpan(frame, page, ReplacementPolicy::kNeverEvicted, 0);
    m_table[page].live.touched |= PageEntry::kModified;
  }
  return frame;
}

/// The life of a fault:
///  1. Ask the read-ahead how much of a walk this is, and collect the spans to read: the one
///     asked for and its neighbours in the file that are out.
///  2. Make room and take frames for them; only the first must succeed.
///  3. Read them in one transfer. If that fails, read the first one alone.
///  4. Check each against the hash kept in memory. A neighbour that does not fit stays out: it is
///     reported when somebody asks for it.
///  5. Enter the good ones into the table and the queues.
bool Pager::PageIn(std::uint32_t page) noexcept {
  m_deferred.Flush();
  LIBTCMALLOC_ASSERT(m_table.IsIn(page) && !m_table[page].Resident());
  // Step 1 and 2.
  std::array<Moving, PagingFile::kMaxSlices> spans;
  const std::uint32_t own = SpanPages(page);
  std::size_t count = CollectReads(page, spans, m_readAhead.OnMiss(page, own));
  if (count == 0) {
    return false;
  }
  // Step 3.
  if (!ReadSpans(spans.data(), count)) {
    for (std::size_t i = 1; i < count; ++i) {
      m_arena.Release(spans[i].frame);
    }
    if (count == 1 || !ReadSpans(spans.data(), 1)) {
      m_arena.Release(spans[0].frame);
      return false;
    }
    count = 1;
  }
  // Steps 4 and 5; the span asked for comes last, as the newest.
  for (std::size_t i = count; i-- > 1;) {
    Install(spans[i]);
  }
  if (!Install(spans[0])) {
    ++m_counts.damaged;
    m_error.NoteReason("read the paging file", m_store.Path(),
                       "the page is not what was written to it");
    return false;
  }
  return true;
}

void Pager::Prefetch(std::uint32_t page) noexcept {
  const PageEntry* entry = m_table.Find(page);
  if (entry != nullptr && entry->IsSpanHead() && !entry->Resident() &&
      (entry->flags & PageEntry::kHasCopy) != 0) {
    m_store.Prefetch(FileOffset(page), SpanBytes(SpanPages(page)));
  }
}

std::size_t Pager::CollectReads(std::uint32_t page,
                                std::array<Moving, PagingFile::kMaxSlices>& spans,
                                std::uint32_t wanted) noexcept {
  std::size_t count = 0;
  std::uint32_t pages = 0;
  while (count < spans.size() && (pages < wanted || count == 0)) {
    const std::uint32_t next = page + pages;
    const PageEntry* entry = m_table.Find(next);
    if (entry == nullptr || !entry->IsSpanHead() || entry->Resident() ||
        (entry->flags & PageEntry::kHasCopy) == 0) {
      break;
    }
    const std::uint32_t own = SpanPages(next);
    if (count > 0 && pages + own > wanted) {
      break;
    }
    const std::uint32_t frame = ObtainFrames(FramesOf(own), Purpose::kStoredSpan);
    if (frame == kNoFrame) {
      break;
    }
    // Room was made by others: the span to read is as it was.
    LIBTCMALLOC_ASSERT(!entry->Resident() && (entry->flags & PageEntry::kHasCopy) != 0);
    spans[count++] = {frame, next, own, entry->hash};
    pages += own;
  }
  return count;
}

bool Pager::ReadSpans(const Moving* spans, std::size_t count) noexcept {
  std::array<IoSlice, PagingFile::kMaxSlices> slices;
  std::uint32_t pages = 0;
  LIBTCMALLOC_ASSERT(count > 0 && count <= slices.size());
  for (std::size_t i = 0; i < count; ++i) {
    LIBTCMALLOC_ASSERT(spans[i].page == spans[0].page + pages);
    slices[i] = {m_arena.Address(spans[i].frame), SpanBytes(spans[i].pages)};
    pages += spans[i].pages;
  }
  LIBTCMALLOC_ASSERT(FileOffset(spans[0].page + pages) <= m_store.FileBytes());
  if (!m_store.Read(FileOffset(spans[0].page), slices.data(), count)) {
    return false;
  }
  m_counts.reads += pages;
  return true;
}

bool Pager::Install(const Moving& span) noexcept {
  if (Hash(span) != span.hash) {
    m_arena.Release(span.frame);
    return false;
  }
  MapSpan(span.frame, span.page, m_table[span.page].where, PageEntry::kHasCopy);
  m_arena[span.frame].hash = span.hash;
  LIBTCMALLOC_ASSERT(SpanPages(span.page) == span.pages);
  if (m_table[span.page].Kind() != PageEntry::kLarge) {
    m_slabs.OnPageIn(span.frame);
  }
  HideObjects(span.frame);
  return true;
}

void Pager::MapSpan(std::uint32_t frame, std::uint32_t page, std::uint32_t evictedAt,
                    std::uint8_t flags) noexcept {
  if (++m_epochMisses >= m_epochLength) {
    m_epochMisses = 0;
    m_epoch += PageEntry::kEpochStep;
    m_modifiedEpoch = m_epoch | PageEntry::kModified;
  }
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(m_table.IsIn(page) && entry.IsSpanHead() && !entry.Resident());
  LIBTCMALLOC_ASSERT(m_arena[frame].count == FramesOf(SpanPages(page)));
  entry.where = frame;
  entry.state = entry.Kind();
  entry.flags = flags;
  entry.live = {0, m_epoch, 0, 0};
  // Beyond the budget, and to catch kept addresses, every last unpin counts.
  if (m_options.moveOnUnpin || m_arena.UsedFrames() > m_options.budgetFrames) {
    entry.live.touched |= PageEntry::kNotify;
  }
  m_table.OnSpanIn(page);
  m_arena[frame].page = page;
  m_policy.Insert(frame, evictedAt);
}

// ---- frames -------------------------------------------------------------------------------------

std::uint32_t Pager::ObtainFrames(std::uint32_t count, Purpose purpose) noexcept {
  if (EvictToFit(count) == Outcome::kWriteFailed && purpose == Purpose::kNewSpan) {
    return kNoFrame;  // stored spans are read all the same: what is stored stays readable
  }
  std::uint32_t frame = m_arena.Allocate(count);
  // No run is free: move spans together rather than take more memory than the budget.
  const std::uint64_t chunk = std::max(count, FrameArena::kChunkFrames);
  while (frame == kNoFrame &&
         m_arena.MappedFrames() + chunk > m_options.budgetFrames + kSlackFrames &&
         ReleaseOneChunk()) {
    frame = m_arena.Allocate(count);
  }
  if (frame == kNoFrame) {
    frame = m_arena.AllocateInNewChunk(count);
  }
  // The system has no memory left: live with less.
  while (frame == kNoFrame && count <= FrameArena::kChunkFrames &&
         EvictBatch() == Outcome::kFreed) {
    frame = m_arena.Allocate(count);
  }
  LIBTCMALLOC_ASSERT(frame == kNoFrame || m_arena[frame].count == count);
  if (frame == kNoFrame) {
    m_error.NoteReason("hold another page", nullptr, "the system has no memory left");
  }
  return frame;
}

Pager::Outcome Pager::EvictToFit(std::uint64_t count) noexcept {
  std::uint32_t failures = 0;
  while (m_arena.UsedFrames() + count > m_options.budgetFrames) {
    const Outcome outcome = EvictBatch();
    if (outcome == Outcome::kNothingToFree) {
      return outcome;
    }
    // Where one span cannot be written another may not need to be.
    if (outcome == Outcome::kWriteFailed && ++failures == kWriteTries) {
      return outcome;
    }
  }
  return Outcome::kFreed;
}

bool Pager::ReleaseOneChunk() noexcept {
  // An empty chunk first: spans moved into it would only change places with it.
  return m_arena.ReleaseEmptyChunk() || CompactOneChunk();
}

/// Empties the chunk with the fewest frames in use: spans move where there is room, and leave where
/// there is none. Where a pinned span is in the way, its last unpin is waited for: that makes at
/// least one wish for a compaction for each chunk, more than are passed over after one in vain. So
/// when the last pin has gone the last wish is heard. @return whether the chunk is empty now
bool Pager::CompactOneChunk() noexcept {
  if (m_compactPause > 0) {
    --m_compactPause;
    return false;
  }
  std::uint32_t blockedChunks = 0;
  const std::uint32_t chunk = m_arena.SparsestChunk([&](std::uint32_t frame) {
    // Outside the queues are spans that are waited for, and frames that are still to be read into.
    const bool queued = m_arena[frame].queue != Frame::Queue::kNone;
    PageEntry::Live& live = m_table[m_arena[frame].page].live;
    if (queued && live.pinned == 0) {
      return true;
    }
    live.touched |= queued ? PageEntry::kNotify : 0;
    ++blockedChunks;
    return false;
  });
  if (chunk == kNoFrame) {
    m_compactPause = blockedChunks / kChunksPerPause;
    return false;
  }
  bool emptied = true;
  m_arena.ForEachRunInChunk(chunk, [&](std::uint32_t frame) {
    const std::uint32_t to = m_arena.Allocate(m_arena[frame].count, chunk);
    if (to != kNoFrame) {
      MoveSpan(frame, to);
    } else {
      emptied = EvictOne(frame) && emptied;
    }
  });
  m_compactPause = emptied ? 0 : kFailurePause;
  return emptied;
}

bool Pager::EvictOne(std::uint32_t frame) noexcept {
  LIBTCMALLOC_ASSERT(m_arena[frame].queue != Frame::Queue::kNone);
  m_policy.Remove(frame);
  Moving span{frame, m_arena[frame].page, PagesAt(frame), 0};
  if (!IsUnchanged(span)) {
    return WriteBatch(&span, 1);
  }
  Drop(span);
  return true;
}

void Pager::MoveSpan(std::uint32_t from, std::uint32_t to) noexcept {
  const std::size_t bytes = SpanBytes(PagesAt(from));
  PageEntry& entry = m_table[m_arena[from].page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == from && entry.live.pinned == 0);
  LIBTCMALLOC_ASSERT(m_arena[to].count == m_arena[from].count);
  ObjectGuard::Show(m_arena.Address(from), bytes);
  std::memcpy(m_arena.Address(to), m_arena.Address(from), bytes);
  if (m_options.moveOnUnpin) {
    std::memset(m_arena.Address(from), kMovedFill, bytes);
  }
  m_policy.Replace(from, to);
  m_arena[to] = m_arena[from];
  if (entry.Kind() != PageEntry::kLarge) {
    m_slabs.OnMoved(from, to);
  }
  entry.where = to;
  m_arena.Release(from);
  HideObjects(to);
}

void Pager::HideObjects(std::uint32_t frame) noexcept {
  const PageEntry& entry = m_table[m_arena[frame].page];
  if (entry.Kind() == PageEntry::kLarge) {
    ObjectGuard::Hide(m_arena.Address(frame), SpanBytes(PagesAt(frame)));
  } else {
    ObjectGuard::HideSlab(m_arena.Address(frame), m_classes[entry.Kind()]);
  }
}

// ---- going out ----------------------------------------------------------------------------------

/// Makes at least one span leave:
///  1. Take the next victim. A slab without objects ends. If the file already has what the victim
///     holds, it leaves and that is all.
///  2. Otherwise take the cold spans behind it in the file along, up to the first that is not
///     resident, not cold, or did not change (that one just leaves).
///  3. Write them in one transfer.
///  4. What was written leaves. What could not be written stays, modified and in its queue.
Pager::Outcome Pager::EvictBatch() noexcept {
  if (!m_store.IsOurs()) {
    return Outcome::kWriteFailed;  // what left could not come back
  }
  // Step 1.
  const std::uint32_t victim = m_policy.NextVictim();
  if (victim == kNoFrame) {
    return Outcome::kNothingToFree;
  }
  LIBTCMALLOC_ASSERT(m_table[m_arena[victim].page].live.pinned == 0);
  if (IsEmptySlab(m_table[m_arena[victim].page])) {
    RemoveSpan(m_arena[victim].page);
    return Outcome::kFreed;
  }
  std::array<Moving, kMaxBatch> batch;
  batch[0] = {victim, m_arena[victim].page, PagesAt(victim), 0};
  if (IsUnchanged(batch[0])) {
    Drop(batch[0]);
    return Outcome::kFreed;
  }
  // Step 2.
  std::size_t count = 1;
  std::uint32_t pages = batch[0].pages;
  bool freed = false;
  while (count < m_options.batch && pages < kBatchPages && IsColdSpan(batch[0].page + pages)) {
    const std::uint32_t page = batch[0].page + pages;
    const std::uint32_t frame = m_table[page].where;
    LIBTCMALLOC_ASSERT(m_arena[frame].queue != Frame::Queue::kNone);
    m_policy.Remove(frame);
    batch[count] = {frame, page, PagesAt(frame), 0};
    if (IsUnchanged(batch[count])) {
      Drop(batch[count]);
      freed = true;
      break;
    }
    pages += batch[count++].pages;
  }
  // Steps 3 and 4.
  return WriteBatch(batch.data(), count) || freed ? Outcome::kFreed : Outcome::kWriteFailed;
}

/// Whether a span that may leave now begins at `page`: in memory, with objects but none pinned, and
/// not touched since an epoch or more.
bool Pager::IsColdSpan(std::uint32_t page) noexcept {
  const PageEntry* entry = m_table.Find(page);
  return entry != nullptr && entry->Resident() && entry->live.pinned == 0 &&
         entry->Frequency() == 0 && entry->TouchedEpoch() != m_epoch && !IsEmptySlab(*entry);
}

/// Whether a span in memory is a slab without objects.
bool Pager::IsEmptySlab(const PageEntry& entry) const noexcept {
  return entry.Kind() != PageEntry::kLarge && entry.live.freeSlots == m_classes[entry.Kind()].slots;
}

bool Pager::IsUnchanged(Moving& span) noexcept {
  const PageEntry& entry = m_table[span.page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == span.frame && entry.live.pinned == 0);
  const bool hasCopy = (entry.flags & PageEntry::kHasCopy) != 0;
  if (hasCopy && !entry.Modified()) {
    span.hash = m_arena[span.frame].hash;
    return true;
  }
  ObjectGuard::Show(m_arena.Address(span.frame), SpanBytes(span.pages));
  if (entry.Kind() != PageEntry::kLarge) {
    SlabPage::At(m_arena.Address(span.frame))->Save(entry.live);
  }
  span.hash = Hash(span);
  return hasCopy && span.hash == m_arena[span.frame].hash;
}

bool Pager::WriteBatch(const Moving* spans, std::size_t count) noexcept {
  std::array<IoSlice, kMaxBatch> slices{};
  std::uint32_t pages = 0;
  LIBTCMALLOC_ASSERT(count > 0 && count <= slices.size());
  for (std::size_t i = 0; i < count; ++i) {
    LIBTCMALLOC_ASSERT(spans[i].page == spans[0].page + pages);
    slices[i] = {m_arena.Address(spans[i].frame), SpanBytes(spans[i].pages)};
    pages += spans[i].pages;
  }
  LIBTCMALLOC_ASSERT(spans[0].page + pages <= m_table.UsedEnd());
  const bool written = m_store.Write(FileOffset(spans[0].page), slices.data(), count);
  m_counts.writes += written ? pages : 0;
  for (std::size_t i = 0; i < count; ++i) {
    written ? Drop(spans[i]) : Requeue(spans[i]);
  }
  return written;
}

void Pager::Drop(const Moving& span) noexcept {
  PageEntry& entry = m_table[span.page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == span.frame && entry.live.pinned == 0);
  LIBTCMALLOC_ASSERT(m_arena[span.frame].queue == Frame::Queue::kNone);
  LIBTCMALLOC_ASSERT(FileOffset(span.page + span.pages) <= m_store.FileBytes());
  entry.state |= PageEntry::kPagedOut;
  entry.flags = PageEntry::kHasCopy;
  if (entry.Kind() != PageEntry::kLarge) {
    m_slabs.OnPageOut(span.frame);
  }
  entry.where = m_policy.NextEviction();
  entry.hash = span.hash;
  m_table.OnSpanOut(span.page);
  m_counts.outs += span.pages;
  m_arena.Release(span.frame);
}

void Pager::Requeue(const Moving& span) noexcept {
  LIBTCMALLOC_ASSERT(m_table[span.page].Resident());
  // The image in the file may be torn now: until a write succeeds there is no copy.
  m_table[span.page].flags &= static_cast<std::uint8_t>(~PageEntry::kHasCopy);
  m_policy.PutBack(span.frame);
  HideObjects(span.frame);
}

void Pager::EndSpan(std::uint32_t page) noexcept {
  const bool awaited = m_table[page].Resident() && m_table[page].Notifies();
  RemoveSpan(page);
  if (awaited) {
    m_deferred.Flush();
    TrimExcess();
  }
}

void Pager::RemoveSpan(std::uint32_t page) noexcept {
  const PageEntry& entry = m_table[page];
  const std::uint32_t pages = SpanPages(page);
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
  const bool isRetired = entry.IsUsedUp();
  m_table.Release(page, pages);
  if (isRetired) {
    m_store.Discard(FileOffset(page), SpanBytes(1));
  }
}

// ---- the budget and the file --------------------------------------------------------------------

void Pager::OnLastUnpin(std::uint32_t page) noexcept {
  m_deferred.Flush();
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(entry.Resident());
  if (m_arena[entry.where].queue == Frame::Queue::kNone) {
    m_policy.Insert(entry.where, ReplacementPolicy::kNeverEvicted);
  }
  if (m_options.moveOnUnpin) {
    const std::uint32_t count = m_arena[entry.where].count;
    std::uint32_t to = m_arena.Allocate(count);
    to = to != kNoFrame ? to : m_arena.AllocateInNewChunk(count);
    if (to != kNoFrame) {
      MoveSpan(entry.where, to);
    }
  } else {
    entry.live.touched &= static_cast<std::uint16_t>(~PageEntry::kNotify);
  }
  TrimExcess();
}

void Pager::TrimExcess() noexcept {
  EvictToFit(0);
  const auto wasted = [this] {
    return m_arena.MappedFrames() > m_options.budgetFrames + kSlackFrames &&
           m_arena.MappedFrames() - m_arena.UsedFrames() >= 2 * kSlackFrames;
  };
  while (wasted() && ReleaseOneChunk()) {
  }
  if (!wasted()) {
    m_compactPause = 0;  // what was in vain before says nothing about the next need
  }
}

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
    if (!m_store.Reserve(FileOffset(first), FileOffset(page), page == end)) {
      return false;
    }
  }
  return true;
}

void Pager::CutFile() noexcept {
  // The empty slab that a class keeps open must not hold the end of a file that is mostly free.
  const auto used = static_cast<std::uint32_t>(m_table.UsedPages() + m_table.RetiredPages());
  if (m_store.WorthCutting(FileOffset(used)) &&
      !m_store.WorthCutting(FileOffset(m_table.UsedEnd()))) {
    for (std::uint32_t i = 0; i < m_classes.Count(); ++i) {
      const SlabDirectory::ClassState& state = m_slabs[static_cast<std::uint8_t>(i)];
      if (state.openSlab != nullptr && state.openPage >= used && IsEmptySlab(*state.openEntry)) {
        RemoveSpan(state.openPage);
      }
    }
  }
  m_store.CutTail(FileOffset(m_table.UsedEnd()));
}

}  // namespace tcmalloc
