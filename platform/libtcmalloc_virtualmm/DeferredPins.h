#ifndef LIBTCMALLOC_VIRTUALMM_DEFERREDPINS_H
#define LIBTCMALLOC_VIRTUALMM_DEFERREDPINS_H

#include <cstdint>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/SlabPage.h"

namespace tcmalloc {

/// The last few pins of slab objects, taken but not counted in headers and page table entries yet.
/// Most are dismissed soon, often the last one first, and then neither has to be written or found
/// again. A flush counts them; they are ordinary pins then.
///
/// Until then nobody else sees that their objects are pinned. So whatever looks at counts of pins,
/// or may move spans or make them leave, flushes first: the pager at each of its entrances that
/// does, and the report of pinned objects. The pager waits for the last unpin of spans flagged
/// kNotify, so their objects' pins are never deferred; a flush comes before the flag is set.
class DeferredPins {
 public:
  static constexpr std::uint32_t kPlaces = 4;

  /// Whether there is no pin in a place. No offset's byte is 0, so one half of it tells.
  bool IsFree(std::uint32_t place) const {
    return static_cast<std::uint32_t>(m_offsets[place]) == 0;
  }
  /// Whether the pin in a place is one of the object at `offset`.
  bool Holds(std::uint32_t place, std::uint64_t offset) const {
    return offset == m_offsets[place] && offset != 0;
  }
  /// The first place with a pin of the object at `offset`; kPlaces when there is none.
  std::uint32_t Find(std::uint64_t offset) const {
    std::uint32_t place = 0;
    while (place < kPlaces && !Holds(place, offset)) {
      ++place;
    }
    return place;
  }
  /// The first free place; kPlaces when there is none.
  std::uint32_t FindFree() const {
    std::uint32_t place = 0;
    while (place < kPlaces && !IsFree(place)) {
      ++place;
    }
    return place;
  }

  /// Notes a pin of the object at `offset` in a free place. Its header has no pins, and its span is
  /// not flagged kNotify.
  void Put(std::uint32_t place, Slot slot, std::uint64_t offset) {
    LIBTCMALLOC_ASSERT(IsFree(place) && offset != 0);
    LIBTCMALLOC_ASSERT(slot.entry->Resident() && !slot.entry->Notifies());
    LIBTCMALLOC_ASSERT(slot.header->pins == 0);
    m_offsets[place] = offset;
    m_slots[place] = slot;
  }
  /// Where the object of the pin in a place is.
  Slot At(std::uint32_t place) const {
    LIBTCMALLOC_ASSERT(m_slots[place].entry != nullptr);
    return m_slots[place];
  }
  /// Ends the pin in a place.
  void Remove(std::uint32_t place) {
    LIBTCMALLOC_ASSERT(!IsFree(place) && m_slots[place].entry->Resident());
    m_offsets[place] = 0;
  }

  /// Counts all pins in their headers and entries.
  void Flush() noexcept;

  /// Ends all pins of an object that is freed.
  void Forget(std::uint64_t offset) noexcept;

 private:
  friend class EngineChecker;
  std::uint64_t m_offsets[kPlaces]{};  // of the objects; 0 in a free place
  Slot m_slots[kPlaces]{};             // where they are
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_DEFERREDPINS_H
