#include "QRTChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

QRTChunkIndex* QRTChunkIndex::make(Chunk* list, std::size_t fewest) noexcept {
  constexpr std::size_t kSpare = 8;  // places at least, so that few chunks do not remake it often
  std::size_t count = 0;
  for (const Chunk* chunk = list; chunk != nullptr; chunk = chunk->next()) {
    ++count;
  }
  if (count < fewest) {
    return nullptr;
  }
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
  auto* const index = static_cast<QRTChunkIndex*>(memory);
  index->m_capacity = capacity;
  index->m_mask = slots - 1;
  index->m_summaryWords = summaryWords;
  std::fill_n(index->m_recent, kAhead, nullptr);
  index->m_noted = 0;
  index->m_lastFreed = nullptr;
  index->m_places = reinterpret_cast<Chunk**>(index + 1);
  index->m_has = reinterpret_cast<std::size_t*>(index->m_places + capacity);
  index->m_summary = index->m_has + words;
  index->m_table = reinterpret_cast<std::uint32_t*>(index->m_summary + summaryWords);
  std::fill_n(index->m_places, capacity, nullptr);
  std::fill_n(index->m_has, words + summaryWords, 0);
  std::fill_n(index->m_table, slots, static_cast<std::uint32_t>(capacity));
  index->m_first = capacity - count;
  index->m_newest = capacity;
  index->m_lone = capacity;
  std::size_t place = index->m_first;
  for (Chunk* chunk = list; chunk != nullptr; chunk = chunk->next()) {
    index->enter(chunk, place++);
  }
  return index;
}

void QRTChunkIndex::release(QRTChunkIndex* index) noexcept {
  std::free(index);
}

bool QRTChunkIndex::add(Chunk* chunk) noexcept {
  if (m_first == 0) {
    return false;
  }
  noteBehind(m_lone);
  enter(chunk, --m_first);
  return true;
}

/// Enters a chunk at an empty place.
void QRTChunkIndex::enter(Chunk* chunk, std::size_t place) noexcept {
  std::size_t slot = slotOf(chunk);
  while (m_table[slot] != m_capacity) {
    slot = (slot + stepOf(chunk)) & m_mask;
  }
  m_table[slot] = static_cast<std::uint32_t>(place);
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

/// Does what findNewest does where no chunk is the lone one.
QRTChunkIndex::Found QRTChunkIndex::findByBits() noexcept {
  for (std::size_t top = m_newest / kBits / kBits; top < m_summaryWords; ++top) {
    while (m_summary[top] != 0) {
      const std::size_t word = top * kBits + lowestIn(m_summary[top]);
      const std::size_t place = word * kBits + lowestIn(m_has[word]);
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

/// Gives its bit to the lone chunk, and to another one that got a free element.
void QRTChunkIndex::noteBehind(std::size_t place) noexcept {
  for (const std::size_t noted : {m_lone, place}) {
    if (noted != m_capacity) {
      setBit(noted);
    }
  }
  m_lone = m_capacity;
}

void QRTChunkIndex::setBit(std::size_t place) noexcept {
  m_has[place / kBits] |= bitOf(place);
  m_summary[place / kBits / kBits] |= bitOf(place / kBits);
  m_newest = std::min(m_newest, place);
}

/// There is no branch: whether another chunk of the same word has a free element is anybody's guess
/// where they are freed at random.
void QRTChunkIndex::clearBit(std::size_t place) noexcept {
  const std::size_t word = place / kBits;
  const std::size_t others = m_has[word] & ~bitOf(place);
  m_has[word] = others;
  m_summary[word / kBits] &= ~(std::size_t{others == 0} << word % kBits);
}

/// Looks for a chunk behind the slot where its search begins.
std::size_t QRTChunkIndex::placeBehind(const void* chunk, std::size_t slot) const noexcept {
  std::size_t place = m_table[slot];
  while (place != m_capacity && m_places[place] != chunk) {
    slot = (slot + stepOf(chunk)) & m_mask;
    place = m_table[slot];
  }
  return place;
}

/// How far it is to the next slot that is looked at. Chunks side by side in memory are so in the
/// table; where two regions of memory meet there, steps of one would lead through all of the other.
/// Fibonacci hashing: the multiplier is 2^64 divided by the golden ratio. The step is odd, so that
/// it leads to every slot.
std::size_t QRTChunkIndex::stepOf(const void* chunk) noexcept {
  const std::uint64_t address = reinterpret_cast<std::uintptr_t>(chunk);
  return static_cast<std::size_t>(address * 0x9E3779B97F4A7C15U >> 40) | 1;
}
