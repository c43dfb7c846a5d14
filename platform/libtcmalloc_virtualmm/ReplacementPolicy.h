#ifndef LIBTCMALLOC_VIRTUALMM_REPLACEMENTPOLICY_H
#define LIBTCMALLOC_VIRTUALMM_REPLACEMENTPOLICY_H

#include <cstdint>

#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/PageTable.h"

namespace tcmalloc {

/// Chooses what leaves memory: two first-in-first-out queues after S3-FIFO (Yang et al., "FIFO
/// queues are all you need for cache eviction", 2023), with touches counted once an epoch.
///
/// New spans enter the small queue, a tenth of the frames. Those touched again in a later epoch
/// move on to the main queue, the rest leave first; a span that comes back soon after it left
/// enters the main queue at once. The main queue gives each span as many further rounds as it was
/// touched. Touches are counted once an epoch (see EpochClock): a tree walk that pins one page
/// fifty times in a row counts as one touch and not as fifty.
class ReplacementPolicy {
 public:
  /// @param budgetFrames  frames that the budget holds
  ReplacementPolicy(PageTable& table, FrameArena& arena, std::uint64_t budgetFrames);

  /// Takes another budget. The queues find to their new shares as spans come and go.
  void SetBudget(std::uint64_t budgetFrames);

  /// Enters a span that came into memory.
  /// @param evictedAt  its eviction sequence number, or kNeverEvicted for a new span
  void Insert(std::uint32_t frame, std::uint32_t evictedAt);

  /// Enters a span again that NextVictim gave out and that could not leave, as the newest.
  void PutBack(std::uint32_t frame);

  /// Takes a span out of its queue, if it stands in one.
  void Remove(std::uint32_t frame);

  /// Puts the span at `to` where the one at `from` stands; both describe the same span.
  void Replace(std::uint32_t from, std::uint32_t to);

  /// Takes the span that should leave next out of its queue. Pinned spans it meets are taken out
  /// as well and flagged kNotify: they wait outside until their last unpin.
  /// @return its frame, or kNoFrame when no span can leave
  std::uint32_t NextVictim();

  /// The sequence number to note in a span that leaves now.
  std::uint32_t NextEviction();

  static constexpr std::uint32_t kNeverEvicted = 0;

 private:
  friend class EngineChecker;
  struct List {
    std::uint32_t oldest = kNoFrame;  // next to be looked at
    std::uint32_t newest = kNoFrame;  // the last that was entered
    std::uint64_t frames = 0;         // frames of all its spans
  };

  List& ListOf(Frame::Queue queue) { return queue == Frame::Queue::kSmall ? m_small : m_main; }
  void Append(Frame::Queue queue, std::uint32_t frame);
  PageEntry& EntryOf(std::uint32_t frame) { return m_table[m_arena[frame].page]; }

  PageTable& m_table;
  FrameArena& m_arena;
  List m_small;                     // on probation
  List m_main;                      // proved to be used again
  std::uint64_t m_smallTarget = 1;  // frames the small queue may hold before it gives up the next
  std::uint64_t m_ghostReach = 0;   // evictions after which a span is forgotten
  std::uint32_t m_evictions = 0;    // the last eviction's sequence number
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_REPLACEMENTPOLICY_H
