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
/// A slot is an ElementHeader and the caller's area behind it; without headers the area alone. In a
/// free element the first word of the area is the address of the next free element's area, null
/// at the end. An element leads to its chunk by the offset in its header.
///
/// Free elements are named by the distance of their area from the chunk's start, which is never 0
/// with headers: 0 stands for none.

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
  void setHead(char*, unsigned distance) { m_head = static_cast<std::uint16_t>(distance); }

 private:
  std::uint32_t m_nextLow;   // bytes 0-3: the next chunk's address
  std::uint16_t m_nextHigh;  // bytes 4-5: its higher bits
  std::uint16_t m_head;      // bytes 6-7: distance of the first free element
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
  void setHead(char* start, unsigned distance) {
    m_freeList = distance != 0 ? start + distance : nullptr;
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
  void setHead(unsigned distance) { trailer.setHead(data, distance); }

  /// How far behind the chunk's start an address lies; above `size` for any that is not in it.
  std::uintptr_t distanceOf(const void* address) const {
    return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(data);
  }

  /// Bytes 4 to 7 of the header of the element at a distance: where it lies, whether it is in use
  /// and the filler. They are loaded and stored together, which processors forward from a store to
  /// the next load; they would not from one of these bytes.
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
  static constexpr std::uint32_t kMarkOffset = 0x0000FFFF;  // the part of a mark that is m_offset
  static std::uint32_t offsetAt(unsigned distance) { return distance - kHeaderBytes; }

  /// Takes the first free element.
  /// @return its area; null, with nothing changed, when none is free or when its header is not that
  ///         of a free element
  void* take() {
    const unsigned distance = head();
    if (!isArea(distance)) {
      return nullptr;
    }
    char* const area = data + distance;
    if (markOf(area) != (kFreeMark | offsetAt(distance))) {
      return nullptr;
    }
    setMark(area, kUsedMark | offsetAt(distance));
    advance(area);
    return area;
  }

  /// Whether an area can lie so far from the chunk's start.
  static bool isArea(unsigned distance) { return offsetAt(distance) < size - kHeaderBytes; }

  /// Makes the element behind the first free one the first. A link that was written over may lead
  /// anywhere; of its distance no more is kept than fits, and the header there shows it.
  void advance(const char* area) {
    const char* const next = qrtLoadLink(area);
    if (next == nullptr) {
      setHead(0);
    } else {
      setHead(static_cast<std::uint16_t>(distanceOf(next)));
    }
  }

  /// Puts an element on the free list.
  /// @return whether it is the only one there
  bool put(char* area, unsigned distance) {
    const unsigned next = head();
    qrtStoreLink(area, next != 0 ? data + next : nullptr);
    setMark(area, kFreeMark | offsetAt(distance));
    setHead(distance);
    return next == 0;
  }
};

static_assert(sizeof(QRTWideChunkTrailer) == 8);
static_assert(sizeof(void*) != 4 || sizeof(QRTNarrowChunkTrailer) == 8);

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
