// The way of a span through the two queues, each from its newest end to its oldest:
//
//     new ------> [ small queue ] --- not touched ---> victim
//                       |
//                       | touched: on probation no more
//                       v
//     back soon -> [ main queue ] --- not touched ---> victim
//                    ^        |
//                    +--------+ touched: another round, for one touch less
//
// A span that is pinned when its turn comes leaves its queue and is in none until its last unpin,
// when it is entered as a new one. So no search meets it twice, and the cost of a search does not
// grow with the number of pinned spans.
//
// The links are frame numbers in the frames' descriptors: a queue takes no memory of its own, so
// nothing here can fail.

#include "libtcmalloc_virtualmm/ReplacementPolicy.h"

#include <algorithm>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

constexpr std::uint64_t kSmallShare = 10;  // the small queue holds one frame in ten, as S3-FIFO's

}  // namespace

ReplacementPolicy::ReplacementPolicy(PageTable& table, FrameArena& arena,
                                     std::uint64_t budgetFrames)
    : m_table(table), m_arena(arena) {
  SetBudget(budgetFrames);
}

void ReplacementPolicy::SetBudget(std::uint64_t budgetFrames) {
  m_smallTarget = std::max<std::uint64_t>(1, budgetFrames / kSmallShare);
  m_ghostReach = budgetFrames - budgetFrames / kSmallShare;
}

/// A span is remembered after it left by its eviction number alone, without a list: it left within
/// the last m_ghostReach evictions if the count has not gone on by more since. That is as many as
/// the main queue has frames, like the ghost queue of S3-FIFO.
void ReplacementPolicy::Insert(std::uint32_t frame, std::uint32_t evictedAt) {
  // Sequence numbers wrap around; the difference does not mind. After 2^32 evictions a span may be
  // taken for one that left just now, which costs no more than a wrong queue.
  const bool remembered = evictedAt != kNeverEvicted && m_evictions - evictedAt <= m_ghostReach;
  Append(remembered ? Frame::Queue::kMain : Frame::Queue::kSmall, frame);
}

/// At the end of the main queue, though its turn had come: where a write failed, all others are
/// tried before the same one is.
void ReplacementPolicy::PutBack(std::uint32_t frame) {
  Append(Frame::Queue::kMain, frame);
}

void ReplacementPolicy::Append(Frame::Queue queue, std::uint32_t frame) {
  List& list = ListOf(queue);
  Frame& f = m_arena[frame];
  LIBTCMALLOC_ASSERT(f.queue == Frame::Queue::kNone && f.count > 0);
  LIBTCMALLOC_ASSERT(EntryOf(frame).Resident() && EntryOf(frame).where == frame);
  f.queue = queue;
  f.older = list.newest;
  f.newer = kNoFrame;
  (list.newest == kNoFrame ? list.oldest : m_arena[list.newest].newer) = frame;
  list.newest = frame;
  list.frames += f.count;
}

void ReplacementPolicy::Remove(std::uint32_t frame) {
  Frame& f = m_arena[frame];
  if (f.queue == Frame::Queue::kNone) {
    return;
  }
  List& list = ListOf(f.queue);
  LIBTCMALLOC_ASSERT((f.older == kNoFrame ? list.oldest : m_arena[f.older].newer) == frame);
  LIBTCMALLOC_ASSERT((f.newer == kNoFrame ? list.newest : m_arena[f.newer].older) == frame);
  LIBTCMALLOC_ASSERT(list.frames >= f.count);
  (f.older == kNoFrame ? list.oldest : m_arena[f.older].newer) = f.newer;
  (f.newer == kNoFrame ? list.newest : m_arena[f.newer].older) = f.older;
  list.frames -= f.count;
  f.queue = Frame::Queue::kNone;
  LIBTCMALLOC_ASSERT((list.oldest == kNoFrame) == (list.frames == 0));
  LIBTCMALLOC_ASSERT((list.newest == kNoFrame) == (list.frames == 0));
}

/// Changes the links that lead to the span. Those that lead on from it are in its descriptor, which
/// the caller copies.
void ReplacementPolicy::Replace(std::uint32_t from, std::uint32_t to) {
  const Frame& f = m_arena[from];
  if (f.queue == Frame::Queue::kNone) {
    return;
  }
  LIBTCMALLOC_ASSERT(from != to && m_arena[to].count == f.count);
  List& list = ListOf(f.queue);
  LIBTCMALLOC_ASSERT((f.older == kNoFrame ? list.oldest : m_arena[f.older].newer) == from);
  LIBTCMALLOC_ASSERT((f.newer == kNoFrame ? list.newest : m_arena[f.newer].older) == from);
  (f.older == kNoFrame ? list.oldest : m_arena[f.older].newer) = to;
  (f.newer == kNoFrame ? list.newest : m_arena[f.newer].older) = to;
}

/// Each round:
///  1. Choose the queue. The small one gives while it is over its share, or alone has spans.
///  2. Take its oldest span out. If that is pinned it stays outside, flagged; if it was not touched
///     it is the victim, in no queue from now on, so the caller drops it or puts it back.
///  3. A touched one goes to the main queue: for one touch less if it was there, else with its
///     touches forgotten, for they were one use of it.
/// Cost: amortised constant; at worst 4 rounds for each span in a queue.
std::uint32_t ReplacementPolicy::NextVictim() {
  // Ends: every round takes a span out, moves it from small to main, or uses up one of its touches.
  for (;;) {
    // Step 1.
    const bool fromSmall =
        m_small.oldest != kNoFrame && (m_small.frames > m_smallTarget || m_main.oldest == kNoFrame);
    const std::uint32_t frame = fromSmall ? m_small.oldest : m_main.oldest;
    if (frame == kNoFrame) {
      return kNoFrame;
    }
    PageEntry& entry = EntryOf(frame);
    LIBTCMALLOC_ASSERT((m_arena[frame].queue == Frame::Queue::kSmall) == fromSmall);
    LIBTCMALLOC_ASSERT(entry.Resident() && entry.where == frame);
    // Step 2.
    Remove(frame);
    if (entry.live.pinned > 0) {
      entry.live.touched |= PageEntry::kNotify;
    } else if (entry.Frequency() == 0) {
      return frame;
    } else {
      // Step 3.
      entry.SetFrequency(fromSmall ? 0 : entry.Frequency() - 1);
      Append(Frame::Queue::kMain, frame);
    }
  }
}

/// Passes kNeverEvicted over when the count wraps around: it would make a span that left a new one.
std::uint32_t ReplacementPolicy::NextEviction() {
  if (++m_evictions == kNeverEvicted) {
    ++m_evictions;
  }
  return m_evictions;
}

}  // namespace tcmalloc
