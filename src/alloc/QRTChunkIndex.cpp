#include "QRTChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

/// The steps:
///   1. count the chunks by a walk along the list;
///   2. obtain one block for all parts. They are in the order of falling alignment, so that none
///      needs padding. Places fit the 32 bits of a slot: as many chunks would take 128 TiB;
///   3. make all parts empty;
///   4. enter the chunks. The list begins with the newest, so places ascend along it, and the free
///      places are below m_first, where newer chunks will come.
/// Chunks of a pool without headers never have a head in their trailer, so no bit is set for them.
QRTChunkIndex* QRTChunkIndex::make(Chunk* list, std::size_t fewest) noexcept {
  constexpr std::size_t kSpare = 8;  // places at least, so that few chunks do not remake it often
  // Step 1
  std::size_t count = 0;
  for (const Chunk* chunk = list; chunk != nullptr; chunk = chunk->next()) {
    ++count;
  }
  if (count < fewest) {
    return nullptr;
  }
  // Step 2
  const std::size_t capacity = count + std::max(count / 2, kSpare);
  const std::size_t slots = std::bit_ceil(2 * capacity);  // half of them stay empty
  const std::size_t words = capacity / kBits + 1;
  const std::size_t summaryWords = words / kBits + 1;
  void* const memory =
      std::malloc(sizeof(QRTChunkIndex) + capacity * sizeof(Chunk*) +
                  (words + summaryWords) * sizeof(std::size_t) + slots * sizeof(std::uint32_t));
  if (memory == nullptr) {
    return nullptr;
  }
  // Step 3
  auto* const index = static_cast<QRTChunkIndex*>(memory);
  index->m_capacity = capacity;
  index->m_mask = slots - 1;
  index->m_summaryWords = summaryWords;
  std::fill_n(index->m_lastFreedRing, kHintAhead, nullptr);
  index->m_hintsStored = 0;
  index->m_lastFreed = nullptr;
  index->m_places = reinterpret_cast<Chunk**>(index + 1);
  index->m_hasFree = reinterpret_cast<std::size_t*>(index->m_places + capacity);
  index->m_summary = index->m_hasFree + words;
  index->m_slots = reinterpret_cast<std::uint32_t*>(index->m_summary + summaryWords);
  std::fill_n(index->m_places, capacity, nullptr);
  std::fill_n(index->m_hasFree, words + summaryWords, 0);
  std::fill_n(index->m_slots, slots, static_cast<std::uint32_t>(capacity));
  index->m_first = capacity - count;
  index->m_newest = capacity;
  index->m_lone = capacity;
  // Step 4
  std::size_t place = index->m_first;
  for (Chunk* chunk = list; chunk != nullptr; chunk = chunk->next()) {
    index->insert(chunk, place++);
  }
  return index;
}

void QRTChunkIndex::release(QRTChunkIndex* index) noexcept {
  std::free(index);
}

/// The lone chunk gets its bit first: the new chunk is newer and has free elements, so that the
/// lone one would not be the answer of findNewest any more.
bool QRTChunkIndex::add(Chunk* chunk) noexcept {
  if (m_first == 0) {
    return false;
  }
  flushLone(m_lone);
  insert(chunk, --m_first);
  return true;
}

/// Enters a chunk at an empty place. At least half of the slots are empty, so the probe ends: each
/// place takes one slot once, removed chunks included. An address that was here before and was
/// removed gets a second slot; the first one leads to null, which probe passes over.
void QRTChunkIndex::insert(Chunk* chunk, std::size_t place) noexcept {
  std::size_t slot = firstSlotOf(chunk);
  while (m_slots[slot] != m_capacity) {
    slot = (slot + probeStepOf(chunk)) & m_mask;
  }
  m_slots[slot] = static_cast<std::uint32_t>(place);
  m_places[place] = chunk;
  if (chunk->head() != 0) {
    setBit(place);
  }
}

void QRTChunkIndex::remove(const Chunk* chunk) noexcept {
  const std::size_t place = placeOf(chunk);
  noteFull(place);
  m_places[place] = nullptr;
}

/// Finds the newest chunk with a free element by the bits, clearing those that are out of date:
///   1. the lowest word of the summary that is not zero, from m_newest on;
///   2. the lowest bit of the word of m_hasFree that it names;
///   3. the chunk's own trailer, which decides.
/// A removed chunk has no bit, so no place met here is null. Every bit cleared was set once, so
/// those out of date cost no more than the calls that set them.
QRTChunkIndex::Found QRTChunkIndex::findByBits() noexcept {
  // Step 1
  for (std::size_t top = m_newest / kBits / kBits; top < m_summaryWords; ++top) {
    while (m_summary[top] != 0) {
      const std::size_t word = top * kBits + lowestIn(m_summary[top]);
      // Step 2
      const std::size_t place = word * kBits + lowestIn(m_hasFree[word]);
      // Step 3
      if (m_places[place]->head() != 0) {
        m_newest = place;
        return {m_places[place], place};
      }
      clearBit(place);
    }
  }
  m_newest = m_capacity;
  return {nullptr, m_capacity};
}

/// Sets the bit of the lone chunk, which is none afterwards, and of another one; m_capacity for
/// neither.
void QRTChunkIndex::flushLone(std::size_t place) noexcept {
  for (const std::size_t noted : {m_lone, place}) {
    if (noted != m_capacity) {
      setBit(noted);
    }
  }
  m_lone = m_capacity;
}

void QRTChunkIndex::setBit(std::size_t place) noexcept {
  m_hasFree[place / kBits] |= bitOf(place);
  m_summary[place / kBits / kBits] |= bitOf(place / kBits);
  m_newest = std::min(m_newest, place);
}

/// Clears a bit, and that of its word when it was the last. Without a branch: where elements are
/// freed in random order a branch on the rest of the word could not be predicted.
void QRTChunkIndex::clearBit(std::size_t place) noexcept {
  const std::size_t word = place / kBits;
  const std::size_t others = m_hasFree[word] & ~bitOf(place);
  m_hasFree[word] = others;
  m_summary[word / kBits] &= ~(std::size_t{others == 0} << word % kBits);
}

/// Follows the probe sequence of a chunk from its first slot on.
std::size_t QRTChunkIndex::probe(const void* chunk, std::size_t slot) const noexcept {
  std::size_t place = m_slots[slot];
  while (place != m_capacity && m_places[place] != chunk) {
    slot = (slot + probeStepOf(chunk)) & m_mask;
    place = m_slots[slot];
  }
  return place;
}

/// The step of a chunk's probe sequence. Neighbours in memory are neighbours in the table, so where
/// the slots of two memory regions overlap, steps of one slot would walk through all of the other
/// region; each chunk has a step of its own instead. Fibonacci hashing: the multiplier is 2^64
/// divided by the golden ratio. The step is odd and the number of slots a power of two, so the
/// sequence visits every slot.
std::size_t QRTChunkIndex::probeStepOf(const void* chunk) noexcept {
  const std::uint64_t address = reinterpret_cast<std::uintptr_t>(chunk);
  return static_cast<std::size_t>(address * 0x9E3779B97F4A7C15U >> 40) | 1;
}
