// How spans come into memory: new ones, and those that are out.

#include "libtcmalloc_virtualmm/Pager.h"

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

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
///  1. Ask the read-ahead whether this is a step of a sequential scan, and collect the spans to
///     read: the one asked for and those behind it in the file that are out.
///  2. Take frames for them, evicting others; only the first must succeed.
///  3. Read them in one transfer. If that fails, read the first one alone.
///  4. Check each against the hash kept in memory. A neighbour that does not fit stays out: it is
///     reported when somebody asks for it.
///  5. Install the good ones in the table and the queues.
bool Pager::PageIn(std::uint32_t page) noexcept {
  m_deferred.Flush();
  LIBTCMALLOC_ASSERT(m_table.IsIn(page) && !m_table[page].Resident());
  // Step 1 and 2.
  std::array<MovingSpan, PagingFile::kMaxSlices> spans;
  const std::uint32_t own = SpanPages(page);
  std::size_t count = CollectReads(page, spans, m_readAhead.OnMiss(page, own));
  if (count == 0) {
    return false;
  }
  // Step 3.
  if (!Read(spans.data(), count)) {
    for (std::size_t i = 1; i < count; ++i) {
      m_arena.Release(spans[i].frame);
    }
    if (count == 1 || !Read(spans.data(), 1)) {
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

void Pager::Prefetch(const std::uint32_t* pages, std::uint32_t count) noexcept {
  std::uint32_t begin = 0;  // the pages [begin, end) are to be asked for, none at first
  std::uint32_t end = 0;
  const auto ask = [&] {
    if (begin < end) {
      m_store.Prefetch(m_file.Offset(begin), m_file.Bytes(end - begin));
    }
  };
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t page = pages[i];
    const PageEntry* entry = m_table.Find(page);
    if (entry == nullptr || !entry->IsSpanHead() || entry->Resident() ||
        (entry->flags & PageEntry::kHasCopy) == 0) {
      continue;
    }
    if (page != end) {
      ask();
      begin = page;
    }
    end = page + SpanPages(page);
  }
  ask();
}

/// Takes frames for the span at `page` and for those behind it in the file that are out as well, up
/// to `wanted` pages. Only what lies there without a gap is taken: it is to be read in one
/// transfer.
/// @return the number of spans; 0 when there are no frames for the first
std::size_t Pager::CollectReads(std::uint32_t page,
                                std::array<MovingSpan, PagingFile::kMaxSlices>& spans,
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
    const Purpose purpose = count == 0 ? Purpose::kStoredSpan : Purpose::kReadAhead;
    const std::uint32_t frame = ObtainFrames(FramesOf(own), purpose);
    if (frame == kNoFrame) {
      break;
    }
    // The frames came from spans in memory, and this one was out: it is as it was.
    LIBTCMALLOC_ASSERT(!entry->Resident() && (entry->flags & PageEntry::kHasCopy) != 0);
    spans[count++] = {frame, next, own, entry->hash};
    pages += own;
  }
  return count;
}

/// Reads spans that lie one behind the other. @return whether all of them were read
bool Pager::Read(const MovingSpan* spans, std::size_t count) noexcept {
  const std::uint32_t pages = m_file.Read(spans, count);
  m_counts.reads += pages;
  return pages > 0;
}

/// Puts a span that was read into the table and the queues, if it is what was written; else its
/// frames are given back and it stays out. @return whether it is
bool Pager::Install(const MovingSpan& span) noexcept {
  if (m_file.Hash(span) != span.hash) {
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

/// Makes an entry describe a span in memory: the way in of all spans, and one miss.
/// @param evictedAt  its eviction number, or kNeverEvicted for a new span
/// @param flags      its flags: kHasCopy, or none for a new span
void Pager::MapSpan(std::uint32_t frame, std::uint32_t page, std::uint32_t evictedAt,
                    std::uint8_t flags) noexcept {
  m_clock.OnMiss();
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(m_table.IsIn(page) && entry.IsSpanHead() && !entry.Resident());
  LIBTCMALLOC_ASSERT(m_arena[frame].count == FramesOf(SpanPages(page)));
  entry.where = frame;
  entry.state = entry.Kind();
  entry.flags = flags;
  entry.live = {0, m_clock.Now(), 0, 0};
  // Beyond the budget every last unpin is a chance to get back to it; to catch kept addresses every
  // span moves at it.
  if (m_options.moveOnUnpin || m_arena.UsedFrames() > m_options.budgetFrames) {
    entry.live.touched |= PageEntry::kNotify;
  }
  m_table.OnSpanIn(page);
  m_arena[frame].page = page;
  m_policy.Insert(frame, evictedAt);
}

}  // namespace tcmalloc
