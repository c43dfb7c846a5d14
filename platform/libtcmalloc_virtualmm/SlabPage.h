#ifndef LIBTCMALLOC_VIRTUALMM_SLABPAGE_H
#define LIBTCMALLOC_VIRTUALMM_SLABPAGE_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"
#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "libtcmalloc_virtualmm/PageEntry.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"

namespace tcmalloc {

/// The pin count of a free slot. Pin counts end below it.
constexpr std::uint32_t kFreePins = 0x80000000;
constexpr std::uint32_t kMaxPins = kFreePins - 1;

/// What stands right before every slab object, in the object's own cache line. One comparison of
/// the tag tells whether a handle names the object: the tag holds the handle's byte and generation.
struct ObjectHeader {
  std::uint32_t pins;  ///< bytes 0..3  pin count, up to kMaxPins; kFreePins in a free slot
  std::uint32_t tag;   ///< bytes 4..7  see ObjectHandle::TagOf; free: next free byte, kNoGeneration

  bool IsPinned() const { return pins - 1 < kMaxPins; }

  /// Both members, to be compared at once.
  std::uint64_t Word() const { return std::bit_cast<std::uint64_t>(*this); }
};

constexpr std::uint32_t kObjectHeaderBytes = 8;
static_assert(sizeof(ObjectHeader) == kObjectHeaderBytes);

/// Where a slab object in memory is.
struct Slot {
  PageEntry* entry;      ///< its span's; null when there is no such object in memory
  ObjectHeader* header;  ///< right before the object
};

/// One slab span, as it stands in memory and, with every pin count 0, in the file:
///
///     byte 0        8                16                 16 + stride
///     [SlabPage    ][ObjectHeader    ][object ......     ][object ...
///                    slot 0 - stride bytes --------------> slot 1
///
/// Free slots are chained through their headers. While the span is in memory the chain's beginning
/// stands in its page table entry; when it leaves, it is saved in the span itself. So a span that
/// is out costs no memory but its entry.
///
/// What an object is smaller than its slot's capacity, its slack, is told by the low three bits of
/// its byte up to 6; 7 says that the last two bytes of the slot hold it.
class SlabPage {
 public:
  /// Lays out an empty slab in the span at `frame`.
  static void Format(char* frame, const SizeClass& sizeClass, PageEntry::Live& live) {
    LIBTCMALLOC_ASSERT(reinterpret_cast<std::uintptr_t>(frame) % 16 == 0);
    auto* slab = new (frame) SlabPage;
    slab->m_reserved = 0;
    live.firstFree = kFirstObjectByte;
    live.freeSlots = sizeClass.slots;
    slab->Save(live);
    std::uint32_t byte = kFirstObjectByte;
    for (std::uint32_t slot = 1; slot <= sizeClass.slots; ++slot, byte += sizeClass.stride) {
      slab->HeaderAt(byte)->pins = kFreePins;
      slab->HeaderAt(byte)->tag = FreeTag(slot < sizeClass.slots ? byte + sizeClass.stride : 0);
    }
  }

  static SlabPage* At(char* frame) { return std::launder(reinterpret_cast<SlabPage*>(frame)); }

  /// Whether a header may be what the engine wrote there: that of an object at its `byte`, whose
  /// low three bits do not matter, or of a free slot. Anything else was written by somebody else.
  static bool IsIntact(ObjectHeader header, std::uint32_t byte) {
    const bool isFree = ObjectHandle::GenerationOf(header.tag) == kNoGeneration;
    return isFree ? header.pins == kFreePins && (ObjectHandle::ByteOf(header.tag) & 7) == 0
                  : header.pins <= kMaxPins &&
                        (ObjectHandle::ByteOf(header.tag) & ~7U) == (byte & ~7U);
  }

  /// The header of the object at `byte`, whose low three bits do not matter.
  ObjectHeader* HeaderAt(std::uint32_t byte) {
    return reinterpret_cast<ObjectHeader*>(reinterpret_cast<char*>(this) + (byte & ~7U)) - 1;
  }

