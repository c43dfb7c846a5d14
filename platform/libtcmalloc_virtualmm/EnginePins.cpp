// The second stages of pin, unpin and move.

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

/// Pins an object of a slab in memory when the first deferred place is taken or the object has
/// counted pins; whatever has a touch to count, or is not in memory, faults.
void* Engine::PinResident(std::uint64_t offset, bool forWriting) noexcept {
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr || !IsTouchedFor(*slot.entry, forWriting)) [[unlikely]] {
    return PinOnFault(offset, forWriting);
  }
  return PinSlot(slot, offset);
}

/// Pins an object in memory: deferred if that is possible, else counted. Deferred pins are of
/// objects without counted ones, so that the headers of all objects with deferred pins say 0: a
/// second pin is deferred as well while there is a place, and the flush adds them up.
void* Engine::PinSlot(Slot slot, std::uint64_t offset) noexcept {
  LIBTCMALLOC_ASSERT(slot.entry->Resident() && slot.header->pins != kFreePins);
  if (slot.header->pins == 0 && !slot.entry->Notifies()) {
    if (const std::uint32_t place = m_deferred.FindFree(); place != DeferredPins::kPlaces) {
      return PinDeferred(place, slot, offset);
    }
    m_deferred.Flush();
  }
  return CountPin(slot, offset);
}

/// Pins an object that the hot path cannot: its span has a touch to count, or has to be read, or it
/// is large, or there is no such object.
///  1. In a slab in memory: count the touch, and pin.
///  2. Freed while its page could not be read: there is no such object any more.
///  3. Large: the frame counts its pins.
///  4. In a slab that is out: page it in. Only then can be told whether the object is there; where
///     it is not, nobody will unpin anything in that span, which is made up for.
void* Engine::PinOnFault(std::uint64_t offset, bool forWriting) noexcept {
  // Step 1.
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    slot.entry->Touch(m_pager.Epoch(), forWriting);
    return PinSlot(slot, offset);
  }
  // Step 2.
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (m_pendingFrees.Has(offset)) {
    return Refuse(offset);
  }
  if (!FetchEntry(offset)) {
    return nullptr;
  }
  // Step 3.
  if (PageEntry* entry = FindLarge(handle)) {
    return PinLarge(handle, *entry, forWriting);
  }
  // Step 4.
  if (!IsInPagedOutSlab(handle)) {
    return Refuse(offset);
  }
  if (!PageIn(handle.page)) {
    return Fail(ClassOf(m_table[handle.page]).capacity);
  }
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    slot.entry->Touch(m_pager.Epoch(), forWriting);
    return PinSlot(slot, offset);
  }
  void* none = Refuse(offset);
  OnPagedInUnpinned(handle.page);
  return none;
}

/// Pins a large object. Its pins are counted in the frame, since it has no header, and its entry
/// counts it as the span's one pinned object.
void* Engine::PinLarge(ObjectHandle handle, PageEntry& entry, bool forWriting) noexcept {
  if (!entry.Resident() && !PageIn(handle.page)) {
    return Fail(m_table.LargeBytes(handle.page));
  }
  Frame& frame = m_arena[entry.where];
  LIBTCMALLOC_ASSERT(frame.page == handle.page && (frame.pins > 0) == (entry.live.pinned > 0));
  if (frame.pins == kMaxPins) {
    return RefusePin(handle.Encode(), kMaxPins);
  }
  entry.Touch(m_pager.Epoch(), forWriting);
  char* address = m_arena.Address(entry.where);
  if (frame.pins++ == 0) {
    entry.live.pinned = 1;
    ObjectGuard::Show(address, m_table.LargeBytes(handle.page));
  }
  return address;
}

/// Ends a pin of an object in memory: a deferred one of it if there is one, for it came last, or a
/// counted one. Large objects have no header, and neither have handles that name nothing.
void Engine::UnpinResident(std::uint64_t offset) noexcept {
  if (const std::uint32_t place = m_deferred.Find(offset); place != DeferredPins::kPlaces) {
    UnpinDeferred(place, offset);
    return;
  }
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr || !slot.header->IsPinned()) {
    UnpinLarge(offset);
    return;
  }
  CountUnpin(slot, offset);
}

/// Moves a pin that is not in the first deferred place: in its place if it is deferred, else as
/// what it means, an unpin and a pin for writing.
void* Engine::MoveResidentPin(std::uint64_t from, std::uint64_t to) noexcept {
  if (const std::uint32_t place = m_deferred.Find(from); place != DeferredPins::kPlaces) {
    return MoveDeferredPin(place, from, to);
  }
  Dismiss(from);
  return GetAddress(to, true);
}

/// Ends a pin of a large object; anything else is counted as a stale handle and changes nothing.
void Engine::UnpinLarge(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  PageEntry* entry = FindLarge(handle);
  if (entry == nullptr || !entry->Resident() || m_arena[entry->where].pins == 0) {
    ++m_staleHandles;
    return;
  }
  if (--m_arena[entry->where].pins == 0) {
    entry->live.pinned = 0;
    ObjectGuard::Hide(m_arena.Address(entry->where), m_table.LargeBytes(handle.page));
    if (entry->Notifies()) {
      m_pager.OnLastUnpin(handle.page);
    }
  }
}

}  // namespace tcmalloc
