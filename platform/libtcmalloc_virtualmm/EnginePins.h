#ifndef LIBTCMALLOC_VIRTUALMM_ENGINEPINS_H
#define LIBTCMALLOC_VIRTUALMM_ENGINEPINS_H

// The engine's hot path: pin, unpin, move and prefetch of objects in memory. Engine.h ends with it.
//
// Pin and unpin of an object in memory read its page table entry and the line of its header, write
// neither, and touch nothing else that is not always in the first cache level. The fewer
// instructions they take, the more objects a program that goes through many has on their way from
// memory at a time.
//
// How one comparison tells so much: a header is pins and tag in one word. The tag holds the
// handle's byte and generation, pins are 0 as long as none is counted. What is equal to {0, tag} is
// therefore an object (a free slot has kFreePins), the one that the handle names, in no need of
// counting.

#include <bit>

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"

namespace tcmalloc {

// The next two are always inlined: they have so many callers that compilers would rather not, and a
// call costs each of them half as much as the work.

/// Where the object at `offset` is if there is one: its header is not looked at. Two tests and a
/// multiplication make any 64 bits safe: the page is one of the table's, and its span is a slab in
/// memory with a slot at that byte, which the state byte tells together with the size class.
[[gnu::always_inline]] inline Slot Engine::Locate(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.Has(handle.page)) [[unlikely]] {
    return {};
  }
  PageEntry& entry = m_table[handle.page];
  if (!m_classes.IsSlotStart(entry.state, handle.byte)) [[unlikely]] {
    return {};
  }
  return {&entry, SlabPage::At(m_arena.Address(entry.where))->HeaderAt(handle.byte)};
}

/// Whether the object of a slot that `Locate` found is the one that `offset` names, with any number
/// of pins: of its header only the tag is compared.
inline bool Engine::IsOf(Slot slot, std::uint64_t offset) noexcept {
  return std::bit_cast<ObjectHeader>(ObjectGuard::Peek(*slot.header)).tag ==
         ObjectHandle::TagOf(offset);
}

/// Where the object at `offset` is if its slab is in memory.
[[gnu::always_inline]] inline Slot Engine::FindInMemory(std::uint64_t offset) noexcept {
  const Slot slot = Locate(offset);
  if (slot.entry == nullptr || !IsOf(slot, offset)) [[unlikely]] {
    return {};
  }
  return slot;
}

/// Whether a pin, for writing or for reading, has nothing to note in the entry, and its unpin
/// neither. Nearly all pins are for writing, of spans that count as modified since their first one.
inline bool Engine::IsTouched(const PageEntry& entry) const noexcept {
  return entry.live.touched == m_pager.ModifiedEpoch();
}

/// Whether a pin has nothing to note in the entry, nor its unpin: as above, and a pin for reading
/// also of a span that was touched in this epoch without being modified.
inline bool Engine::IsTouchedFor(const PageEntry& entry, bool forWriting) const noexcept {
  return IsTouched(entry) || (!forWriting && entry.TouchedEpoch() == m_pager.Epoch());
}

/// Notes a pin in a deferred place. The object is one of a touched span and has no counted pin.
inline void* Engine::PinDeferred(std::uint32_t place, Slot slot, std::uint64_t offset) noexcept {
  ShowObject(slot);
  m_deferred.Put(place, slot, offset);
  return slot.header + 1;
}

/// Ends a deferred pin. The object is hidden from memory checkers when it was the last one.
inline void Engine::UnpinDeferred(std::uint32_t place,
                                  [[maybe_unused]] std::uint64_t offset) noexcept {
  m_deferred.Remove(place);
  if constexpr (ObjectGuard::kActive) {
    if (m_deferred.Find(offset) == DeferredPins::kPlaces) {
      const Slot slot = m_deferred.At(place);
      ObjectGuard::Hide(slot.header + 1, ClassOf(*slot.entry).capacity);
    }
  }
}

// The first stages know the first deferred place only: a program that holds one object at a time
// always finds it free for its pin, and holding that pin at the dismissal. Searching the other
// places is for the second stages.

inline void* Engine::GetAddress(std::uint64_t offset, bool forWriting) noexcept {
  if (!m_deferred.IsFree(0)) {
    return PinResident(offset, forWriting);
  }
  const Slot slot = Locate(offset);
  // One comparison tells that the handle names the object and that no pin of it is counted.
  if (slot.entry == nullptr ||
      ObjectGuard::Peek(*slot.header) != ObjectHeader{0, ObjectHandle::TagOf(offset)}.Word() ||
      !IsTouched(*slot.entry)) [[unlikely]] {
    return PinResident(offset, forWriting);
  }
  return PinDeferred(0, slot, offset);
}

