#ifndef QRTHEAPMAP_H
#define QRTHEAPMAP_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "QRTMemoryPool.h"

/// The heap memory of a QRTMemoryPool by address: what is the pool's at all, which no header can
/// tell, and about where the free blocks are and how large they are at most. It spares `free` and
/// `alloc` the walk around the free list, which is the only record of the free blocks themselves.
///
/// The address space is cut into regions of 128 KiB and these into cards of 1 KiB:
///
///     region   [ card | card | ... 128 cards ]    there is one where the pool has memory
///     spans    which units of the region are the pool's
///     firsts   for each card the unit of the first free block that starts in it
///     bounds   for each card a size class: no free block that starts in it is above
///     filled   one bit for each card: a free block starts in it
///
/// A bound is raised when a block is freed or grows, and lowered when a search went through the
/// whole card. Regions have a bound as well, which is 0 where no free block starts, in an array of
/// its own, so that a search through a large pool reads one byte for 128 KiB.
///
/// Invariants, with "the first of a card" for the first free block that starts in it:
///
///   - filled has a card's bit exactly when firsts names its first, and firsts is kNone otherwise;
///   - no free block is above the bound of its card, no bound of a card above that of its region;
///   - a region's bound is 0 exactly when none of its cards is filled;
///   - the list ascends by address within a card, so that from its first on it passes all free
///     blocks of the card before it leaves it;
///   - m_last, m_lastBase and m_lastRegion name one region, or m_lastBase is kNoBase.
///
/// All operations but `add` and `extents` need no memory. Takes 0.3 % of the memory it describes
/// and at least 0.4 KiB.
class QRTHeapMap {
 public:
  using Header = QRTMemoryPool::memheader;

  /// Memory of the pool without a hole: one heap block, or several that touch.
  struct Extent {
    Header* begin;
    Header* end;
  };

  /// Enters the memory of a new heap block. Cost: O(regions), a few bytes for each.
  /// @throws std::bad_alloc  there is no memory for a region; nothing is changed
  void add(Header* begin, Header* end);

  /// @return the units from an address on that are the pool's without a hole, as far as its region
  ///         goes; 0 when it is not the pool's or not a place for a header
  std::size_t unitsFrom(const Header* at) const {
    if ((at < m_lastBegin || m_lastEnd <= at) && !cacheSpanOf(at)) {
      return 0;
    }
    return reinterpret_cast<std::uintptr_t>(at) % sizeof(Header) == 0
               ? static_cast<std::size_t>(m_lastEnd - at)
               : 0;
  }

  /// Whether so many units from an address on are the pool's without a hole.
  bool contains(const Header* at, std::size_t units) const;

  /// Notes that a block came on the free list or grew there.
  /// @param units  its size
  void noteFree(const Header* block, unsigned units) {
    const std::size_t index = indexOf(baseOf(block));
    Region& region = *m_lastRegion;
    const std::size_t card = cardOf(block);
    if (inCard(block) < region.firsts[card]) {
      region.firsts[card] = inCard(block);
      region.filled[card / 64] |= std::uint64_t{1} << card % 64;
    }
    const std::uint8_t size = sizeClass(units);
    if (region.bounds[card] < size) {
      region.bounds[card] = size;
      m_bounds[index] = std::max(m_bounds[index], size);
    }
  }

  /// Notes that a block left the free list.
  /// @param next  the block after it on the list, or after the sentinel when that follows it
  void noteTaken(const Header* block, const Header* next) {
    const std::size_t index = indexOf(baseOf(block));
    if (m_lastRegion->firsts[cardOf(block)] == inCard(block)) {
      replaceFirst(index, cardOf(block), block, next);
    }
  }

  /// Finds where to enter the free list for an address in the pool.
  /// @return the first free block of the address's own card when that is below it, else of the
  ///         nearest filled card below, or of the highest one when there is none below; null when
  ///         there is no free block
  Header* freeBelow(const Header* place) const;

  /// Finds the first free block that is large enough, going upwards from a free block, through the
  /// lowest and around to it.
  /// @param after   the free block to start from, which is tried last
  /// @param units   size wanted, 1 and above
  /// @param before  receives the block in front of the result on the free list, or null when the
  ///                search did not pass it
  /// @return null when there is none
  Header* find(Header* after, unsigned units, Header*& before);

