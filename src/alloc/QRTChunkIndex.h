#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstdint>

#include "QRTFixedMemoryPool.h"

/// Finds the newest chunk with a free element, and the chunk of an element, without touching
/// either. Pools with many chunks keep one.
///
/// A pool hands out from the first chunk of its list, newest first, that has a free element, and
/// finds the chunk of an element it gets back through the element's header. In a large pool each
/// such look is a cache miss, all the more as trailers lie 32 KiB apart and compete for the same
/// few cache sets, and branches on what it finds keep the processor from working ahead. The index
/// numbers the chunks by age and keeps what those looks are for in dense arrays:
///
///     m_chunks    age -> chunk, null where one was removed
///     m_heads     age -> bytes from the chunk's start to its first free element's area, 0 for
///     none;
///                 a copy of what the chunk's trailer says, except for the pool's current chunk,
///                 whose head the pool itself keeps
///     m_mayHave   one bit per age: the chunk may have a free element
///     m_summary   one bit per word of m_mayHave that is not zero
///     m_windows   window of addresses -> the chunks in it, open addressing
///
/// A bit is set at every free and cleared when a search finds the chunk full. Everything lives in
/// one block of the C runtime heap: about 74 bytes for a chunk of 32,760.
class QRTChunkIndex {
 public:
  using Chunk = QRTFixedMemoryPool::Chunk;
  static constexpr unsigned kChunkBytes = 32760;
  static constexpr unsigned kNone = 0xFFFFFFFF;  // no age

  QRTChunkIndex() = default;
  ~QRTChunkIndex();
  QRTChunkIndex(const QRTChunkIndex&) = delete;
  QRTChunkIndex& operator=(const QRTChunkIndex&) = delete;

  /// Adds a chunk as the newest one, with the free element its trailer names.
  /// @return false when memory cannot be had, or when the heap packs chunks closer together than
  ///         any known one does; the index is then of no use any more
  bool add(Chunk* chunk) noexcept;

  /// Adds all chunks of a list, the newest first, to an empty index.
  /// @return false as `add`
  bool addAll(Chunk* newest) noexcept;

  /// Removes a chunk, if it is here.
  void remove(const Chunk* chunk) noexcept;

  /// @return the age of the chunk that an address lies in, or kNone
  [[gnu::always_inline]] unsigned ageOf(const void* address) const noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    const auto number = static_cast<std::uint32_t>(at >> kWindowBits);
    for (unsigned place = placeOf(number); m_windows[place].isUsed != 0; place = after(place)) {
      const Window& window = m_windows[place];
      if (window.number == number) {
        // Chosen without a branch: which half an address lies in is anybody's guess.
        const unsigned age = (at & kOffsetMask) >= window.border ? window.above : window.below;
        return age != kNone && at - reinterpret_cast<std::uintptr_t>(m_chunks[age]) < kChunkBytes
                   ? age
                   : kNone;
      }
    }
    return kNone;
  }

  /// @return the chunk of an age
  Chunk* chunkAt(unsigned age) const noexcept { return m_chunks[age]; }

  /// Bytes from a chunk's start to its first free element's area, 0 for none.
  unsigned headAt(unsigned age) const noexcept { return m_heads[age]; }
  void setHeadAt(unsigned age, unsigned bytes) noexcept {
    m_heads[age] = static_cast<std::uint16_t>(bytes);
  }

  /// Notes that an element of a chunk was given back.
  void noteFree(unsigned age) noexcept {
    m_mayHave[age / 64] |= std::uint64_t{1} << (age % 64);
    m_summary[age / 64 / 64] |= std::uint64_t{1} << (age / 64 % 64);
  }

  /// Notes that a chunk has no free element left.
  void noteFull(unsigned age) noexcept {
    m_heads[age] = 0;
    m_mayHave[age / 64] &= ~(std::uint64_t{1} << (age % 64));
  }

  /// @return the age of the newest chunk with a free element, or kNone
  /// Cost: constant, plus the chunks that became full since they were noted.
  [[gnu::always_inline]] unsigned newestWithFree() noexcept {
    const std::uint64_t summary = m_summary[m_top];
    const unsigned word = m_top * 64 + highestBit(summary | 1);
    const std::uint64_t mayHave = m_mayHave[word];
    const unsigned age = word * 64 + highestBit(mayHave | 1);
    return summary != 0 && mayHave != 0 && m_heads[age] != 0 ? age : searchNewest();
  }

 private:
  // Addresses by windows of 32 KiB. A chunk reaches from the window that it starts in into the next
  // one, so that a window holds the end of one chunk and the start of another.
  static constexpr unsigned kWindowBits = 15;
  static constexpr std::uintptr_t kOffsetMask = (std::uintptr_t{1} << kWindowBits) - 1;

  struct Window {
    std::uint32_t number;  // address divided by the window's size; 47 bits of address fit
    std::uint32_t below;   // age of the chunk that ends here, or kNone
    std::uint32_t above;   // age of the chunk that starts here, or kNone
    std::uint16_t border;  // where that one starts
    std::uint16_t isUsed;  // 0 where the table is empty
  };

  // Windows are scattered over the table: side by side, as they are in memory, those of one stretch
  // of heap would make a long run that those of another have to pass.
  unsigned placeOf(std::uint32_t number) const noexcept {
    return number * 0x9E3779B1U >> m_placeShift;
  }
  unsigned after(unsigned place) const noexcept { return (place + 1) & (m_capacity * 4 - 1); }

  static unsigned highestBit(std::uint64_t word) {
    return static_cast<unsigned>(__builtin_clzll(word)) ^ 63;
  }

  [[gnu::noinline]] unsigned searchNewest() noexcept;
  bool rebuild(unsigned capacity) noexcept;
  bool enter(unsigned age, Chunk* chunk) noexcept;
  Window& windowOf(std::uintptr_t address) noexcept;

  unsigned m_capacity = 0;             // ages there is room for: a power of two, at least 64
  unsigned m_placeShift = 0;           // leaves as many bits as m_windows has places
  unsigned m_top = 0;                  // last word of m_summary
  unsigned m_used = 0;                 // ages given out
  unsigned m_live = 0;                 // chunks in the index
  Chunk** m_chunks = nullptr;          // m_capacity entries, start of the one block; owned
  std::uint64_t* m_mayHave = nullptr;  // m_capacity / 64 words
  std::uint64_t* m_summary = nullptr;  // one word per 64 of those
  Window* m_windows = nullptr;         // m_capacity * 4 entries
  std::uint16_t* m_heads = nullptr;    // m_capacity entries
};

#endif  // QRTCHUNKINDEX_H
