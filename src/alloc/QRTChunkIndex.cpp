#include "QRTChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

#include "QRTFixedMemoryPoolChunk.h"

namespace {

constexpr unsigned kBits = 64;
constexpr unsigned kLeastCapacity = 64;

constexpr unsigned kCacheLine = 64;

unsigned wordsFor(unsigned bits) {
  return (bits + kBits - 1) / kBits;
}

}  // namespace

QRTChunkIndex::~QRTChunkIndex() {
  std::free(m_chunks);
}

bool QRTChunkIndex::add(Chunk* chunk) noexcept {
  if (m_used == m_capacity) {
    // Ages of removed chunks are won back when they are the majority; else there is more room.
    const unsigned capacity = m_live < m_capacity / 2 ? m_capacity : m_capacity * 2;
    if (!rebuild(std::max(capacity, kLeastCapacity))) {
      return false;
    }
  }
  enter(m_used++, chunk);
  return true;
}

bool QRTChunkIndex::addAll(Chunk* newest) noexcept {
  unsigned count = 0;
  for (Chunk* chunk = newest; chunk != nullptr; chunk = chunk->next()) {
    ++count;
  }
  if (!rebuild(std::max(std::bit_ceil(count), kLeastCapacity))) {
    return false;
  }
  m_used = count;
  for (Chunk* chunk = newest; chunk != nullptr; chunk = chunk->next()) {
    enter(--count, chunk);
  }
  return true;
}

void QRTChunkIndex::remove(const Chunk* chunk) noexcept {
  const unsigned age = ageOf(chunk);
  if (age == kNone) {
    return;
  }
  const auto start = reinterpret_cast<std::uintptr_t>(chunk);
  removeWindow(age, start >> kWindowBits);
  removeWindow(age, (start + kChunkBytes - 1) >> kWindowBits);
  m_chunks[age] = nullptr;
  m_heads[age] = 0;
  --m_live;
}

/// Asks for every cache line of a chunk.
void QRTChunkIndex::fetch(unsigned age) const noexcept {
  const char* const start = m_chunks[age]->data;
  for (unsigned at = 0; at < kChunkBytes; at += kCacheLine) {
    __builtin_prefetch(start + at, 1);
  }
}

/// Makes the arrays anew for `capacity` ages and enters the chunks again, oldest first.
bool QRTChunkIndex::rebuild(unsigned capacity) noexcept {
  const std::size_t chunkBytes = sizeof(Chunk*) * capacity;
  const std::size_t mayHaveBytes = sizeof(std::uint64_t) * wordsFor(capacity);
  const std::size_t summaryBytes = sizeof(std::uint64_t) * wordsFor(wordsFor(capacity));
  const std::size_t ageBytes = sizeof(std::uint32_t) * capacity * 4;
  const std::size_t headBytes = sizeof(std::uint16_t) * capacity;
  char* at = static_cast<char*>(
      std::calloc(1, chunkBytes + mayHaveBytes + summaryBytes + ageBytes + headBytes * 2));
  if (at == nullptr) {
    return false;
  }
  Chunk** const oldChunks = std::exchange(m_chunks, reinterpret_cast<Chunk**>(at));
  const unsigned oldUsed = std::exchange(m_used, 0);
  m_mayHave = reinterpret_cast<std::uint64_t*>(at += chunkBytes);
  m_summary = reinterpret_cast<std::uint64_t*>(at += mayHaveBytes);
  m_ages = reinterpret_cast<std::uint32_t*>(at += summaryBytes);
  m_heads = reinterpret_cast<std::uint16_t*>(at += ageBytes);
  m_given = reinterpret_cast<std::uint16_t*>(at + headBytes);
  m_capacity = capacity;
  m_summaryWords = wordsFor(wordsFor(capacity));
  m_placeShift = 32 - static_cast<unsigned>(std::countr_zero(capacity * 4));
  m_live = 0;
  for (unsigned age = 0; age < oldUsed; ++age) {
    if (oldChunks[age] != nullptr) {
      enter(m_used++, oldChunks[age]);
    }
  }
  std::free(oldChunks);
  return true;
}

void QRTChunkIndex::enter(unsigned age, Chunk* chunk) noexcept {
  m_chunks[age] = chunk;
  char* const head = chunk->freeHead();
  m_heads[age] = static_cast<std::uint16_t>(head != nullptr ? head - chunk->data : 0);
  const auto start = reinterpret_cast<std::uintptr_t>(chunk);
  const std::uintptr_t first = start >> kWindowBits;
  const std::uintptr_t last = (start + kChunkBytes - 1) >> kWindowBits;
  enterWindow(age, first);
  if (last != first) {
    enterWindow(age, last);
  }
  noteFree(age);
  m_given[age] = 0;
  ++m_live;
}

void QRTChunkIndex::enterWindow(unsigned age, std::uintptr_t window) noexcept {
  unsigned place = placeOf(window);
  while (m_ages[place] != 0) {
    place = after(place);
  }
  m_ages[place] = age + 1;
}

/// Removes the entry of an age from a window, if it is there. Half of m_ages is empty at all times,
/// so that every search ends soon.
void QRTChunkIndex::removeWindow(unsigned age, std::uintptr_t window) noexcept {
  unsigned place = placeOf(window);
  while (m_ages[place] != age + 1 && m_ages[place] != 0) {
    place = after(place);
  }
  if (m_ages[place] == age + 1) {
    m_ages[place] = kRemoved + 1;
  }
}
