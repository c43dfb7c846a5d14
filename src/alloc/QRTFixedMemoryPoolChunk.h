#ifndef QRTFIXEDMEMORYPOOLCHUNK_H
#define QRTFIXEDMEMORYPOOLCHUNK_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "QRTFixedMemoryPool.h"

/// @file
/// The chunk of a QRTFixedMemoryPool, which is all its bookkeeping:
///
///     bytes 0-32751      the slots, one every m_esize bytes, then what is too short for another
///     bytes 32752-32759  the trailer: the next chunk, and the first free element of this one
///
/// A slot is an ElementHeader and the caller's area after it; without headers the area alone. In a
/// free element the first word of the area is the address of the next free element's area, null
/// at the end. An element leads to its chunk by the offset in its header.
///
/// The trailer names the first free element by the offset of its area from the chunk's start. With
/// headers that is 8 at least, so that 0 can mean "none".
///
/// Invariants of a chunk with headers, which damage from outside may break:
///
///   - an element is on the free list exactly when the in-use byte of its header is 0;
///   - the m_offset of a header is its own offset from the chunk's start, so that the header of
///     the element at area offset `a` holds `a - 8`;
///   - the list never leaves the chunk, so that a chunk with all its elements on the list can be
///     released without a look at the others.
///
/// `take` and `put` rely on none of them for more than they compare first.

/// The trailer where pointers have 8 bytes, of which user addresses fill 6.
class QRTWideChunkTrailer {
 public:
  static bool canHold(const void* chunk) {
    return std::uint64_t{reinterpret_cast<std::uintptr_t>(chunk)} >> 48 == 0;
  }

  void* next() const {
    const std::uint64_t address = std::uint64_t{m_nextHigh} << 32 | m_nextLow;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the address is kept in 6 of its 8 bytes
    return reinterpret_cast<void*>(static_cast<std::uintptr_t>(address));
  }
  void setNext(const void* chunk) {
    const std::uint64_t address = reinterpret_cast<std::uintptr_t>(chunk);
    m_nextLow = static_cast<std::uint32_t>(address);
    m_nextHigh = static_cast<std::uint16_t>(address >> 32);
  }

  unsigned head(const char*) const { return m_head; }
  void setHead(char*, unsigned areaOffset) { m_head = static_cast<std::uint16_t>(areaOffset); }

 private:
  std::uint32_t m_nextLow;   // bytes 0-3: the next chunk's address
  std::uint16_t m_nextHigh;  // bytes 4-5: its higher bits
  std::uint16_t m_head;      // bytes 6-7: area offset of the first free element; 0 for none
};

/// The trailer where pointers have 4 bytes.
class QRTNarrowChunkTrailer {
 public:
  static bool canHold(const void*) { return true; }

  void* next() const { return m_next; }
  void setNext(void* chunk) { m_next = chunk; }

  unsigned head(const char* start) const {
    return m_freeList != nullptr ? static_cast<unsigned>(m_freeList - start) : 0;
  }
  void setHead(char* start, unsigned areaOffset) {
    m_freeList = areaOffset != 0 ? start + areaOffset : nullptr;
  }

 private:
  void* m_next;      // bytes 0-3: the next chunk
  char* m_freeList;  // bytes 4-7: the first free element's area
};

/// The link in the area of a free element.
inline char* qrtLoadLink(const char* area) {
  char* next;
  std::memcpy(&next, area, sizeof next);
  return next;
}
inline void qrtStoreLink(char* area, const char* next) {
  std::memcpy(area, &next, sizeof next);
}

/// One chunk, as obtained with operator new.
struct QRTFixedMemoryPool::Chunk {
  static constexpr unsigned size = 32752;       // bytes for slots
  static constexpr unsigned totalSize = 32760;  // with the trailer
  static constexpr unsigned kHeaderBytes = sizeof(ElementHeader);

  using Trailer =
      std::conditional_t<sizeof(void*) == 8, QRTWideChunkTrailer, QRTNarrowChunkTrailer>;

  char data[size];
  Trailer trailer;

  Chunk* next() const { return static_cast<Chunk*>(trailer.next()); }
  void setNext(Chunk* chunk) { trailer.setNext(chunk); }

  unsigned head() const { return trailer.head(data); }
  void setHead(unsigned areaOffset) { trailer.setHead(data, areaOffset); }

  /// The offset of an address from the chunk's start. One in front of the chunk wraps around, so
  /// that a comparison with `size` finds addresses on either side of the chunk.
  std::uintptr_t offsetOf(const void* address) const {
    return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(data);
  }

  /// The mark of an element: bytes 4 to 7 of its header, which are its offset, the in-use byte and
  /// the filler. One load and one compare test all three. They are stored together as well, since
  /// processors forward a store to a later load of the same width, but not a store of one byte to a
  /// load of four.
  static std::uint32_t markOf(const char* area) {
    std::uint32_t mark;
    std::memcpy(&mark, area - sizeof mark, sizeof mark);
    return mark;
  }
  static void setMark(char* area, std::uint32_t mark) {
    std::memcpy(area - sizeof mark, &mark, sizeof mark);
  }
  static constexpr std::uint32_t kFreeMark = 0x0E000000;
  static constexpr std::uint32_t kUsedMark = 0x0E010000;
  static constexpr std::uint32_t kMarkOffsetMask =
      0x0000FFFF;  // the bits of a mark that are m_offset
  /// What m_offset of the element at an area offset has to be.
  static std::uint32_t headerOffset(unsigned areaOffset) { return areaOffset - kHeaderBytes; }

  /// Takes the first free element.
  /// @return its area; null, with nothing changed, when none is free or when its header is not that
  ///         of a free element
  void* take() {
    const unsigned areaOffset = head();
    if (!isAreaOffset(areaOffset)) {
      return nullptr;
    }
    char* const area = data + areaOffset;
    if (markOf(area) != (kFreeMark | headerOffset(areaOffset))) {
      return nullptr;
    }
    setMark(area, kUsedMark | headerOffset(areaOffset));
    advance(area);
    return area;
  }

  /// Whether an area can start at an offset, which rules out 0, the end of the list. The
  /// subtraction wraps below 8, so that one comparison tests both ends.
  static bool isAreaOffset(unsigned areaOffset) {
    return headerOffset(areaOffset) < size - kHeaderBytes;
  }

  /// Removes the first free element, at `area`, from the list. A link that a caller wrote over may
  /// lead anywhere: of the offset that it gives 16 bits are kept, which stay within 64 KiB of the
  /// chunk, and `take` refuses what it finds there unless it is the header of a free element.
  void advance(const char* area) {
    const char* const next = qrtLoadLink(area);
    if (next == nullptr) {
      setHead(0);
    } else {
      setHead(static_cast<std::uint16_t>(offsetOf(next)));
    }
  }

  /// Puts an element on the free list.
  /// @return whether it is the only one there
  bool put(char* area, unsigned areaOffset) {
    const unsigned next = head();
    qrtStoreLink(area, next != 0 ? data + next : nullptr);
    setMark(area, kFreeMark | headerOffset(areaOffset));
    setHead(areaOffset);
    return next == 0;
  }
};

static_assert(sizeof(QRTWideChunkTrailer) == 8);
static_assert(sizeof(void*) != 4 || sizeof(QRTNarrowChunkTrailer) == 8);

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
