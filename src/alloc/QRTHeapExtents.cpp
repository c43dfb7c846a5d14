#include "QRTHeapExtents.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

namespace {

using Header = QRTHeapExtents::Header;
using Extent = QRTHeapExtents::Extent;

constexpr std::size_t kStretch = QRTHeapExtents::kStretch;
constexpr std::size_t kBits = 64;
constexpr std::size_t kNoBit = static_cast<std::size_t>(-1);

std::size_t stretchOf(const Extent& extent, const Header* at) {
  return static_cast<std::size_t>(at - extent.begin) / kStretch;
}

std::size_t unitOf(const Extent& extent, const Header* at) {
  return static_cast<std::size_t>(at - extent.begin);
}

std::uint64_t bitOf(std::size_t index) {
  return std::uint64_t{1} << (index % kBits);
}

std::size_t wordsFor(std::size_t bits) {
  return (bits + kBits - 1) / kBits;
}

void setStart(Extent& extent, const Header* block) {
  const std::size_t unit = unitOf(extent, block);
  extent.starts[unit / kBits] |= bitOf(unit);
  extent.filled[unit / kBits / kBits] |= bitOf(unit / kBits);
}

void clearStart(Extent& extent, const Header* block) {
  const std::size_t unit = unitOf(extent, block);
  std::uint64_t& word = extent.starts[unit / kBits];
  word &= ~bitOf(unit);
  if (word == 0) {
    extent.filled[unit / kBits / kBits] &= ~bitOf(unit / kBits);
  }
}

/// The number of the highest bit below `end` in a row of bits, or kNoBit.
std::size_t highestBelow(const std::vector<std::uint64_t>& words, std::size_t end) {
  std::size_t word = end / kBits;
  std::uint64_t bits = word < words.size() ? words[word] & (bitOf(end) - 1) : 0;
  while (bits == 0) {
    if (word-- == 0) {
      return kNoBit;
    }
    bits = words[word];
  }
  return word * kBits + static_cast<std::size_t>(std::bit_width(bits)) - 1;
}

/// The highest free block that starts below a unit of an extent, or null.
Header* startBelow(const Extent& extent, std::size_t unit) {
  const std::size_t own = unit / kBits;
  std::uint64_t bits = own < extent.starts.size() ? extent.starts[own] & (bitOf(unit) - 1) : 0;
  std::size_t word = own;
  if (bits == 0) {
    word = highestBelow(extent.filled, own);
    if (word == kNoBit) {
      return nullptr;
    }
    bits = extent.starts[word];
  }
  return extent.begin + word * kBits + static_cast<std::size_t>(std::bit_width(bits)) - 1;
}

Extent makeExtent(Header* begin, Header* end) {
  const auto units = static_cast<std::size_t>(end - begin);
  return {begin, end, std::vector<std::uint64_t>(wordsFor(units)),
          std::vector<std::uint64_t>(wordsFor(wordsFor(units))),
          std::vector<std::uint16_t>((units + kStretch - 1) / kStretch)};
}

std::uint16_t boundFor(unsigned units) {
  return static_cast<std::uint16_t>(std::min(units, QRTHeapExtents::kNoBound));
}

void raise(std::uint16_t& bound, std::uint16_t to) {
  bound = std::max(bound, to);
}

/// Takes over what is known of an extent that a larger one contains. Its stretches lie differently
/// there, so that a bound may count for two.
void takeOver(Extent& joined, const Extent& part) {
  const Header* block = startBelow(part, static_cast<std::size_t>(part.end - part.begin));
  for (; block != nullptr; block = startBelow(part, unitOf(part, block))) {
    setStart(joined, block);
  }
  for (std::size_t i = 0; i < part.bounds.size(); ++i) {
    Header* const first = part.begin + i * kStretch;
    Header* const last = std::min(first + kStretch, part.end) - 1;
    raise(joined.bounds[stretchOf(joined, first)], part.bounds[i]);
    raise(joined.bounds[stretchOf(joined, last)], part.bounds[i]);
  }
}

/// The first of the bounds from `from` up to `to` that is not below `bound`, or `to`.
std::size_t firstNotBelow(const std::uint16_t* bounds, std::size_t from, std::size_t to,
                          std::uint16_t bound) {
  constexpr std::size_t kAtOnce = 32;  // a compiler makes a few instructions of so many
  for (; to - from >= kAtOnce; from += kAtOnce) {
    bool any = false;
    for (std::size_t i = 0; i < kAtOnce; ++i) {
      any |= bounds[from + i] >= bound;
    }
    if (any) {
      break;
    }
  }
  while (from < to && bounds[from] < bound) {
    ++from;
  }
  return from;
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
  std::size_t before = 0;
  for (auto extent = first; extent != last; ++extent) {
    takeOver(joined, *extent);
    before += extent->bounds.size();
  }
  const std::size_t stretches = joined.bounds.size();
  if (first == last) {
    m_extents.insert(above, std::move(joined));
  } else {
    *first = std::move(joined);
    m_extents.erase(std::next(first), last);
  }
  m_stretches += stretches - before;
  m_lastBegin = m_lastEnd = nullptr;
}

void QRTHeapExtents::noteFree(Header* block, unsigned units) {
  const std::size_t index = indexOf(block);
  if (index != kNowhere) {
    Extent& extent = m_extents[index];
    setStart(extent, block);
    raise(extent.bounds[stretchOf(extent, block)], boundFor(units));
  }
}

void QRTHeapExtents::noteGrown(const Header* block, unsigned units) {
  const std::size_t index = indexOf(block);
  if (index != kNowhere) {
    Extent& extent = m_extents[index];
    raise(extent.bounds[stretchOf(extent, block)], boundFor(units));
  }
}

void QRTHeapExtents::noteTaken(const Header* block) {
  const std::size_t index = indexOf(block);
  if (index != kNowhere) {
    clearStart(m_extents[index], block);
  }
}

QRTHeapExtents::Header* QRTHeapExtents::freeBelow(const Header* place) const {
  const std::size_t own = indexOf(place);
  if (own == kNowhere) {
    return nullptr;
  }
  Header* found = startBelow(m_extents[own], unitOf(m_extents[own], place));
  for (std::size_t steps = 1; found == nullptr && steps <= m_extents.size(); ++steps) {
    const Extent& lower = m_extents[(own + m_extents.size() - steps) % m_extents.size()];
    found = startBelow(lower, static_cast<std::size_t>(lower.end - lower.begin));
  }
  return found;
}

QRTHeapExtents::Tour QRTHeapExtents::tourFrom(const Header* block) const {
  const std::size_t own = indexOf(block);
  return {own, stretchOf(m_extents[own], block), m_stretches};
}

bool QRTHeapExtents::mayHave(const Tour& tour, unsigned units) const {
  return m_extents[tour.extent].bounds[tour.stretch] >= boundFor(units);
}

bool QRTHeapExtents::moveOn(Tour& tour, unsigned units) const {
  const std::uint16_t bound = boundFor(units);
  std::size_t from = tour.stretch + 1;
  while (tour.left != 0) {
    const std::vector<std::uint16_t>& bounds = m_extents[tour.extent].bounds;
    const std::size_t to = std::min(bounds.size(), from + tour.left);
    const std::size_t found = firstNotBelow(bounds.data(), from, to, bound);
    tour.left -= found - from;
    if (found != to) {
      tour.stretch = found;
      --tour.left;
      return true;
    }
    tour.extent = (tour.extent + 1) % m_extents.size();
    from = 0;
  }
  return false;
}

void QRTHeapExtents::setBound(const Tour& tour, unsigned units) {
  m_extents[tour.extent].bounds[tour.stretch] = boundFor(units);
}

std::size_t QRTHeapExtents::indexOf(const Header* at) const {
  if (!isInLast(at)) {
    const auto above =
        std::upper_bound(m_extents.begin(), m_extents.end(), at,
                         [](const Header* p, const Extent& e) { return p < e.begin; });
    if (above == m_extents.begin() || at >= std::prev(above)->end) {
      return kNowhere;
    }
    m_last = static_cast<std::size_t>(above - m_extents.begin()) - 1;
    m_lastBegin = m_extents[m_last].begin;
    m_lastEnd = m_extents[m_last].end;
  }
  return m_last;
}
