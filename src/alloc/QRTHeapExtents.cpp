#include "QRTHeapExtents.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

namespace {

using Header = QRTHeapExtents::Header;
using Extent = QRTHeapExtents::Extent;

constexpr std::size_t kStretch = 512;  // units of 8 bytes
constexpr std::size_t kBits = 64;
constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

std::size_t stretchOf(const Extent& extent, const Header* at) {
  return static_cast<std::size_t>(at - extent.begin) / kStretch;
}

void setMark(Extent& extent, std::size_t stretch, Header* block) {
  extent.marks[stretch] = block;
  const std::uint64_t bit = std::uint64_t{1} << (stretch % kBits);
  std::uint64_t& word = extent.marked[stretch / kBits];
  word = block != nullptr ? word | bit : word & ~bit;
}

Extent makeExtent(Header* begin, Header* end) {
  const std::size_t stretches = (static_cast<std::size_t>(end - begin) + kStretch - 1) / kStretch;
  return {begin, end, std::vector<Header*>(stretches),
          std::vector<std::uint64_t>((stretches + kBits - 1) / kBits)};
}

/// The highest mark in a stretch below `stretch`, or null.
Header* markBelow(const Extent& extent, std::size_t stretch) {
  std::size_t word = stretch / kBits;
  if (word >= extent.marked.size()) {
    word = extent.marked.size() - 1;
    stretch = word * kBits + kBits;
  }
  std::uint64_t bits = extent.marked[word];
  if (stretch < word * kBits + kBits) {
    bits &= (std::uint64_t{1} << (stretch % kBits)) - 1;
  }
  while (bits == 0) {
    if (word-- == 0) {
      return nullptr;
    }
    bits = extent.marked[word];
  }
  return extent.marks[word * kBits + static_cast<std::size_t>(std::bit_width(bits)) - 1];
}

}  // namespace

void QRTHeapExtents::add(Header* begin, Header* end) {
  const auto above = std::upper_bound(m_extents.begin(), m_extents.end(), begin,
                                      [](const Header* p, const Extent& e) { return p < e.begin; });
  auto first = above;
  auto last = above;
  if (above != m_extents.begin() && std::prev(above)->end == begin) {
    first = std::prev(above);
    begin = first->begin;
  }
  if (above != m_extents.end() && above->begin == end) {
    last = std::next(above);
    end = above->end;
  }
  Extent joined = makeExtent(begin, end);
  for (auto extent = first; extent != last; ++extent) {
    for (Header* mark : extent->marks) {
      if (mark != nullptr) {
        setMark(joined, stretchOf(joined, mark), mark);
      }
    }
  }
  if (first == last) {
    m_extents.insert(above, std::move(joined));
  } else {
    *first = std::move(joined);
    m_extents.erase(std::next(first), last);
  }
}

std::size_t QRTHeapExtents::unitsFrom(const Header* at) const {
  const std::size_t index = indexOf(at);
  return index != kNowhere && reinterpret_cast<std::uintptr_t>(at) % sizeof(Header) == 0
             ? static_cast<std::size_t>(m_extents[index].end - at)
             : 0;
}

void QRTHeapExtents::noteFree(Header* block) {
  const std::size_t index = indexOf(block);
  if (index != kNowhere) {
    Extent& extent = m_extents[index];
    const std::size_t stretch = stretchOf(extent, block);
    if (extent.marks[stretch] < block) {
      setMark(extent, stretch, block);
    }
  }
}

void QRTHeapExtents::noteTaken(const Header* block, Header* neighbour) {
  const std::size_t index = indexOf(block);
  if (index == kNowhere) {
    return;
  }
  Extent& extent = m_extents[index];
  const std::size_t stretch = stretchOf(extent, block);
  if (extent.marks[stretch] == block) {
    const bool isHere = neighbour >= extent.begin && neighbour < extent.end &&
                        stretchOf(extent, neighbour) == stretch;
    setMark(extent, stretch, isHere ? neighbour : nullptr);
  }
}

QRTHeapExtents::Header* QRTHeapExtents::nearBelow(const Header* block) const {
  const std::size_t own = indexOf(block);
  if (own == kNowhere) {
    return nullptr;
  }
  const std::size_t stretch = stretchOf(m_extents[own], block);
  Header* found = m_extents[own].marks[stretch];
  if (found == nullptr || found > block) {
    found = markBelow(m_extents[own], stretch);
  }
  // Lower extents, then from the top: behind the highest free block comes the lowest.
  for (std::size_t steps = 1; found == nullptr && steps <= m_extents.size(); ++steps) {
    const Extent& extent = m_extents[(own + m_extents.size() - steps) % m_extents.size()];
    found = markBelow(extent, extent.marks.size());
  }
  return found;
}

std::size_t QRTHeapExtents::indexOf(const Header* at) const {
  const auto above = std::upper_bound(m_extents.begin(), m_extents.end(), at,
                                      [](const Header* p, const Extent& e) { return p < e.begin; });
  if (above == m_extents.begin() || at >= std::prev(above)->end) {
    return kNowhere;
  }
  return static_cast<std::size_t>(above - m_extents.begin()) - 1;
}
