#include "QRTHeapMap.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <utility>

namespace {

constexpr std::size_t kBits = 64;

std::uint64_t bitOf(std::size_t index) {
  return std::uint64_t{1} << (index % kBits);
}

template <class Bound>
void raise(Bound& bound, Bound to) {
  bound = std::max(bound, to);
}

/// The first of the bounds from `from` up to `to` that is not below `bound`, or `to`.
std::size_t firstNotBelow(const std::uint8_t* bounds, std::size_t from, std::size_t to,
                          std::uint8_t bound) {
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

/// Makes room for more elements, by half as many again at least: exactly as many as needed would
/// copy all elements at every call.
template <class Vector>
void reserveIn(Vector& elements, std::size_t more) {
  if (elements.capacity() - elements.size() < more) {
    elements.reserve(elements.size() + std::max(more, elements.size() / 2));
  }
}

}  // namespace

/// The steps of an entry:
///   1. all memory that it needs, so that nothing is changed when there is none;
///   2. the regions that are new, and the span in each. A region that other memory of the pool lies
///      in already gets one span more.
/// A new region says that no free block is in it, which is so until the caller puts the memory on
/// the free list and calls noteFree. Regions move up in m_regions, so the one looked up last is
/// forgotten; the span looked up last is not, as spans are only ever added.
void QRTHeapMap::add(Header* begin, Header* end) {
  // Step 1
  const std::uintptr_t first = baseOf(begin);
  const std::size_t count = (baseOf(end - 1) - first) / kRegionBytes + 1;
  std::vector<Entry> made;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uintptr_t base = first + i * kRegionBytes;
    const std::size_t index = indexOf(base);
    if (index == kNowhere) {
      made.push_back({base, std::make_unique<Region>()});
      made.back().region->firsts.fill(kNone);
      made.back().region->spans.reserve(1);
    } else {
      reserveIn(m_regions[index].region->spans, 1);
    }
  }
  reserveIn(m_regions, made.size());
  reserveIn(m_bounds, made.size());
  // Step 2
  for (Entry& entry : made) {
    const auto index = static_cast<std::ptrdiff_t>(countUpTo(entry.base));
    m_regions.insert(m_regions.begin() + index, std::move(entry));
    m_bounds.insert(m_bounds.begin() + index, 0);
  }
  m_lastBase = kNoBase;
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<Span>& spans = m_regions[indexOf(first + i * kRegionBytes)].region->spans;
    const Span span{
        static_cast<std::uint16_t>(i == 0 ? unitOf(begin) : 0),
        static_cast<std::uint16_t>(i + 1 == count ? unitOf(end - 1) + 1 : kRegionUnits)};
    spans.insert(std::upper_bound(spans.begin(), spans.end(), span,
                                  [](Span a, Span b) { return a.begin < b.begin; }),
                 span);
  }
}

/// unitsFrom ends with a region at the latest, so a block takes a step for each region it lies in.
bool QRTHeapMap::contains(const Header* at, std::size_t units) const {
  for (;;) {
    const std::size_t room = unitsFrom(at);
    if (room >= units || room == 0) {
      return room != 0;
    }
    at += room;
    units -= room;
  }
}

/// The steps, each from the nearest on:
///   1. the first block of the address's own card, if it is below the address;
///   2. the cards below in the same region;
///   3. the regions below, then from the highest down to its own once more: there only cards from
///      its own up are left, and none of them is below the address.
/// The result is a place to walk the list from: other free blocks may lie between it and the
/// address, all of them in the result's card.
QRTHeapMap::Header* QRTHeapMap::freeBelow(const Header* place) const {
  // Step 1
  const std::size_t own = indexOf(baseOf(place));
  const Region& region = *m_regions[own].region;
  std::size_t card = cardOf(place);
  if (region.firsts[card] < inCard(place)) {
    return firstIn(own, card);
  }
  // Step 2
  card = filledBelow(region, card);
  // Step 3
  std::size_t index = own;
  if (card == kNowhere) {
    do {
      index = (index != 0 ? index : m_regions.size()) - 1;
    } while (m_bounds[index] == 0 && index != own);
    card = filledBelow(*m_regions[index].region, kCards);
  }
  return card != kNowhere ? firstIn(index, card) : nullptr;
}

/// The steps of a search:
///   1. the rest of the card that `after` lies in, then of its region;
///   2. the regions above;
///   3. the regions from the lowest up to its own. That tries the cards of step 1 once more;
///      those that were searched whole have a lowered bound by then.
/// Step 1 lowers no bound of `after`'s own card and region, as it sees a part of each. In every
/// card the walk ends where the list goes on below or beyond it, which `before < p` and `p < end`
/// find.
QRTHeapMap::Header* QRTHeapMap::find(Header* after, unsigned units, Header*& before) {
  const std::size_t own = indexOf(baseOf(after));
  const std::size_t card = cardOf(after);
  // Step 1
  if (m_regions[own].region->bounds[card] >= sizeClass(units)) {
    const Header* const end = endOf(own, card);
    before = after;
    for (Header* p = after->next(); before < p && p < end; p = p->next()) {
      if (p->units() >= units) {
        return p;
      }
      before = p;
    }
  }
  Header* found = findInRegion(own, card + 1, units, before);
  // Step 2
  if (found == nullptr) {
    found = findInRegions(own + 1, m_regions.size(), units, before);
  }
  // Step 3
  if (found == nullptr) {
    found = findInRegions(0, own + 1, units, before);
  }
  return found;
}

std::vector<QRTHeapMap::Extent> QRTHeapMap::extents() const {
  std::vector<Extent> result;
  for (const Entry& entry : m_regions) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): regions are cut by address.
    auto* const start = reinterpret_cast<Header*>(entry.base);
    for (const Span span : entry.region->spans) {
      if (!result.empty() && result.back().end == start + span.begin) {
        result.back().end = start + span.end;
      } else {
        result.push_back({start + span.begin, start + span.end});
      }
    }
  }
  return result;
}

