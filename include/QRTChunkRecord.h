#ifndef QRTCHUNKRECORD_H
#define QRTCHUNKRECORD_H

#include <cstddef>
#include <cstdint>
#include <cstring>

class QRTFixedMemoryPool;

/// @file
/// What a QRTFixedMemoryPool with headers keeps beside its chunks. It is here, and not with the
/// sources, because alloc and free are inline; programs have no use for it.

/// What a pool with headers knows of one of its chunks without touching it: above all the chunk's
/// free list once more, as a stack of distances.
///
/// The list in the chunk is a chain through memory: which element comes after the next one shows
/// only when the next one's cache line is there. The stack names the elements before their lines
/// are, so that the processor, and a prefetch, can work on several at a time. It costs 2 bytes an
/// element beside the 24 of the record.
struct QRTChunkRecord {
  static constexpr unsigned kChunkBytes = 32760;  // bytes of a chunk, its trailer included

  char* start;               // where the chunk starts
  QRTFixedMemoryPool* pool;  // whose it is
  unsigned age;              // its place in the pool's QRTChunkIndex
  std::uint16_t free;        // free elements
  std::uint16_t elements;    // elements, free or not: what the stack has room for

  /// Stands for no chunk: it belongs to no pool, has no elements and none that is free.
  static QRTChunkRecord none;

  /// Makes a record for a chunk of `elements` elements, none of them free.
  /// @return the record, to be released with `release`; null when memory cannot be had
  static QRTChunkRecord* make(QRTFixedMemoryPool* pool, void* chunk, unsigned elements) noexcept;
  static void release(QRTChunkRecord* record) noexcept;

  /// How far behind the chunk's start an address lies; far above the chunk's size for any other.
  std::uintptr_t distanceOf(const void* address) const {
    return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(start);
  }

  /// Distances from the chunk's start to the areas of the free elements, from entry 1 up to the
  /// one that is handed out next in entry `free`. Entry 0 is 0, which is no area's.
  std::uint16_t* stack() { return reinterpret_cast<std::uint16_t*>(this + 1); }
  const std::uint16_t* stack() const { return reinterpret_cast<const std::uint16_t*>(this + 1); }

  /// Distance of the element that is handed out next; 0 when none is free.
  unsigned head() const { return stack()[free]; }

  /// Notes in the chunk's trailer which element is handed out next: its area's distance in the last
  /// two bytes, or with 4-byte pointers its address in the last four.
  /// @param distance  0 for none
  void writeHead(unsigned distance) const {
    if (sizeof(void*) == 8) {
      const auto packed = static_cast<std::uint16_t>(distance);
      std::memcpy(start + kChunkBytes - sizeof packed, &packed, sizeof packed);
    } else {
      const char* const area = distance != 0 ? start + distance : nullptr;
      std::memcpy(start + kChunkBytes - sizeof area, &area, sizeof area);
    }
  }
};

/// A piece of address space of half a chunk's size. It holds the end of one chunk and the start of
/// another at most, however close together they lie.
struct QRTChunkWindow {
  static constexpr unsigned kBits = 14;  // 16 KiB

  std::uintptr_t border;    // where side[1] starts; the highest address when nothing does
  QRTChunkRecord* side[2];  // the chunk that began in a lower window, and the one that starts here
  std::uintptr_t number;    // address >> kBits; 0 for an empty place
};

/// The windows that hold chunks, each mostly at the place that its number says.
struct QRTChunkTable {
  QRTChunkWindow* places;  // a power of two, at least half of them empty
  unsigned shift;          // leaves as many bits of a product as there are places

  /// Where the window of a number stands, if it has its own place. The multiplier spreads windows
  /// that are side by side in memory evenly over the table, so that they never meet there.
  std::size_t placeOf(std::uintptr_t number) const {
    return static_cast<std::uint32_t>(number) * 0x9E3779B1U >> shift;
  }

  /// The record of the chunk that an address lies in, if it lies in one and its window has its own
  /// place; else of any chunk, or of none. The record tells.
  QRTChunkRecord* guess(const void* address) const {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    const QRTChunkWindow& window = places[placeOf(at >> QRTChunkWindow::kBits)];
    // Chosen without a branch: which chunk an address lies in is anybody's guess.
    return window.side[at >= window.border ? 1 : 0];
  }
};

#endif  // QRTCHUNKRECORD_H
