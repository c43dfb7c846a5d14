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
/// element beside the 74 of the record and of the entry below the stack.
struct QRTChunkRecord {
  static constexpr unsigned kChunkBytes = 32760;  // bytes of a chunk, its trailer included
  static constexpr unsigned kHeaderBytes = 8;     // bytes in front of each area
  static constexpr unsigned kAhead = 16;          // elements that are prefetched before their turn

  char* start;               // where the chunk starts
  std::uint16_t* top;        // entry of the stack for the element that is handed out next
  std::uint16_t* last;       // last entry that the stack has room for
  QRTFixedMemoryPool* pool;  // whose it is
  std::size_t* has;        // word of the pool's QRTChunkIndex with a bit for chunks with free ones
  std::size_t hasBit;      // the chunk's bit there
  std::size_t* summary;    // word of the index with a bit for each such word that is not zero
  std::size_t summaryBit;  // the word's bit there
  unsigned age;            // the chunk's place in the index

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

  /// Bytes 4 to 7 of the header of the element whose area is so far from the chunk's start: where
  /// it lies, whether it is in use and the filler. They are loaded and stored together, which the
  /// processor forwards without a stall. Damage to bytes 0 to 3 is let pass: they have been run
  /// over first by whatever reaches the filler.
  static constexpr std::uint32_t freeMark(std::uintptr_t distance) {
    return static_cast<std::uint32_t>(distance) + (0x0E000000 - kHeaderBytes);
  }
  static constexpr std::uint32_t usedMark(std::uintptr_t distance) {
    return static_cast<std::uint32_t>(distance) + (0x0E010000 - kHeaderBytes);
  }

  /// Distances from the chunk's start to the areas of the free elements, from entry 1 up to the
  /// one that is handed out next at `top`. Entry 0 is 0, which is no area's. `none` has no entries
  /// but that one, and they are not here.
  std::uint16_t* stack() { return reinterpret_cast<std::uint16_t*>(this + 1); }
  const std::uint16_t* stack() const { return reinterpret_cast<const std::uint16_t*>(this + 1); }

  /// Distance of the element that is handed out next; 0 when none is free.
  unsigned head() const { return *top; }

  /// Whether exactly one element is free.
  bool hasOne() const { return top == stack() + 1; }

  /// Whether all elements are free.
  bool hasAll() const { return top == last; }

