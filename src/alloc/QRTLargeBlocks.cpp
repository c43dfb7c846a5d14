#include "QRTLargeBlocks.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t kFewest = 16;  // places of the first table

}  // namespace

bool QRTLargeBlocks::insert(void* block) {
  if ((m_count + 1) * 4 > m_places.size() * 3) {
    grow();
  }
  const std::size_t place = find(block);
  if (m_places[place] != nullptr) {
    return false;
  }
  m_places[place] = block;
  ++m_count;
  return true;
}

std::size_t QRTLargeBlocks::erase(const void* block) noexcept {
  if (m_places.empty()) {
    return 0;
  }
  const std::size_t last = m_places.size() - 1;
  std::size_t hole = find(block);
  if (m_places[hole] == nullptr) {
    return 0;
  }
  // Blocks behind it that would not be found past the hole move up.
  for (std::size_t next = (hole + 1) & last; m_places[next] != nullptr; next = (next + 1) & last) {
    const std::size_t home = placeOf(m_places[next]);
    if (((next - home) & last) >= ((next - hole) & last)) {
      m_places[hole] = m_places[next];
      hole = next;
    }
  }
  m_places[hole] = nullptr;
  --m_count;
  return 1;
}

std::vector<void*> QRTLargeBlocks::sorted() const {
  std::vector<void*> blocks;
  blocks.reserve(m_count);
  std::copy_if(m_places.begin(), m_places.end(), std::back_inserter(blocks),
               [](const void* block) { return block != nullptr; });
  std::sort(blocks.begin(), blocks.end(), std::less<>());
  return blocks;
}

/// Moves all blocks to the front in ascending order; nothing is found any more then.
/// @return how many there are
std::size_t QRTLargeBlocks::gather() noexcept {
  const auto end = std::remove(m_places.begin(), m_places.end(), nullptr);
  std::sort(m_places.begin(), end, std::less<>());
  return static_cast<std::size_t>(end - m_places.begin());
}

/// Where the search for a block begins. The low bits of an address say little, and blocks of one
/// size lie at even distances: the product scatters both.
std::size_t QRTLargeBlocks::placeOf(const void* block) const noexcept {
  const std::uint64_t address = reinterpret_cast<std::uintptr_t>(block);
  return static_cast<std::size_t>(address * 0x9E3779B97F4A7C15U >> 32) & (m_places.size() - 1);
}

/// The place of a block, or the empty one where it would be entered.
std::size_t QRTLargeBlocks::find(const void* block) const noexcept {
  std::size_t place = placeOf(block);
  while (m_places[place] != nullptr && m_places[place] != block) {
    place = (place + 1) & (m_places.size() - 1);
  }
  return place;
}

void QRTLargeBlocks::grow() {
  std::vector<void*> larger(m_places.empty() ? kFewest : m_places.size() * 2);
  std::swap(m_places, larger);
  for (void* block : larger) {
    if (block != nullptr) {
      m_places[find(block)] = block;
    }
  }
}
