// How the pager comes by frames and keeps to the budget: evictions, compaction of chunks, excess.

#include "libtcmalloc_virtualmm/Pager.h"

#include <algorithm>
#include <cstring>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"

namespace tcmalloc {

namespace {

// Victims to try before a disk that takes nothing is believed.
constexpr std::uint32_t kWriteTries = 16;

// Memory that runs of frames may waste in chunks before spans are moved together.
constexpr std::uint64_t kSlackFrames = FrameArena::kChunkFrames;

// After a compaction that a failing disk stopped, so many requests for one are passed over.
constexpr std::uint32_t kFailurePause = 64;

// After one that found a pinned span in every chunk, one request for every so many chunks is passed
// over, so that the search costs each of them the same however many chunks there are.
constexpr std::uint32_t kChunksPerPause = 2;

// What fills the old place of a span that was moved to catch kept addresses.
constexpr int kMovedFill = 0xDD;

}  // namespace

/// Takes a run of frames, in the order of what it costs:
///  1. Evict down to the budget. Where nothing can be written, a new span is refused, but one that
///     is stored is read all the same: what is stored stays readable while the disk takes nothing.
///     Where all is pinned, the budget is exceeded, which is noted, but not to read ahead.
///  2. Take a free run.
///  3. Where none is long enough and another chunk would exceed the budget and the slack, empty
///     chunks, so that free frames lie together.
///  4. Take a further chunk from the system.
///  5. Without memory from the system, evict until a run is free: live with less.
std::uint32_t Pager::ObtainFrames(std::uint32_t count, Purpose purpose) noexcept {
  const Outcome evicted = EvictToFit(count);
  if (evicted == Outcome::kWriteFailed && purpose == Purpose::kNewSpan) {
    return kNoFrame;
  }
  if (evicted == Outcome::kNothingToFree && purpose == Purpose::kReadAhead) {
    return kNoFrame;
  }
  // Step 2.
  std::uint32_t frame = m_arena.Allocate(count);
  // Step 3.
  const std::uint64_t chunk = std::max(count, FrameArena::kChunkFrames);
  while (frame == kNoFrame &&
         m_arena.MappedFrames() + chunk > m_options.budgetFrames + kSlackFrames &&
         ReleaseOneChunk()) {
    frame = m_arena.Allocate(count);
  }
  // Step 4.
  if (frame == kNoFrame) {
    frame = m_arena.AllocateInNewChunk(count);
  }
  // Step 5.
  while (frame == kNoFrame && count <= FrameArena::kChunkFrames &&
         EvictBatch() == Outcome::kFreed) {
    frame = m_arena.Allocate(count);
  }
  LIBTCMALLOC_ASSERT(frame == kNoFrame || m_arena[frame].count == count);
  if (frame == kNoFrame) {
    m_error.NoteReason("hold another page", nullptr, "the system has no memory left");
  } else if (evicted == Outcome::kNothingToFree) {
    NoteExcess(count);
  }
  return frame;
}

/// Evicts until `count` more frames are within the budget. Nothing to free is no failure of the
/// disk: everything left is pinned, and pins may exceed the budget.
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

/// Gives a chunk back to the system. @return whether that was possible
bool Pager::ReleaseOneChunk() noexcept {
  // An empty chunk first: spans moved into it would only change places with it.
  return m_arena.ReleaseEmptyChunk() || CompactOneChunk();
}

/// Empties the chunk with the fewest frames in use: spans move to other chunks, and leave memory
/// where those have no run for them. @return whether the chunk is empty now
///
/// Why a compaction blocked by pins is not forgotten: where every chunk has a pinned span, one in
/// each is flagged kNotify, so at least `blockedChunks` last unpins will ask for a compaction.
/// After such a search only blockedChunks / kChunksPerPause requests are passed over, fewer than
/// there will be. So the last of the unpins is heard.
bool Pager::CompactOneChunk() noexcept {
  if (m_compactPause > 0) {
    --m_compactPause;
    return false;
  }
  std::uint32_t blockedChunks = 0;
  const std::uint32_t chunk = m_arena.SparsestChunk([&](std::uint32_t frame) {
    // Outside the queues are spans flagged before, and frames that are still to be read into: their
    // descriptor names no span yet, and none must be flagged for them.
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

/// Moves an unpinned span to other frames of the same number, and whatever knows its frame with it.
void Pager::MoveSpan(std::uint32_t from, std::uint32_t to) noexcept {
  const std::size_t bytes = m_file.Bytes(PagesAt(from));
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

/// Forbids access to the objects of a span in memory, none of which is pinned (see ObjectGuard).
void Pager::HideObjects(std::uint32_t frame) noexcept {
  const PageEntry& entry = m_table[m_arena[frame].page];
  if (entry.Kind() == PageEntry::kLarge) {
    ObjectGuard::Hide(m_arena.Address(frame), m_file.Bytes(PagesAt(frame)));
  } else {
    ObjectGuard::HideSlab(m_arena.Address(frame), m_classes[entry.Kind()]);
  }
}

/// If the policy met the span pinned, it took it out of its queue; it begins there as a new one.
/// With moveOnUnpin the flag stays, so that every last unpin moves the span.
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

/// Notes that a span of so many frames, which are taken, is in memory beyond the budget.
void Pager::NoteExcess(std::uint32_t frames) noexcept {
  const std::uint64_t used = m_arena.UsedFrames();
  LIBTCMALLOC_ASSERT(used > m_options.budgetFrames && used >= frames);
  ++m_excess.times;
  m_excess.mostFrames = std::max(m_excess.mostFrames, used - m_options.budgetFrames);
  m_excess.lastFrames = frames;
  m_excess.lastUsed = used - frames;
  m_excess.lastBudget = m_options.budgetFrames;
}

/// Gives back what exceeds the budget: frames, then chunks while two chunks' worth of what is
/// mapped is unused. @return what came of the frames
Pager::Outcome Pager::TrimExcess() noexcept {
  const Outcome outcome = EvictToFit(0);
  const auto wasted = [this] {
    return m_arena.MappedFrames() > m_options.budgetFrames + kSlackFrames &&
           m_arena.MappedFrames() - m_arena.UsedFrames() >= 2 * kSlackFrames;
  };
  while (wasted() && ReleaseOneChunk()) {
  }
  if (!wasted()) {
    m_compactPause = 0;  // what was in vain before says nothing about the next need
  }
  return outcome;
}

}  // namespace tcmalloc
