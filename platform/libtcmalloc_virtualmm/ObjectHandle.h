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
/// nor all-ones is ever an offset. A page counts its frees in the generation: a handle kept past
/// its object's end does not fit the object that lives there now. Objects of a page's first life
/// have generation 0, so the handles of a young store are small numbers.
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

/// The generation of a free slot; no handle carries it.
constexpr std::uint16_t kFreeGeneration = 0xFFFF;

/// The generation after `generation`, leaving out kFreeGeneration.
constexpr std::uint16_t NextGeneration(std::uint16_t generation) {
  return generation + 1 == kFreeGeneration ? std::uint16_t{0}
                                           : static_cast<std::uint16_t>(generation + 1);
}

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_OBJECTHANDLE_H
