#ifndef LIBTCMALLOC_VIRTUALMM_SIZECLASSES_H
#define LIBTCMALLOC_VIRTUALMM_SIZECLASSES_H

#include <array>
#include <cstdint>
#include <vector>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/PageEntry.h"

namespace tcmalloc {

/// Bytes in front of the first slot's object: the slab header and the first object header.
constexpr std::uint32_t kFirstObjectByte = 16;

/// One size class: slab spans of `pages` pages, cut into `slots` slots of `stride` bytes.
struct SizeClass {
  std::uint16_t stride;    ///< bytes from slot to slot: header and capacity
  std::uint16_t capacity;  ///< largest object of the class in bytes
  std::uint16_t slots;     ///< slots of a span
  std::uint16_t pages;     ///< pages of a span
};

/// The table of size classes for one page size.
///
/// The classes are the ways to cut a span up without a rest: first one page into ever fewer slots
/// down to five, then two pages down to four, then four down to three, so that small objects cost
/// small page faults. Small strides are 8 bytes apart. Objects above the largest class get pages of
/// their own, and so do those that fill more than four fifths of one page.
class SizeClasses {
 public:
  /// No class: the object gets a span of its own. Span kinds are classes and this.
  static constexpr std::uint8_t kLarge = PageEntry::kLarge;
  static constexpr std::uint32_t kMaxSpanPages = 4;

  /// @param pageSize  bytes of a page: a power of two from 4,096 to 16,384
  /// @throws std::bad_alloc
  explicit SizeClasses(std::uint32_t pageSize);

  /// The class that serves `size` bytes (at least 1), or kLarge. Objects of a multiple of 16 bytes
  /// go to a class whose slots are all aligned to 16.
  std::uint8_t ClassFor(std::uint32_t size) const {
    LIBTCMALLOC_ASSERT(size > 0);
    if (size > m_maxSlabBytes) {
      return kLarge;
    }
    const std::uint32_t index = (size + 7) >> 3;
    return (size & 15) == 0 ? m_classOfAligned[index] : m_classOf[index];
  }

  const SizeClass& operator[](std::uint8_t sizeClass) const {
    LIBTCMALLOC_ASSERT(sizeClass < m_count);
    return m_classes[sizeClass];
  }
  std::uint32_t Count() const { return m_count; }

  /// Whether an object's place starts at `byte`, whose low three bits do not matter, in a span in
  /// `state`, which is any state byte of the page table: only spans of slabs in memory have slots.
  bool IsSlotStart(std::uint8_t state, std::uint16_t byte) const {
    const std::uint32_t place = (byte & ~7U) - kFirstObjectByte;
    return place * m_slots[state].factor < m_slots[state].end;
  }

 private:
  /// Where slots are in a span: what the check of a handle needs. Modulo 2^32 the factor times the
  /// stride is a small number, so multiples of the stride give small products in their order, and
  /// all other places below 2^16, and those in front of the first slot, large ones.
  struct Slots {
    std::uint32_t factor;  // of a place; a bit more than 2^32 / stride
    std::uint32_t end;     // the product of the place behind the last slot; 0 without slots
  };

  void AddClass(std::uint32_t stride, std::uint32_t slots, std::uint32_t pages);

  std::array<Slots, 256> m_slots{};            // by state
  std::array<SizeClass, 128> m_classes{};      // by capacity, ascending
  std::uint32_t m_count = 0;                   // classes there are
  std::vector<std::uint8_t> m_classOf;         // by size rounded up to 8, divided by 8
  std::vector<std::uint8_t> m_classOfAligned;  // the same for multiples of 16
  std::uint32_t m_maxSlabBytes;                // largest size that any class serves
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SIZECLASSES_H