  /// The header of the object at `toByte` of the slab whose object at `fromByte` has `header`.
  static ObjectHeader* NeighbourOf(ObjectHeader* header, std::uint32_t fromByte,
                                   std::uint32_t toByte) {
    return reinterpret_cast<ObjectHeader*>(reinterpret_cast<char*>(header) - (fromByte & ~7U) +
                                           (toByte & ~7U));
  }

  /// Takes a free slot (there must be one) for an object of `size` bytes, not pinned.
  /// @return its header
  ObjectHeader* Take(PageEntry::Live& live, std::uint16_t generation, std::uint32_t size,
                     const SizeClass& sizeClass) {
    LIBTCMALLOC_ASSERT(live.freeSlots > 0 && live.freeSlots <= sizeClass.slots);
    LIBTCMALLOC_ASSERT(size > 0 && size <= sizeClass.capacity && generation != kNoGeneration);
    const std::uint32_t byte = live.firstFree;
    LIBTCMALLOC_ASSERT(byte >= kFirstObjectByte && byte % 8 == 0);
    ObjectHeader* header = HeaderAt(byte);
    LIBTCMALLOC_ASSERT(header->pins == kFreePins);
    live.firstFree = ObjectHandle::ByteOf(header->tag);
    --live.freeSlots;
    LIBTCMALLOC_ASSERT((live.firstFree == 0) == (live.freeSlots == 0));
    const std::uint32_t slack = sizeClass.capacity - size;
    header->pins = 0;
    header->tag = (byte + std::min(slack, kSlackInSlot)) << 16 | generation;
    if (slack >= kSlackInSlot) {
      char* place = SlackPlace(header, sizeClass);
      ObjectGuard::Show(place, sizeof(std::uint16_t));
      const auto stored = static_cast<std::uint16_t>(slack);
      std::memcpy(place, &stored, sizeof stored);
      ObjectGuard::Hide(place, sizeof(std::uint16_t));
    }
    return header;
  }

  /// Gives the slot of the object at `byte` back. The byte is the handle's, not read from the
  /// header: what follows need not wait for the object's cache line.
  static void GiveBack(PageEntry::Live& live, ObjectHeader* header, std::uint16_t byte) {
    LIBTCMALLOC_ASSERT(header->pins != kFreePins);
    LIBTCMALLOC_ASSERT((live.firstFree == 0) == (live.freeSlots == 0));
    header->pins = kFreePins;
    header->tag = FreeTag(live.firstFree);
    live.firstFree = byte & 0xFFF8;
    ++live.freeSlots;
  }

  /// Notes in the span where its free slots begin, and reads it back.
  void Save(const PageEntry::Live& live) {
    m_firstFree = live.firstFree;
    m_freeSlots = live.freeSlots;
  }
  void Load(PageEntry::Live& live) const {
    live.firstFree = m_firstFree;
    live.freeSlots = m_freeSlots;
  }

  /// The size in bytes of the object behind `header`.
  static std::uint32_t SizeOf(ObjectHeader* header, const SizeClass& sizeClass) {
    const std::uint32_t told = ObjectHandle::ByteOf(header->tag) & 7;
    std::uint16_t slack = static_cast<std::uint16_t>(told);
    if (told == kSlackInSlot) {
      const char* place = SlackPlace(header, sizeClass);
      ObjectGuard::Show(place, sizeof(std::uint16_t));
      std::memcpy(&slack, place, sizeof slack);
      ObjectGuard::Hide(place, sizeof(std::uint16_t));
    }
    return std::uint32_t{sizeClass.capacity} - slack;
  }

 private:
  static constexpr std::uint32_t kSlackInSlot = 7;

  SlabPage() = default;

  static std::uint32_t FreeTag(std::uint32_t nextFree) { return nextFree << 16 | kNoGeneration; }
  static char* SlackPlace(ObjectHeader* header, const SizeClass& sizeClass) {
    return reinterpret_cast<char*>(header + 1) + sizeClass.capacity - sizeof(std::uint16_t);
  }

  std::uint16_t m_firstFree;  // bytes 0..1  see PageEntry::Live
  std::uint16_t m_freeSlots;  // bytes 2..3  see PageEntry::Live
  std::uint32_t m_reserved;   // bytes 4..7  zero
};

static_assert(sizeof(SlabPage) == kFirstObjectByte - kObjectHeaderBytes);

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SLABPAGE_H