  /// All memory in ascending order, none of it touching another.
  std::vector<Extent> extents() const;

  /// The size class of a block: a byte that ascends with sizes, is exact below 16 units and an
  /// eighth wide above.
  static std::uint8_t sizeClass(unsigned units) {
    const unsigned shift = classShift(units);
    return static_cast<std::uint8_t>(8 * shift + (units >> shift));
  }

  /// Whether a block stays in its size class when it grows from `units` to `grown`.
  static bool isSameClass(unsigned units, unsigned grown) {
    return (units ^ grown) >> classShift(units) == 0;
  }

 private:
  static constexpr std::size_t kCardUnits = 128;
  static constexpr std::size_t kCards = 128;
  static constexpr std::size_t kRegionUnits = kCards * kCardUnits;
  static constexpr std::size_t kRegionBytes = kRegionUnits * sizeof(Header);
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);
  static constexpr std::uintptr_t kNoBase = 1;  // no region begins there
  static constexpr std::uint8_t kNone = 0xFF;   // no free block starts in the card

  /// A part of a region that is the pool's, in units of the region.
  struct Span {
    std::uint16_t begin;
    std::uint16_t end;
  };

  struct Region {
    std::array<std::uint8_t, kCards> firsts;
    std::array<std::uint8_t, kCards> bounds;
    std::array<std::uint64_t, kCards / 64> filled;
    std::vector<Span> spans;  // ascending
  };

  struct Entry {
    std::uintptr_t base;  // address of the region
    std::unique_ptr<Region> region;
  };

  static unsigned classShift(unsigned units) {
    return static_cast<unsigned>(std::bit_width(units | 8U)) - 4;
  }
  static std::uintptr_t baseOf(const Header* at) {
    return reinterpret_cast<std::uintptr_t>(at) / kRegionBytes * kRegionBytes;
  }
  static std::size_t unitOf(const Header* at) {
    return reinterpret_cast<std::uintptr_t>(at) % kRegionBytes / sizeof(Header);
  }
  static std::size_t cardOf(const Header* at) { return unitOf(at) / kCardUnits; }
  static std::uint8_t inCard(const Header* at) {
    return static_cast<std::uint8_t>(unitOf(at) % kCardUnits);
  }
  Header* startOf(std::size_t index, std::size_t card) const {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): regions are cut by address.
    return reinterpret_cast<Header*>(m_regions[index].base) + card * kCardUnits;
  }
  Header* endOf(std::size_t index, std::size_t card) const {
    return startOf(index, card) + kCardUnits;
  }
  Header* firstIn(std::size_t index, std::size_t card) const {
    return startOf(index, card) + m_regions[index].region->firsts[card];
  }

  Header* findInCard(std::size_t index, std::size_t card, unsigned units, Header*& before);
  Header* findInRegion(std::size_t index, std::size_t from, unsigned units, Header*& before);
  Header* findInRegions(std::size_t from, std::size_t to, unsigned units, Header*& before);
  static std::size_t filledBelow(const Region& region, std::size_t end);
  std::size_t countUpTo(std::uintptr_t base) const;
  void replaceFirst(std::size_t index, std::size_t card, const Header* block, const Header* next);
  bool cacheSpanOf(const Header* at) const;
  bool cacheRegionAt(std::uintptr_t base) const;
  /// The number of the region that begins at an address, or kNowhere; m_lastRegion is that region.
  std::size_t indexOf(std::uintptr_t base) const {
    return base == m_lastBase || cacheRegionAt(base) ? m_last : kNowhere;
  }

  std::vector<Entry> m_regions;        // ascending by address
  std::vector<std::uint8_t> m_bounds;  // for each region the highest of its cards' bounds

  // The region and the span looked up last, which most calls ask for again.
  mutable std::uintptr_t m_lastBase = kNoBase;
  mutable Region* m_lastRegion = nullptr;
  mutable std::size_t m_last = 0;
  mutable const Header* m_lastBegin = nullptr;
  mutable const Header* m_lastEnd = nullptr;
};

#endif  // QRTHEAPMAP_H
