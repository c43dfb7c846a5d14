// How spans leave memory.

#include "libtcmalloc_virtualmm/Pager.h"

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"

namespace tcmalloc {

namespace {

// A batch of large spans ends after this many pages: beyond, one transfer is long enough. (How many
// slices the system takes at once is another limit, which kMaxBatch keeps to.)
constexpr std::uint32_t kBatchPages = 64;

}  // namespace

/// Makes at least one span leave:
///  1. Take the next victim. A slab without objects ends. If the file already has what the victim
///     holds, it leaves and that is all.
///  2. Otherwise collect the cold spans behind it in the file, up to the first that is not
///     resident, not cold, or did not change (that one is dropped at once). All of them leave their
///     queues.
///  3. Write them in one transfer.
///  4. What was written is dropped. What could not be written is requeued, modified as it was.
/// A batch of which one span was dropped unwritten has freed something, whatever became of the
/// rest.
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
  std::array<MovingSpan, kMaxBatch> batch;
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

/// Makes the span at a frame leave, whether it was used or not; it is in a queue, so not pinned. A
/// slab without objects ends, as in EvictBatch. @return false when it cannot be written; it stays
bool Pager::EvictOne(std::uint32_t frame) noexcept {
  LIBTCMALLOC_ASSERT(m_arena[frame].queue != Frame::Queue::kNone);
  if (IsEmptySlab(m_table[m_arena[frame].page])) {
    RemoveSpan(m_arena[frame].page);
    return true;
  }
  if (!m_store.IsOurs()) {
    return false;  // what left could not come back
  }
  m_policy.Remove(frame);
  MovingSpan span{frame, m_arena[frame].page, PagesAt(frame), 0};
  if (!IsUnchanged(span)) {
    return WriteBatch(&span, 1);
  }
  Drop(span);
  return true;
}

/// Whether a span that may leave now begins at `page`: in memory, with objects but none pinned, and
/// not touched since an epoch or more.
bool Pager::IsColdSpan(std::uint32_t page) noexcept {
  const PageEntry* entry = m_table.Find(page);
  return entry != nullptr && entry->Resident() && entry->live.pinned == 0 &&
         entry->Frequency() == 0 && entry->TouchedEpoch() != m_clock.Now() && !IsEmptySlab(*entry);
}

/// Whether the file already holds what a span in memory holds, so that it can leave without a
/// write. A span that was pinned for writing is hashed: often nothing was changed. Notes the hash
/// in `span`, and in a slab what its entry keeps for it while it is in memory.
bool Pager::IsUnchanged(MovingSpan& span) noexcept {
  const PageEntry& entry = m_table[span.page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == span.frame && entry.live.pinned == 0);
  const bool hasCopy = (entry.flags & PageEntry::kHasCopy) != 0;
  if (hasCopy && !entry.Modified()) {
    span.hash = m_arena[span.frame].hash;
    return true;
  }
  ObjectGuard::Show(m_arena.Address(span.frame), m_file.Bytes(span.pages));
  if (entry.Kind() != PageEntry::kLarge) {
    SlabPage::At(m_arena.Address(span.frame))->Save(entry.live);
  }
  span.hash = m_file.Hash(span);
  return hasCopy && span.hash == m_arena[span.frame].hash;
}

/// Writes spans that lie one behind the other, each out of its queue, in one transfer. Those that
/// were written are dropped; if the transfer fails, all are requeued. @return whether it succeeded
bool Pager::WriteBatch(const MovingSpan* spans, std::size_t count) noexcept {
  const std::uint32_t pages = m_file.Write(spans, count);
  m_counts.writes += pages;
  for (std::size_t i = 0; i < count; ++i) {
    pages > 0 ? Drop(spans[i]) : Requeue(spans[i]);
  }
  return pages > 0;
}

/// Drops a span from memory, whose image in the file is what it holds. Its entry is described by
/// other fields while it is out: `where` turns from a frame into an eviction number, and the free
/// slots and marks make way for the hash. So the order matters:
///  1. Mark it as out and take its marks of a span in memory away: whoever looks it up from now on
///     finds nothing in memory.
///  2. The slab directory lists it if it has free slots enough. It reads them in the entry, and the
///     page in the frame's descriptor, and marks the entry (so it comes after step 1).
///  3. Overwrite what step 2 read: eviction number and hash. The entry is whole.
///  4. Tell the table: the leaf may be idle now and leave at the next need, so the entry is not
///     touched any more.
///  5. Give the frames back.
void Pager::Drop(const MovingSpan& span) noexcept {
  PageEntry& entry = m_table[span.page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == span.frame && entry.live.pinned == 0);
  LIBTCMALLOC_ASSERT(m_arena[span.frame].queue == Frame::Queue::kNone);
  LIBTCMALLOC_ASSERT(m_file.Offset(span.page + span.pages) <= m_store.FileBytes());
  // Step 1.
  entry.state |= PageEntry::kPagedOut;
  entry.flags = PageEntry::kHasCopy;
  // Step 2.
  if (entry.Kind() != PageEntry::kLarge) {
    m_slabs.OnPageOut(span.frame);
  }
  // Step 3.
  entry.where = m_policy.NextEviction();
  entry.hash = span.hash;
  // Steps 4 and 5.
  m_table.OnSpanOut(span.page);
  m_counts.outs += span.pages;
  m_arena.Release(span.frame);
}

/// Puts a span that could not be written back into its queue.
void Pager::Requeue(const MovingSpan& span) noexcept {
  LIBTCMALLOC_ASSERT(m_table[span.page].Resident());
  // The image in the file may be torn now: until a write succeeds there is no copy.
  m_table[span.page].flags &= static_cast<std::uint8_t>(~PageEntry::kHasCopy);
  m_policy.PutBack(span.frame);
  HideObjects(span.frame);
}

}  // namespace tcmalloc
