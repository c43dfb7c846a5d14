#include "QRTChunkIndex.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

#include "QRTFixedMemoryPoolChunk.h"

namespace {

constexpr unsigned kBits = 64;
constexpr unsigned kLeastCapacity = 64;

constexpr std::uint64_t bitOf(unsigned index) {
  return std::uint64_t{1} << (index % kBits);
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
  return enter(m_used++, chunk);
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
    if (!enter(--count, chunk)) {
      return false;
    }
  }
  return true;
}

void QRTChunkIndex::remove(const Chunk* chunk) noexcept {
  const unsigned age = ageOf(chunk);
  if (age == kNone) {
    return;
  }
  const auto start = reinterpret_cast<std::uintptr_t>(chunk);
  Window& first = windowOf(start);
  Window& last = windowOf(start + kChunkBytes - 1);
  first.above = first.above == age ? kNone : first.above;
  last.below = last.below == age ? kNone : last.below;
  m_chunks[age] = nullptr;
  m_heads[age] = 0;
  --m_live;
}

/// The search when the highest bit is out of date: clears bits until one is not.
unsigned QRTChunkIndex::searchNewest() noexcept {
  for (unsigned top = m_top + 1; top-- > 0;) {
    while (m_summary[top] != 0) {
      const unsigned word = top * kBits + highestBit(m_summary[top]);
      while (m_mayHave[word] != 0) {
        const unsigned age = word * kBits + highestBit(m_mayHave[word]);
        if (m_heads[age] != 0) {
          return age;
        }
        m_mayHave[word] &= ~bitOf(age);
      }
      m_summary[top] &= ~bitOf(word);
    }
  }
  return kNone;
}

/// Makes the arrays anew for `capacity` ages and enters the chunks again, oldest first.
bool QRTChunkIndex::rebuild(unsigned capacity) noexcept {
  const std::size_t chunkBytes = sizeof(Chunk*) * capacity;
  const std::size_t mayHaveBytes = sizeof(std::uint64_t) * wordsFor(capacity);
  const std::size_t summaryBytes = sizeof(std::uint64_t) * wordsFor(wordsFor(capacity));
  const std::size_t windowBytes = sizeof(Window) * capacity * 4;
  const std::size_t headBytes = sizeof(std::uint16_t) * capacity;
  char* at = static_cast<char*>(
      std::calloc(1, chunkBytes + mayHaveBytes + summaryBytes + windowBytes + headBytes));
  if (at == nullptr) {
    return false;
  }
  Chunk** const oldChunks = std::exchange(m_chunks, reinterpret_cast<Chunk**>(at));
  const unsigned oldUsed = std::exchange(m_used, 0);
  m_mayHave = reinterpret_cast<std::uint64_t*>(at += chunkBytes);
  m_summary = reinterpret_cast<std::uint64_t*>(at += mayHaveBytes);
  m_windows = reinterpret_cast<Window*>(at += summaryBytes);
  m_heads = reinterpret_cast<std::uint16_t*>(at + windowBytes);
  m_capacity = capacity;
  m_placeShift = 32 - static_cast<unsigned>(std::countr_zero(capacity * 4));
  m_top = wordsFor(wordsFor(capacity)) - 1;
  m_live = 0;
  for (unsigned age = 0; age < oldUsed; ++age) {
    if (oldChunks[age] != nullptr) {
      enter(m_used++, oldChunks[age]);  // it did before
    }
  }
  std::free(oldChunks);
  return true;
}

bool QRTChunkIndex::enter(unsigned age, Chunk* chunk) noexcept {
  const auto start = reinterpret_cast<std::uintptr_t>(chunk);
  Window& first = windowOf(start);
  Window& last = windowOf(start + kChunkBytes - 1);
  if (first.above != kNone) {
    return false;
  }
  first.above = age;
  first.border = static_cast<std::uint16_t>(start & kOffsetMask);
  if (&last != &first) {
    last.below = age;
    last.border = last.above == kNone ? std::uint16_t{kOffsetMask} : last.border;
  }
  m_chunks[age] = chunk;
  char* const head = chunk->freeHead();
  m_heads[age] = static_cast<std::uint16_t>(head != nullptr ? head - chunk->data : 0);
  noteFree(age);
  ++m_live;
  return true;
}

/// The entry of the window that an address lies in, made if there is none. Entries stay until the
/// next rebuild: there are two for each age at most, and room for four.
QRTChunkIndex::Window& QRTChunkIndex::windowOf(std::uintptr_t address) noexcept {
  const auto number = static_cast<std::uint32_t>(address >> kWindowBits);
  unsigned place = placeOf(number);
  while (m_windows[place].isUsed != 0 && m_windows[place].number != number) {
    place = after(place);
  }
  if (m_windows[place].isUsed == 0) {
    m_windows[place] = {number, kNone, kNone, 0, 1};
  }
  return m_windows[place];
}
