#ifndef LIBTCMALLOC_VIRTUALMM_SLABPAGE_H
#define LIBTCMALLOC_VIRTUALMM_SLABPAGE_H

#include <cstdint>
#include <new>

#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"

namespace tcmalloc {

/// What stands right before every slab object, in the object's own cache line.
struct ObjectHeader {
  std::uint32_t pins;        ///< bytes 0..3  pin count; 0 in a free slot
  std::uint16_t generation;  ///< bytes 4..5  generation of the handle; kFreeGeneration when free
  std::uint16_t slack;       ///< bytes 6..7  capacity less size; in a free slot the next free byte
};

constexpr std::uint32_t kObjectHeaderBytes = 8;
static_assert(sizeof(ObjectHeader) == kObjectHeaderBytes);

/// The image of one slab span, as it stands in memory and, with every pin count 0, in the file:
///
///     byte 0        8                16                 16 + stride
///     [SlabHeader  ][ObjectHeader    ][object ......     ][object ...
///                    slot 0 - stride bytes --------------> slot 1
///
/// Free slots are chained through their headers. All that is needed to allocate and free stands
/// in the span itself, so a span that is out costs no memory but its page table entry.
class SlabPage {
 public:
  /// Lays out an empty slab in the span at `frame`.
  static SlabPage* Format(char* frame, const SizeClass& sizeClass) {
    auto* slab = new (frame) SlabPage;
    slab->m_firstFree = kFirstObjectByte;
    slab->m_freeSlots = sizeClass.slots;
    slab->m_reserved = 0;
    std::uint32_t byte = kFirstObjectByte;
    for (std::uint32_t slot = 1; slot <= sizeClass.slots; ++slot, byte += sizeClass.stride) {
      const std::uint32_t next = slot < sizeClass.slots ? byte + sizeClass.stride : 0;
      *slab->HeaderAt(byte) = {0, kFreeGeneration, static_cast<std::uint16_t>(next)};
    }
    return slab;
  }

  static SlabPage* At(char* frame) { return std::launder(reinterpret_cast<SlabPage*>(frame)); }

  ObjectHeader* HeaderAt(std::uint32_t byte) {
    return reinterpret_cast<ObjectHeader*>(reinterpret_cast<char*>(this) + byte) - 1;
  }

  std::uint32_t FreeSlots() const { return m_freeSlots; }

  /// Takes a free slot (there must be one) for an object pinned once.
  /// @return the object's byte in the span
  std::uint16_t Take(std::uint16_t generation, std::uint16_t slack) {
    const std::uint16_t byte = m_firstFree;
    ObjectHeader* header = HeaderAt(byte);
    m_firstFree = header->slack;
    --m_freeSlots;
    *header = {1, generation, slack};
    return byte;
  }

  /// Gives the slot of the object at `byte` back.
  void GiveBack(std::uint16_t byte) {
    *HeaderAt(byte) = {0, kFreeGeneration, m_firstFree};
    m_firstFree = byte;
    ++m_freeSlots;
  }

 private:
  SlabPage() = default;

  std::uint16_t m_firstFree;  // bytes 0..1  byte of the first free object; 0 when the slab is full
  std::uint16_t m_freeSlots;  // bytes 2..3
  std::uint32_t m_reserved;   // bytes 4..7  zero
};

static_assert(sizeof(SlabPage) == kFirstObjectByte - kObjectHeaderBytes);

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SLABPAGE_H