  /// Where pointers have 4 bytes, notes in the last ones of the chunk the address of the element
  /// that is handed out next. Where they have 8, there is no room for it.
  /// @param distance  0 for none
  void writeHead(unsigned distance) const { writeHead(start, distance); }
  static void writeHead(char* start, unsigned distance) {
    if (sizeof(void*) == 4) {
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
  ///
  /// There is no branch: which word has other bits is random where elements are freed at random.
  void noteFull() const {
    const std::size_t others = *has & ~hasBit;
    const std::size_t isZero = (~others & (others - 1)) >> (sizeof others * 8 - 1);
    *has = others;
    *summary &= ~(summaryBit & (0 - isZero));
  }

  /// Turns the header of a free element into that of one in use.
  /// @return false, with nothing changed, when it is not that of a free element
  [[gnu::always_inline]] static bool claim(char* area, unsigned distance) {
    std::uint32_t mark = freeMark(distance);
    if (std::memcmp(area - sizeof mark, &mark, sizeof mark) != 0) {
      return false;
    }
    mark = usedMark(distance);
    std::memcpy(area - sizeof mark, &mark, sizeof mark);
    return true;
  }

  /// Takes the next free element.
  /// @return its area; null, with nothing changed, when none is free or when its header is not that
  ///         of a free element
  [[gnu::always_inline]] void* take() {
    std::uint16_t* const entry = top;
    const unsigned distance = *entry;
    if (distance == 0) {
      return nullptr;
    }
    char* const from = start;
    char* const area = from + distance;
    // After frees in random order each element's line is a cache miss of its own. Towards the end
    // of the stack it is the last one's line that is asked for, without a branch.
    const std::uint16_t* const lowest = stack() + 1;
    const std::uint16_t* const ahead = entry - kAhead;
    __builtin_prefetch(from + *(ahead < lowest ? lowest : ahead), 1);
    if (!claim(area, distance)) {
      return nullptr;
    }
    top = entry - 1;
    writeHead(from, entry[-1]);
    return area;
  }

  /// Does what `take` does for a chunk that has one free element and no more.
  [[gnu::always_inline]] void* takeOnly() {
    const unsigned distance = stack()[1];
    char* const area = start + distance;
    if (!claim(area, distance)) {
      return nullptr;
    }
    top = stack();
    writeHead(start, 0);
    return area;
  }

  /// Puts an element back.
  /// @return false, with nothing changed, when the address is no element's in this chunk, or its
  ///         header not that of an element in use
  ///
  /// The header is a cache miss in a large pool. It is not waited for: the address tells where the
  /// element lies, the record which one was freed before it, and the comparison is predicted, so
  /// that the misses of several frees overlap. How many depends on the number of instructions here.
  [[gnu::always_inline]] bool put(void* p) {
    char* const from = start;
    std::uint16_t* const entry = top;
    const std::uintptr_t distance = distanceOf(p);
    if (distance >= kChunkBytes || entry == last) {
      return false;
    }
    char* const area = static_cast<char*>(p);
    std::uint32_t mark = usedMark(distance);
    if (std::memcmp(area - sizeof mark, &mark, sizeof mark) != 0) {
      return false;
    }
    const char* next = nullptr;
    if (*entry != 0) {
      next = from + *entry;
    } else {
      noteFree();
    }
    std::memcpy(area, &next, sizeof next);
    entry[1] = static_cast<std::uint16_t>(distance);
    top = entry + 1;
    writeHead(from, static_cast<unsigned>(distance));
    mark = freeMark(distance);
    std::memcpy(area - sizeof mark, &mark, sizeof mark);
    return true;
  }
};

/// A piece of address space of half a chunk's size. It holds the end of one chunk and the start of
/// another at most, however close together they lie.
struct QRTChunkWindow {
  static constexpr unsigned kBits = 14;                              // 16 KiB
  static constexpr unsigned kSizeBits = sizeof(void*) == 8 ? 5 : 4;  // of this struct

  std::uintptr_t border;    // where side[1] starts; the highest address when nothing does
  QRTChunkRecord* side[2];  // the chunk that began in a lower window, and the one that starts here
  std::uintptr_t number;    // address >> kBits; 0 for an empty place

  static const QRTChunkWindow kEmpty;
};

static_assert(sizeof(QRTChunkWindow) == std::size_t{1} << QRTChunkWindow::kSizeBits);

/// The windows that hold chunks, each mostly at the place that its number says: windows that are
/// side by side in memory are so in the table.
struct QRTChunkTable {
  QRTChunkWindow* places;  // a power of two, at least half of them empty
  std::uintptr_t mask;     // distance of the last one from the first in bytes

  /// A table of no chunks.
  static const QRTChunkTable none;

  /// The record of the chunk that an address lies in, if it lies in one and its window has its own
  /// place; else of any chunk, or of none. The record tells.
  QRTChunkRecord* guess(const void* address) const {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    // The number times the size of a window, in one step.
    constexpr unsigned kShift = QRTChunkWindow::kBits - QRTChunkWindow::kSizeBits;
    const char* const place = reinterpret_cast<const char*>(places) + (at >> kShift & mask);
    const QRTChunkWindow& window = *reinterpret_cast<const QRTChunkWindow*>(place);
    // Both are loaded before one is chosen, without a branch: which chunk an address lies in is
    // anybody's guess.
    QRTChunkRecord* const before = window.side[0];
    QRTChunkRecord* const starting = window.side[1];
    return at >= window.border ? starting : before;
  }
};

#endif  // QRTCHUNKRECORD_H
