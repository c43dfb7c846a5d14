#include "libtcmalloc_virtualmm/DeferredPins.h"

namespace tcmalloc {

// An object may stand in several places: the first of them to be counted makes it a pinned object
// of its span, the others add to its header only.
void DeferredPins::Flush() noexcept {
  for (std::uint32_t place = 0; place < kPlaces; ++place) {
    if (!IsFree(place)) {
      Remove(place);
      const auto [entry, header] = m_slots[place];
      LIBTCMALLOC_ASSERT(!entry->Notifies() && header->pins < kPlaces);
      if (header->pins++ == 0) {
        ++entry->live.pinned;
      }
    }
  }
}

void DeferredPins::Forget(std::uint64_t offset) noexcept {
  for (std::uint32_t place = 0; place < kPlaces; ++place) {
    if (Holds(place, offset)) {
      Remove(place);
    }
  }
}

}  // namespace tcmalloc