inline void Engine::Dismiss(std::uint64_t offset) noexcept {
  if (!m_deferred.Holds(0, offset)) {
    UnpinResident(offset);
    return;
  }
  UnpinDeferred(0, offset);
}

inline void* Engine::MovePin(std::uint64_t from, std::uint64_t to) noexcept {
  if (!m_deferred.Holds(0, from)) {
    return MoveResidentPin(from, to);
  }
  return MoveDeferredPin(0, from, to);
}

/// Between neighbours of one page nothing has to be found, and what let the one pin be deferred
/// holds for the other.
inline void* Engine::MoveDeferredPin(std::uint32_t place, std::uint64_t from,
                                     std::uint64_t to) noexcept {
  const Slot old = m_deferred.At(place);
  const ObjectHandle handle = ObjectHandle::Decode(to);
  UnpinDeferred(place, from);
  if (ObjectHandle::Decode(from ^ to).page == 0 &&
      m_classes.IsSlotStart(old.entry->state, handle.byte) && IsTouched(*old.entry)) {
    ObjectHeader* header =
        SlabPage::NeighbourOf(old.header, ObjectHandle::Decode(from).byte, handle.byte);
    if (ObjectGuard::Peek(*header) == ObjectHeader{0, ObjectHandle::TagOf(to)}.Word()) {
      return PinDeferred(place, {old.entry, header}, to);
    }
  }
  return GetAddress(to, true);
}

inline void* Engine::GetUnpinned(std::uint64_t offset, bool forWriting) noexcept {
  if constexpr (ObjectGuard::kActive) {
    return nullptr;  // only pinned objects are to be seen
  }
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr) {
    return GetUnpinnedLarge(offset, forWriting);
  }
  return IsTouchedFor(*slot.entry, forWriting) ? slot.header + 1 : nullptr;
}

/// Finds a large object in memory that was touched. It has no header: the entry tells all, its
/// state that the object is in memory. While frees are pending, one of them may be the object's.
inline void* Engine::GetUnpinnedLarge(std::uint64_t offset, bool forWriting) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.Has(handle.page) || !m_pendingFrees.Empty()) {
    return nullptr;
  }
  const PageEntry& entry = m_table[handle.page];
  if (entry.state != PageEntry::kLarge || handle.byte != kLargeByte ||
      handle.generation != entry.generation || !IsTouchedFor(entry, forWriting)) {
    return nullptr;
  }
  return m_arena.Address(entry.where);
}

inline void Engine::Prefetch(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.Has(handle.page) || !m_table[handle.page].Resident()) [[unlikely]] {
    m_pager.Prefetch(handle.page);
    return;
  }
  // A forged handle may name any place near the span: a prefetch harms nowhere.
  PrefetchObject(m_arena.Address(m_table[handle.page].where) + (handle.byte & ~7U));
}

/// Has the processor fetch an object's header and first bytes.
inline void Engine::PrefetchObject(const char* object) noexcept {
  __builtin_prefetch(object - kObjectHeaderBytes, 1);
  __builtin_prefetch(object + kPrefetchAhead, 1);
  // To compilers a function that only prefetches has no effect, and they leave calls of it out.
  asm volatile("" : : "r"(object));
}

/// Counts a pin of an object in memory, which has no deferred one.
inline void* Engine::CountPin(Slot slot, std::uint64_t offset) noexcept {
  LIBTCMALLOC_ASSERT(m_deferred.Find(offset) == DeferredPins::kPlaces);
  if (slot.header->pins == 0) {
    ++slot.entry->live.pinned;
    ShowObject(slot);
  } else if (slot.header->pins >= kMaxPins || slot.entry->live.pinned == 0) [[unlikely]] {
    return RefusePin(offset, slot.header->pins);
  }
  ++slot.header->pins;
  return slot.header + 1;
}

/// Ends a counted pin of an object in memory, which has one.
inline void Engine::CountUnpin(Slot slot, std::uint64_t offset) noexcept {
  if (--slot.header->pins == 0) {
    ObjectGuard::Hide(slot.header + 1, ClassOf(*slot.entry).capacity);
    LIBTCMALLOC_ASSERT(slot.entry->live.pinned > 0);
    if (--slot.entry->live.pinned == 0 && slot.entry->Notifies()) {
      m_pager.OnLastUnpin(ObjectHandle::Decode(offset).page);
    }
  }
}

inline void Engine::ShowObject([[maybe_unused]] Slot slot) noexcept {
  if constexpr (ObjectGuard::kActive) {
    ObjectGuard::Show(slot.header + 1, SlabPage::SizeOf(slot.header, ClassOf(*slot.entry)));
  }
}

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINEPINS_H
