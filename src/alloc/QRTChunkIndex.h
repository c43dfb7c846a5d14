#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstddef>
#include <cstdint>

#include "QRTFixedMemoryPoolChunk.h"

/// The chunks of one pool in the order of its list, the newest first, with a bit for each that has
/// a free element: so the first of these is found without going through the list, whose links are a
/// cache miss each. All that it says can be read from the list as well, so a pool that has no
/// memory for an index goes on without one, slower and otherwise the same.
///
/// It is touched when a chunk without free elements gets one, when the current chunk has none left,
/// and when chunks come and go. It is one block of memory of the C runtime: 24 to 36 bytes a chunk
/// when it is made, which happens again when a third of the chunks is new.
///
///     places   chunks, filled from the last place to the first: the order of the list; null where
///              one was removed
///     has      a bit for every place whose chunk has a free element. A bit may be set for a chunk
///              that has none any more, never the other way round.
///     summary  a bit for every word of `has` that is not zero
///     table    the place of a chunk by its address
class QRTChunkIndex {
 public:
  using Chunk = QRTFixedMemoryPool::Chunk;

  /// A chunk and its place.
  struct Found {
    Chunk* chunk;
    std::size_t place;
  };

  /// Makes an index of the chunks on a list, with room for half as many again.
  /// @param fewest  with less chunks than this there is none
  /// @return the index, to be given to `release`; null also when memory cannot be had
  static QRTChunkIndex* make(Chunk* list, std::size_t fewest) noexcept;
  static void release(QRTChunkIndex* index) noexcept;

  /// Adds a chunk as the newest one, with free elements.
  /// @return false when there is no room left
  bool add(Chunk* chunk) noexcept;

  /// Takes a chunk out.
  void remove(const Chunk* chunk) noexcept;

  /// Whether a chunk is here.
  bool has(const void* chunk) const noexcept { return placeOf(chunk) != m_capacity; }

  /// In a large pool without headers that was freed in random order, each free element lies on a
  /// cache line of its own, whose address stands on the one before. So each also holds, in its
  /// second word, the address of the element that was freed kAhead frees before it, which alloc
  /// prefetches. It is a hint and nothing else: what is written over it does no harm. Where frees
  /// and allocs alternate there is no need: then the next element is the last one freed when it is
  /// handed out, and is not when another one is freed.
  /// @param area  an element that is freed now, of 16 bytes at least
  /// @param next  the one that is first on the free list
  void noteFreed(char* area, const char* next) noexcept {
    if (next == m_lastFreed) {
      char*& recent = m_recent[m_noted++ % kAhead];
      qrtStoreLink(area + sizeof recent, recent);
      recent = area;
    }
    m_lastFreed = area;
  }
  /// @param area  an element that is handed out now
  void prefetchBehind(const char* area) const noexcept {
    if (area != m_lastFreed) {
      __builtin_prefetch(qrtLoadLink(area + sizeof area), 1);
    }
  }

  /// Notes that a chunk has a free element now. A chunk that is not here, to which a damaged header
  /// may lead, is ignored.
  void noteFree(const Chunk* chunk) noexcept {
    const std::size_t place = placeOf(chunk);
    if (place < m_newest && m_lone == m_capacity) {
      m_lone = place;
    } else {
      noteBehind(place);
    }
  }

  /// Notes that the chunk that was found last has no free element any more.
  void noteFull(std::size_t place) noexcept {
    if (place == m_lone) {
      m_lone = m_capacity;
    } else {
      clearBit(place);
    }
  }

  /// Finds the newest chunk with a free element.
  /// @return a null chunk when there is none
  /// Cost: constant up to 4,096 chunks (1,024 where a word has 32 bits), then one more step for
  /// each as many newer ones that are full.
  Found findNewest() noexcept {
    if (m_lone != m_capacity) {
      Chunk* const chunk = m_places[m_lone];
      if (chunk->head() != 0) {
        return {chunk, m_lone};
      }
      m_lone = m_capacity;
    }
    return findByBits();
  }

 private:
  static constexpr std::size_t kBits = sizeof(std::size_t) * 8;
  static constexpr unsigned kChunkBits = 15;  // addresses that differ in higher bits lie in chunks
                                              // of their own, mostly

  static constexpr unsigned kAhead = 8;

  static std::size_t bitOf(std::size_t i) { return std::size_t{1} << i % kBits; }
  static unsigned lowestIn(std::size_t word) {
    if constexpr (sizeof word == sizeof(unsigned long long)) {
      return static_cast<unsigned>(__builtin_ctzll(word));
    } else {
      return static_cast<unsigned>(__builtin_ctz(word));
    }
  }

  /// The slot of the table where the search for a chunk begins.
  std::size_t slotOf(const void* chunk) const noexcept {
    return reinterpret_cast<std::uintptr_t>(chunk) >> kChunkBits & m_mask;
  }

  /// The place of a chunk; m_capacity when it is not here.
  std::size_t placeOf(const void* chunk) const noexcept {
    const std::size_t slot = slotOf(chunk);
    const std::size_t place = m_table[slot];
    return place != m_capacity && m_places[place] == chunk ? place : placeBehind(chunk, slot);
  }

  Found findByBits() noexcept;
  void noteBehind(std::size_t place) noexcept;
  void setBit(std::size_t place) noexcept;
  void clearBit(std::size_t place) noexcept;
  std::size_t placeBehind(const void* chunk, std::size_t slot) const noexcept;
  void enter(Chunk* chunk, std::size_t place) noexcept;
  static std::size_t stepOf(const void* chunk) noexcept;

  std::size_t m_capacity;      // places
  std::size_t m_first;         // the place filled last
  std::size_t m_newest;        // no newer place than this has a bit
  std::size_t m_lone;          // a place newer than m_newest whose chunk got a free element and no
                               // bit, as it is the next to be handed out; m_capacity for none
  std::size_t m_mask;          // slots of the table less one
  std::size_t m_summaryWords;  // words of m_summary
  char* m_recent[kAhead];      // the last elements freed in a row, by m_noted
  unsigned m_noted;            // elements that were put into m_recent
  const char* m_lastFreed;     // the last of them freed
  Chunk** m_places;            // these are in the same block of memory
  std::size_t* m_has;
  std::size_t* m_summary;
  std::uint32_t* m_table;  // the place in each slot; m_capacity for none
};

#endif  // QRTCHUNKINDEX_H
