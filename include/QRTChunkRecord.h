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
/// element beside the 96 of the record and of the entries below the stack.
struct QRTChunkRecord {
  static constexpr unsigned kChunkBytes = 32760;  // bytes of a chunk, its trailer included
  static constexpr unsigned kHeaderBytes = 8;     // bytes in front of each area
  static constexpr unsigned kAhead = 16;          // elements that are prefetched before their turn

  static constexpr std::uint64_t kInUse = std::uint64_t{1} << 48;      // of a header as a word
  static constexpr std::uint64_t kFiller = std::uint64_t{0x0E} << 56;  // the same

  char* start;               // where the chunk starts
  QRTFixedMemoryPool* pool;  // whose it is
  std::uint64_t freeHeader;  // header of a free element whose area is at distance 0
  std::uint64_t* has;        // word of the pool's QRTChunkIndex with a bit for chunks with free ones
  std::uint64_t hasBit;      // the chunk's bit there
  std::uint64_t* summary;    // word of the index with a bit for each such word that is not zero
  std::uint64_t summaryBit;  // the word's bit there
  unsigned age;              // the chunk's place in the index
  unsigned free;             // free elements
  unsigned elements;         // elements, free or not: what the stack has room for

  /// Stands for no chunk: it belongs to no pool, has no elements and none that is free.
  static QRTChunkRecord none;

  /// Makes a record for a chunk of `elements` elements of `size` bytes, none of them free.
  /// @return the record, to be released with `release`; null when memory cannot be had
  static QRTChunkRecord* make(QRTFixedMemoryPool* pool, void* chunk, unsigned elements,
                              unsigned size) noexcept;
  static void release(QRTChunkRecord* record) noexcept;

  /// How far behind the chunk's start an address lies; far above the chunk's size for any other.
  std::uintptr_t distanceOf(const void* address) const {
    return reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(start);
  }

  /// The header of the free element whose area is so far from the chunk's start. Headers are always
  /// loaded and stored as a whole, which the processor forwards without a stall.
  std::uint64_t headerAt(std::uintptr_t distance) const {
    return freeHeader + (std::uint64_t{distance} << 32);
  }

  /// Distances from the chunk's start to the areas of the free elements, from entry 1 up to the
  /// one that is handed out next in entry `free`. Entry 0 is 0, which is no area's, and so are as
  /// many below it as `take` looks ahead.
  std::uint16_t* stack() { return reinterpret_cast<std::uint16_t*>(this + 1) + kAhead; }
  const std::uint16_t* stack() const {
    return reinterpret_cast<const std::uint16_t*>(this + 1) + kAhead;
  }

  /// Distance of the element that is handed out next; 0 when none is free.
  unsigned head() const { return stack()[free]; }

  /// Notes in the chunk's trailer which element is handed out next: its area's distance in the last
  /// two bytes, or with 4-byte pointers its address in the last four.
  /// @param distance  0 for none
  void writeHead(unsigned distance) const { writeHead(start, distance); }
  static void writeHead(char* start, unsigned distance) {
    if (sizeof(void*) == 8) {
      const auto packed = static_cast<std::uint16_t>(distance);
      std::memcpy(start + kChunkBytes - sizeof packed, &packed, sizeof packed);
    } else {
      const char* const area = distance != 0 ? start + distance : nullptr;
      std::memcpy(start + kChunkBytes - sizeof area, &area, sizeof area);
    }
  }

  /// Notes in the index that the chunk has a free element.
  void noteFree() const {
    *has |= hasBit;
    *summary |= summaryBit;
  }

  /// Notes in the index that the chunk has no free element left. The pool does so before it asks
  /// for the newest chunk that has one.
  void noteFull() const {
    *has &= ~hasBit;
    *summary &= *has == 0 ? ~summaryBit : UINT64_MAX;
  }

  /// Takes the next free element.
  /// @return its area; null, with nothing changed, when none is free or when its header is not
  ///         exactly that of a free element
  [[gnu::always_inline]] void* take() {
    const unsigned before = free;
    if (before == 0) {
      return nullptr;
    }
    const std::uint16_t* const top = stack() + before;
    const unsigned distance = *top;
    char* const from = start;
    char* const area = from + distance;
    // After frees in random order each element's line is a cache miss of its own.
    __builtin_prefetch(from + *(top - kAhead), 1);
    const std::uint64_t header = headerAt(distance);
    if (std::memcmp(area - kHeaderBytes, &header, sizeof header) != 0) {
      return nullptr;
    }
    free = before - 1;
    writeHead(from, top[-1]);
    const std::uint64_t used = header | kInUse;
    std::memcpy(area - kHeaderBytes, &used, sizeof used);
    return area;
  }

  /// Puts an element back.
  /// @return false, with nothing changed, when the address is no element's in this chunk or when its
  ///         header is not exactly that of an element in use
  ///
  /// The header and the chunk's trailer are cache misses in a large pool. Neither is waited for: the
  /// address tells where the element lies, the record which one was freed before it, and the
  /// comparison is predicted, so that the misses of several frees overlap. How many depends on the
  /// number of instructions here. That the chunk had no free element before takes no branch: in
  /// mixed use it is anybody's guess, and a wrong one waits for the address.
  [[gnu::always_inline]] bool put(void* p) {
    const unsigned before = free;
    const std::uintptr_t distance = distanceOf(p);
    if (distance >= kChunkBytes || before == elements) {
      return false;
    }
    char* const area = static_cast<char*>(p);
    const std::uint64_t header = headerAt(distance);
    const std::uint64_t used = header | kInUse;
    if (std::memcmp(area - kHeaderBytes, &used, sizeof used) != 0) {
      return false;
    }
    char* const from = start;
    std::uint16_t* const top = stack() + before;
    const char* next = nullptr;
    if (before != 0) {
      next = from + *top;
    } else {
      noteFree();
    }
    std::memcpy(area, &next, sizeof next);
    top[1] = static_cast<std::uint16_t>(distance);
    free = before + 1;
    writeHead(from, static_cast<unsigned>(distance));
    std::memcpy(area - kHeaderBytes, &header, sizeof header);
    return true;
  }
};

/// A piece of address space of half a chunk's size. It holds the end of one chunk and the start of
/// another at most, however close together they lie.
struct QRTChunkWindow {
  static constexpr unsigned kBits = 14;  // 16 KiB

  std::uintptr_t border;    // where side[1] starts; the highest address when nothing does
  QRTChunkRecord* side[2];  // the chunk that began in a lower window, and the one that starts here
  std::uintptr_t number;    // address >> kBits; 0 for an empty place

  static const QRTChunkWindow kEmpty;
};

/// The windows that hold chunks, each mostly at the place that its number says.
struct QRTChunkTable {
  QRTChunkWindow* places;  // a power of two, at least half of them empty
  std::size_t last;        // the last one

  /// A table of no chunks.
  static const QRTChunkTable none;

  /// Where the window of a number stands, if it has its own place. Windows that are side by side in
  /// memory are so in the table and never meet there.
  std::size_t placeOf(std::uintptr_t number) const { return number & last; }

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
