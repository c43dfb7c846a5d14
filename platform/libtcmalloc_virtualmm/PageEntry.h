#ifndef LIBTCMALLOC_VIRTUALMM_PAGEENTRY_H
#define LIBTCMALLOC_VIRTUALMM_PAGEENTRY_H

#include <cstdint>

#include "libtcmalloc_virtualmm/ObjectHandle.h"

namespace tcmalloc {

/// What the engine knows of one page. A span is described by the entry of its first page.
struct PageEntry {
  static constexpr std::uint8_t kNoHead = 0x7E;  ///< kind: no span begins here; the page is free or
                                                 ///< a further one of a span
  static constexpr std::uint8_t kLarge = 0x7D;   ///< kind: a large object; below: a size class

  static constexpr std::uint8_t kPagedOut = 0x80;  ///< in `state`: the span is not in memory

  static constexpr std::uint8_t kHasCopy = 1;  ///< flag: the paging file holds an image of it
  static constexpr std::uint8_t kVacant = 4;   ///< flag: it left memory with a quarter free
  static constexpr std::uint8_t kListed = 8;   ///< flag: it is listed as in memory with free slots

  static constexpr std::uint8_t kFrequency = 0x30;      ///< in `flags`: touches counted, 0 to 3
  static constexpr std::uint8_t kFrequencyStep = 0x10;  ///< one of them

  static constexpr std::uint16_t kModified = 1;  ///< in `touched`: may differ from its image
  static constexpr std::uint16_t kNotify = 2;  ///< in `touched`: the pager waits for its last unpin
  static constexpr std::uint16_t kEpochStep = 4;  ///< in `touched`: from epoch to epoch

  /// What a span in memory needs when its objects are pinned, made and freed: together in the
  /// entry, because first lines of pages are never in the first cache level.
  struct Live {
    std::uint16_t pinned;     ///< objects of the span with a pin count above zero
    std::uint16_t touched;    ///< epoch of the last counted touch and the marks above
    std::uint16_t firstFree;  ///< slab: byte of the first free object; 0 when there is none
    std::uint16_t freeSlots;  ///< slab: free slots
  };

  std::uint32_t where;       ///< bytes 0..3   frame when resident, else eviction sequence number
  std::uint16_t generation;  ///< bytes 4..5   of the next object made in the page, or none left
  std::uint8_t state;        ///< byte  6      kind, with kPagedOut unless it is a span in memory
  std::uint8_t flags;        ///< byte  7
  union {
    Live live;           ///< bytes 8..15  while resident
    std::uint64_t hash;  ///< bytes 8..15  while out: hash of the image in the paging file
  };

  /// Whether a span in memory may differ from its image in the paging file.
  bool Modified() const { return (live.touched & kModified) != 0; }

  /// Whether the pager waits for the last unpin of a span in memory.
  bool Notifies() const { return (live.touched & kNotify) != 0; }

  /// Touches counted of a span in memory, one an epoch at the most, up to 3.
  std::uint32_t Frequency() const { return (flags & kFrequency) / kFrequencyStep; }
  void SetFrequency(std::uint32_t frequency) {
    flags = static_cast<std::uint8_t>((flags & ~kFrequency) | frequency * kFrequencyStep);
  }

  /// The epoch of the last counted touch of a span in memory, a multiple of kEpochStep.
  std::uint16_t TouchedEpoch() const {
    return static_cast<std::uint16_t>(live.touched & ~(kModified | kNotify));
  }

  /// Counts a touch of a span in memory, unless it has one in this epoch, and marks the span as
  /// modified when it is pinned for writing.
  void Touch(std::uint16_t epoch, bool forWriting) {
    if (TouchedEpoch() != epoch && (flags & kFrequency) != kFrequency) {
      flags += kFrequencyStep;
    }
    live.touched = static_cast<std::uint16_t>(epoch | (live.touched & (kModified | kNotify)) |
                                              (forWriting ? kModified : 0));
  }

  /// The size class, or one of the kinds above.
  std::uint8_t Kind() const { return static_cast<std::uint8_t>(state & ~kPagedOut); }
  bool Resident() const { return (state & kPagedOut) == 0; }
  bool IsSpanHead() const { return Kind() <= kLarge; }

  /// Whether no generation is left for further objects: the page is retired, or will be when the
  /// span that begins there ends.
  bool IsUsedUp() const { return generation == kNoGeneration; }
};

static_assert(sizeof(PageEntry) == 16, "metadata is to stay at 0.4 % of 4 KiB pages");

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGEENTRY_H
