#include "QRTChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

#include "QRTFixedMemoryPoolChunk.h"

namespace {

constexpr unsigned kBits = 64;
constexpr unsigned kLeastCapacity = 64;
constexpr std::uint32_t kRemoved = 0xFFFFFFFF;  // an entry of m_ages whose chunk was removed

constexpr std::uint64_t bitOf(unsigned index) {
  return std::uint64_t{1} << (index % kBits);
}

unsigned highestBit(std::uint64_t word) {
  return kBits - 1 - static_cast<unsigned>(std::countl_zero(word));
}

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
  const unsigned found = findAge(chunk);
  if (found == 0) {
    return;
  }
  const unsigned age = found - 1;
  m_chunks[age] = nullptr;
  m_mayHave[age / kBits] &= ~bitOf(age);
  if (m_mayHave[age / kBits] == 0) {
    m_summary[age / kBits / kBits] &= ~bitOf(age / kBits);
  }
  const unsigned mask = m_capacity * 2 - 1;
  unsigned place = firstPlace(chunk);
  while (m_ages[place] != found) {
    place = (place + 1) & mask;
  }
  m_ages[place] = kRemoved;
  --m_live;
}

void QRTChunkIndex::noteFree(const Chunk* chunk) noexcept {
  const unsigned found = findAge(chunk);
  if (found != 0) {
    setBit(found - 1);
  }
}

QRTChunkIndex::Chunk* QRTChunkIndex::newestWithFree() noexcept {
  for (unsigned top = wordsFor(wordsFor(m_capacity)); top-- > 0;) {
    while (m_summary[top] != 0) {
      const unsigned word = top * kBits + highestBit(m_summary[top]);
      while (m_mayHave[word] != 0) {
        const unsigned age = word * kBits + highestBit(m_mayHave[word]);
        if (m_chunks[age]->freeHead() != nullptr) {
          return m_chunks[age];
        }
        m_mayHave[word] &= ~bitOf(age);
      }
      m_summary[top] &= ~bitOf(word);
    }
  }
  return nullptr;
}

/// Makes the arrays anew for `capacity` ages and enters the chunks again, oldest first.
bool QRTChunkIndex::rebuild(unsigned capacity) noexcept {
  const std::size_t chunkBytes = sizeof(Chunk*) * capacity;
  const std::size_t bitBytes = sizeof(std::uint64_t) * wordsFor(capacity);
  const std::size_t summaryBytes = sizeof(std::uint64_t) * wordsFor(wordsFor(capacity));
  const std::size_t ageBytes = sizeof(std::uint32_t) * capacity * 2;
  char* const block =
      static_cast<char*>(std::calloc(1, chunkBytes + bitBytes + summaryBytes + ageBytes));
  if (block == nullptr) {
    return false;
  }
  Chunk** const oldChunks = std::exchange(m_chunks, reinterpret_cast<Chunk**>(block));
  const unsigned oldUsed = std::exchange(m_used, 0);
  m_mayHave = reinterpret_cast<std::uint64_t*>(block + chunkBytes);
  m_summary = reinterpret_cast<std::uint64_t*>(block + chunkBytes + bitBytes);
  m_ages = reinterpret_cast<std::uint32_t*>(block + chunkBytes + bitBytes + summaryBytes);
  m_capacity = capacity;
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
  const unsigned mask = m_capacity * 2 - 1;
  unsigned place = firstPlace(chunk);
  while (m_ages[place] != 0) {
    place = (place + 1) & mask;
  }
  m_ages[place] = age + 1;
  setBit(age);
  ++m_live;
}

void QRTChunkIndex::setBit(unsigned age) noexcept {
  m_mayHave[age / kBits] |= bitOf(age);
  m_summary[age / kBits / kBits] |= bitOf(age / kBits);
}

/// @return the chunk's age plus 1, or 0. Half of m_ages is empty at all times, so that the search
/// ends soon.
unsigned QRTChunkIndex::findAge(const void* chunk) const noexcept {
  const unsigned mask = m_capacity * 2 - 1;
  for (unsigned place = firstPlace(chunk); m_ages[place] != 0; place = (place + 1) & mask) {
    const std::uint32_t age = m_ages[place];
    if (age != kRemoved && m_chunks[age - 1] == chunk) {
      return age;
    }
  }
  return 0;
}

/// Chunks lie about 32 KiB apart, most of them side by side: their number in steps of that is
/// a hash without collisions among neighbours.
unsigned QRTChunkIndex::firstPlace(const void* chunk) const noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(chunk);
  return static_cast<unsigned>(address >> 15) & (m_capacity * 2 - 1);
}
