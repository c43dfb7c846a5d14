#ifndef LIBTCMALLOC_VIRTUALMM_OBJECTHANDLE_H
#define LIBTCMALLOC_VIRTUALMM_OBJECTHANDLE_H

#include <cstdint>

namespace tcmalloc {

/// The three parts of a 64-bit object offset:
///
///     63        48 47                    16 15         0
///     [generation][        page           ][   byte    ]
///
/// Objects start at multiples of 8; the low three bits of `byte` tell how much smaller than its
/// slot the object is (see SlabPage). `byte` is never 0 and `generation` never 0xFFFF, so neither 0
/// nor all-ones is ever an offset.
///
/// A page counts its frees in the generation: a handle kept past its object's end does not fit the
/// object that lives there now. The count begins at a random number of the store's own, so another
/// store's handle does not fit either, and never wraps around: a page that reaches 0xFFFF gets no
/// more objects and is retired when its last one ends. So no offset ever names a second object.
struct ObjectHandle {
  std::uint32_t page;        ///< first page of the object's span
  std::uint16_t byte;        ///< where the object starts in a slab span; kLargeByte in a large one
  std::uint16_t generation;  ///< the page's generation when the object was made

  static constexpr ObjectHandle Decode(std::uint64_t offset) {
    return {static_cast<std::uint32_t>(offset >> 16), static_cast<std::uint16_t>(offset),
            static_cast<std::uint16_t>(offset >> 48)};
  }
  constexpr std::uint64_t Encode() const {
    return static_cast<std::uint64_t>(generation) << 48 | static_cast<std::uint64_t>(page) << 16 |
           byte;
  }

  /// What the header of the slab object at `offset` says: [byte 31..16][generation 15..0].
  static constexpr std::uint32_t TagOf(std::uint64_t offset) {
    return static_cast<std::uint32_t>(offset << 16 | offset >> 48);
  }
  /// The generation in a tag.
  static constexpr std::uint16_t GenerationOf(std::uint32_t tag) {
    return static_cast<std::uint16_t>(tag);
  }
  /// The byte in a tag.
  static constexpr std::uint16_t ByteOf(std::uint32_t tag) {
    return static_cast<std::uint16_t>(tag >> 16);
  }
};

/// The byte of every large object's handle.
constexpr std::uint16_t kLargeByte = 1;

/// Not a generation: what stands in its place in a free slot, and in a page without any left.
constexpr std::uint16_t kNoGeneration = 0xFFFF;

/// Whether a page has no generation left once a free was counted up to `generation`. Pages that
/// have none keep being counted; that is undone later, off the way of all others.
constexpr bool IsPastLastGeneration(std::uint16_t generation) {
  return static_cast<std::uint16_t>(generation + 1) <= 1;
}

/// Stores begin below this number, which leaves each page half of all generations at least.
constexpr std::uint16_t kFirstGenerations = 0x8000;

/// A random generation for a store to begin with, below kFirstGenerations.
std::uint16_t DrawFirstGeneration() noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_OBJECTHANDLE_H