/// Finds the first free block of a card that is large enough; lowers the card's bound when there is
/// none. The sentinel may lie in the card's addresses as well, where it does no harm. Only for a
/// card that is filled: no search enters others, whose bound of 0 is below every size class. It has
/// a block of one unit at least, so its bound stays above 0.
QRTHeapMap::Header* QRTHeapMap::findInCard(std::size_t index, std::size_t card, unsigned units,
                                           Header*& before) {
  const Header* const end = endOf(index, card);
  unsigned largest = 0;
  before = nullptr;
  for (Header* p = firstIn(index, card); before < p && p < end; p = p->next()) {
    if (p->units() >= units) {
      return p;
    }
    raise(largest, p->units());
    before = p;
  }
  m_regions[index].region->bounds[card] = sizeClass(largest);
  return nullptr;
}

/// Searches the cards of a region from `from` on; lowers the region's bound when it went through
/// all of them in vain.
QRTHeapMap::Header* QRTHeapMap::findInRegion(std::size_t index, std::size_t from, unsigned units,
                                             Header*& before) {
  const std::uint8_t wanted = sizeClass(units);
  const std::array<std::uint8_t, kCards>& bounds = m_regions[index].region->bounds;
  for (std::size_t card = from; card < kCards; ++card) {
    card = firstNotBelow(bounds.data(), card, kCards, wanted);
    if (card == kCards) {
      break;
    }
    Header* const found = findInCard(index, card, units, before);
    if (found != nullptr) {
      return found;
    }
  }
  if (from == 0) {
    m_bounds[index] = *std::max_element(bounds.begin(), bounds.end());
  }
  return nullptr;
}

/// Searches the regions from `from` up to `to`.
QRTHeapMap::Header* QRTHeapMap::findInRegions(std::size_t from, std::size_t to, unsigned units,
                                              Header*& before) {
  const std::uint8_t wanted = sizeClass(units);
  for (std::size_t index = from; index < to; ++index) {
    index = firstNotBelow(m_bounds.data(), index, to, wanted);
    if (index == to) {
      break;
    }
    Header* const found = findInRegion(index, 0, units, before);
    if (found != nullptr) {
      return found;
    }
  }
  return nullptr;
}

/// The highest card below `end` in which a free block starts, or kNowhere. For an `end` of kCards
/// there is no word with bits above it to be masked: the search begins with the last word.
std::size_t QRTHeapMap::filledBelow(const Region& region, std::size_t end) {
  std::size_t word = end / kBits;
  std::uint64_t bits = word < region.filled.size() ? region.filled[word] & (bitOf(end) - 1) : 0;
  while (bits == 0) {
    if (word-- == 0) {
      return kNowhere;
    }
    bits = region.filled[word];
  }
  return word * kBits + static_cast<std::size_t>(std::bit_width(bits)) - 1;
}

/// The number of regions that begin at or below an address.
std::size_t QRTHeapMap::countUpTo(std::uintptr_t base) const {
  const auto above =
      std::upper_bound(m_regions.begin(), m_regions.end(), base,
                       [](std::uintptr_t b, const Entry& entry) { return b < entry.base; });
  return static_cast<std::size_t>(above - m_regions.begin());
}

/// Looks a region up by its address and keeps it in m_last, m_lastBase and m_lastRegion.
/// @return false when there is none at this address
bool QRTHeapMap::cacheRegionAt(std::uintptr_t base) const {
  // Where the memory has no hole in between, it is as many regions away as it is in bytes. This
  // and the 0 - 1 below may wrap around; both are tested before use, whatever m_lastBase is.
  std::size_t index = m_last + base / kRegionBytes - m_lastBase / kRegionBytes;
  if (index >= m_regions.size() || m_regions[index].base != base) {
    index = countUpTo(base) - 1;
    if (index >= m_regions.size() || m_regions[index].base != base) {
      return false;
    }
  }
  m_last = index;
  m_lastBase = base;
  m_lastRegion = m_regions[m_last].region.get();
  return true;
}

/// Looks up the span that an address lies in and keeps it in m_lastBegin and m_lastEnd.
/// @return false when the address is not the pool's
bool QRTHeapMap::cacheSpanOf(const Header* at) const {
  const std::size_t index = indexOf(baseOf(at));
  if (index == kNowhere) {
    return false;
  }
  const std::size_t unit = unitOf(at);
  const std::vector<Span>& spans = m_lastRegion->spans;
  const auto above = std::upper_bound(spans.begin(), spans.end(), unit,
                                      [](std::size_t u, Span span) { return u < span.begin; });
  if (above == spans.begin() || unit >= std::prev(above)->end) {
    return false;
  }
  m_lastBegin = startOf(index, 0) + std::prev(above)->begin;
  m_lastEnd = startOf(index, 0) + std::prev(above)->end;
  return true;
}

/// Records that the first free block of a card left the free list. The next one is the first now,
/// unless it lies outside of the card: then no free block starts in the card any more. The region's
/// bound falls with its last filled card; until then it may be too high, which is allowed.
void QRTHeapMap::replaceFirst(std::size_t index, std::size_t card, const Header* block,
                              const Header* next) {
  Region& region = *m_regions[index].region;
  if (next > block && next < endOf(index, card)) {
    region.firsts[card] = inCard(next);
    return;
  }
  region.firsts[card] = kNone;
  region.bounds[card] = 0;
  region.filled[card / kBits] &= ~bitOf(card);
  if (filledBelow(region, kCards) == kNowhere) {
    m_bounds[index] = 0;
  }
}
