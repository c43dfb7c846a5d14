#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstddef>
#include <cstdint>

#include "QRTFixedMemoryPoolChunk.h"

/// The chunks of one pool in the order of its list, the newest first, with a bit for each that has
/// a free element. It finds the newest of these without a walk along the list, whose links are a
/// cache miss each. It is a cache of the list and of the chunks' trailers: a pool that gets no
/// memory for an index works without one, slower and with the same results.
///
/// It is updated when a chunk without free elements gets one, when the current chunk has none left,
/// and when chunks are added and removed. It is one block of memory of the C runtime: 24 to 36
/// bytes a chunk when it is made, which happens again when a third of the chunks is new.
///
///     places   chunks, filled from the last place to the first: the order of the list; null where
///              one was removed
///     hasFree  a bit for every place
///     summary  a bit for every word of `hasFree` that is not zero
///     slots    a hash table of chunk addresses, open addressing with double hashing; each slot
///              holds a place
///
/// Invariants:
///
///   - a chunk with a free element has its bit set or is at m_lone. A set bit of a chunk without
///     one is allowed; findByBits clears it when it sees it.
///   - no bit is set for a place below m_newest.
///   - m_lone is below m_newest, so that it is the answer of findNewest when it has a free element.
///   - a removed chunk keeps its slot of the table, whose place holds null from then on, so that no
///     probe sequence is cut short. Places are not used again before the index is made anew.
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

  /// Stores a prefetch hint in a free element. In a large pool without headers that was freed in
  /// random order every step along the free list is a cache miss, and the next one cannot begin
  /// before it ends. So the second word of an element holds the address of the one that was freed
  /// kHintAhead frees before it, which alloc prefetches. Nothing but the prefetch depends on it.
  ///
  /// Hints are stored for runs of frees only. Where frees and allocs alternate, the element on top
  /// of the list was used a moment ago and is in the cache.
  /// @param area  an element that is freed now, of 16 bytes at least
  /// @param next  the first one on the free list
  void storeHint(char* area, const char* next) noexcept {
    if (next == m_lastFreed) {
      char*& recent = m_lastFreedRing[m_hintsStored++ % kHintAhead];
      qrtStoreLink(area + sizeof recent, recent);
      recent = area;
    }
    m_lastFreed = area;
  }
  /// Prefetches the element that the hint in another one names.
  /// @param area  an element that is handed out now
  void prefetchHinted(const char* area) const noexcept {
    if (area != m_lastFreed) {
      __builtin_prefetch(qrtLoadLink(area + sizeof area), 1);
    }
  }

  /// Records that a chunk got its first free element. It becomes m_lone, without a bit, when it
  /// can: frees and allocs that alternate then set and clear no bit. A chunk that is not here, to
  /// which a damaged header may lead, is ignored: its place is m_capacity, which is not below
  /// m_newest.
  void noteFree(const Chunk* chunk) noexcept {
    const std::size_t place = placeOf(chunk);
    if (place < m_newest && m_lone == m_capacity) {
      m_lone = place;
    } else {
      flushLone(place);
    }
  }

  /// Records that a chunk has no free element any more.
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

  // Chunks are 32,760 bytes: addresses without their lowest 15 bits differ from chunk to chunk, and
  // those of chunks that the heap gave in a row ascend by one, which fills the table densely and
  // without collisions.
  static constexpr unsigned kChunkBits = 15;

  // Elements that alloc prefetches ahead: enough of them for a cache miss to end in the meantime.
  static constexpr unsigned kHintAhead = 8;

  static std::size_t bitOf(std::size_t i) { return std::size_t{1} << i % kBits; }
  static unsigned lowestIn(std::size_t word) {
    if constexpr (sizeof word == sizeof(unsigned long long)) {
      return static_cast<unsigned>(__builtin_ctzll(word));
    } else {
      return static_cast<unsigned>(__builtin_ctz(word));
    }
  }

  /// The slot of the table where the search for a chunk begins.
  std::size_t firstSlotOf(const void* chunk) const noexcept {
    return reinterpret_cast<std::uintptr_t>(chunk) >> kChunkBits & m_mask;
  }

  /// The place of a chunk; m_capacity when it is not here.
  std::size_t placeOf(const void* chunk) const noexcept {
    const std::size_t slot = firstSlotOf(chunk);
    const std::size_t place = m_slots[slot];
    return place != m_capacity && m_places[place] == chunk ? place : probe(chunk, slot);
  }

  Found findByBits() noexcept;
  void flushLone(std::size_t place) noexcept;
  void setBit(std::size_t place) noexcept;
  void clearBit(std::size_t place) noexcept;
  std::size_t probe(const void* chunk, std::size_t slot) const noexcept;
  void insert(Chunk* chunk, std::size_t place) noexcept;
  static std::size_t probeStepOf(const void* chunk) noexcept;

  std::size_t m_capacity;      // places
  std::size_t m_first;         // the lowest place filled, that of the newest chunk
  std::size_t m_newest;        // no place below this has a bit
  std::size_t m_lone;          // a place below m_newest whose chunk got a free element and no bit,
                               // as it is the next to be handed out; m_capacity for none
  std::size_t m_mask;          // number of slots less one
  std::size_t m_summaryWords;  // words of m_summary
  char* m_lastFreedRing[kHintAhead];  // the last elements freed in a run; a ring
  unsigned m_hintsStored;             // elements ever put into the ring
  const char* m_lastFreed;            // the element freed last
  Chunk** m_places;                   // this and the next three are in the same block
  std::size_t* m_hasFree;
  std::size_t* m_summary;
  std::uint32_t* m_slots;  // the place in each slot; m_capacity for none
};

#endif  // QRTCHUNKINDEX_H
