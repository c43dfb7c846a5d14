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
///     m_given     age -> elements given back since the chunk's last turn
///     m_mayHave   one bit per age: the chunk may have a free element
///     m_summary   one bit per word of m_mayHave that is not zero
///     m_ages      window of addresses -> age + 1, open addressing, 0 where empty
///
/// A bit is set at every free and cleared when a search finds the chunk full. Everything lives in
/// one block of the C runtime heap: about 29 bytes for a chunk of 32,760.
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
  /// @return false when memory cannot be had; the index is then unchanged
  bool add(Chunk* chunk) noexcept;

  /// Adds all chunks of a list, the newest first, to an empty index.
  /// @return false when memory cannot be had; the index is then empty
  bool addAll(Chunk* newest) noexcept;

  /// Removes a chunk, if it is here.
  void remove(const Chunk* chunk) noexcept;

  /// @return the age of the chunk that an address lies in, or kNone
  unsigned ageOf(const void* address) const noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    for (unsigned place = placeOf(at >> kWindowBits); m_ages[place] != 0; place = after(place)) {
      const unsigned age = m_ages[place] - 1;
      if (age != kRemoved && at - reinterpret_cast<std::uintptr_t>(m_chunks[age]) < kChunkBytes) {
        return age;
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
    ++m_given[age];
    m_mayHave[age / 64] |= std::uint64_t{1} << (age % 64);
    m_summary[age / 64 / 64] |= std::uint64_t{1} << (age / 64 % 64);
  }

  /// @return the age of the newest chunk with a free element, or kNone. When many of its elements
  ///         were given back, the chunk is on its way into the cache: their links lead all over it,
  ///         and following them would wait for memory at each.
  /// Cost: constant, plus the chunks that became full since they were noted.
  unsigned newestWithFree() noexcept {
    for (unsigned top = m_summaryWords; top-- > 0;) {
      while (m_summary[top] != 0) {
        const unsigned word = top * 64 + highestBit(m_summary[top]);
        while (m_mayHave[word] != 0) {
          const unsigned age = word * 64 + highestBit(m_mayHave[word]);
          if (m_heads[age] != 0) {
            if (m_given[age] >= kWorthFetching) {
              fetch(age);
            }
            m_given[age] = 0;
            return age;
          }
          m_mayHave[word] &= ~(std::uint64_t{1} << (age % 64));
        }
        m_summary[top] &= ~(std::uint64_t{1} << (word % 64));
      }
    }
    return kNone;
  }

 private:
  // A chunk reaches from the 32-KiB window that it starts in into the next one, and is entered
  // under both.
  static constexpr unsigned kWindowBits = 15;
  static constexpr unsigned kRemoved = 0xFFFFFFFE;  // in m_ages, less 1: the chunk was removed

  // Fetching a chunk takes as long as waiting for about 30 scattered elements of it.
  static constexpr unsigned kWorthFetching = 48;

  static unsigned highestBit(std::uint64_t word) {
    return static_cast<unsigned>(63 - __builtin_clzll(word));
  }

  // Neighbouring windows are scattered: side by side they would make one long run of entries,
  // which a search that finds nothing has to pass to its end.
  unsigned placeOf(std::uintptr_t window) const noexcept {
    return (static_cast<std::uint32_t>(window) * 0x9E3779B1U) >> m_placeShift;
  }
  unsigned after(unsigned place) const noexcept { return (place + 1) & (m_capacity * 4 - 1); }

  [[gnu::noinline]] void fetch(unsigned age) const noexcept;
  bool rebuild(unsigned capacity) noexcept;
  void enter(unsigned age, Chunk* chunk) noexcept;
  void enterWindow(unsigned age, std::uintptr_t window) noexcept;
  void removeWindow(unsigned age, std::uintptr_t window) noexcept;

  unsigned m_capacity = 0;             // ages there is room for: a power of two, at least 64
  unsigned m_placeShift = 0;           // leaves as many bits as m_ages has places
  unsigned m_summaryWords = 0;         // length of m_summary
  unsigned m_used = 0;                 // ages given out
  unsigned m_live = 0;                 // chunks in the index
  Chunk** m_chunks = nullptr;          // m_capacity entries, start of the one block; owned
  std::uint64_t* m_mayHave = nullptr;  // m_capacity / 64 words
  std::uint64_t* m_summary = nullptr;  // one word per 64 of those
  std::uint32_t* m_ages = nullptr;     // m_capacity * 4 entries
  std::uint16_t* m_heads = nullptr;    // m_capacity entries
  std::uint16_t* m_given = nullptr;    // m_capacity entries
};

#endif  // QRTCHUNKINDEX_H
