#ifndef QRTHEAPEXTENTS_H
#define QRTHEAPEXTENTS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "QRTMemoryPool.h"

/// The heap memory of a QRTMemoryPool by address, the places of the free blocks in it, and
/// bounds that tell where a search need not look.
///
/// It tells whether an address is the pool's at all, which no header can, and spares `free` the
/// walk around the free list: one bit for every unit says whether a free block starts there, so
/// that the neighbours of a block are found without touching any other. The walk from the rover
/// would pass every free block in between: with 10,000 blocks freed in random order an operation
/// took 90 times as long (suite_allocators).
///
/// For every stretch of 4 KiB it also keeps a bound: no free block that starts there is larger. A
/// search passes the stretches whose bound is too low without touching their blocks: with 100,000
/// blocks of 8 to 256 bytes replaced at random an operation took eight times as long without
/// (suite_allocators). A bound is raised when a block grows, and lowered when a search went through
/// the whole stretch.
///
/// Costs 1/60 of the memory it describes.
class QRTHeapExtents {
 public:
  using Header = QRTMemoryPool::memheader;

  /// Heap memory without a hole: one heap block, or several that touch.
  struct Extent {
    Header* begin;
    Header* end;
    std::vector<std::uint64_t> starts;  // one bit for each unit: a free block starts there
    std::vector<std::uint64_t> filled;  // one bit for each word of starts that is not zero
    std::vector<std::uint16_t> bounds;  // for each stretch in units; kNoBound and above as kNoBound
  };

  static constexpr unsigned kStretch = 512;       // units in a stretch: 4 KiB
  static constexpr unsigned kNoBound = kStretch;  // a bound that says nothing

  /// A way around all stretches, from one on upwards, through the lowest, back to it and including
  /// it.
  struct Tour {
    std::size_t extent;   // of the stretch
    std::size_t stretch;  // its number in the extent
    std::size_t left;     // how many are to come
  };

  /// Enters the memory of a new heap block.
  /// @throws std::bad_alloc  there is no memory for the bits; nothing is changed
  void add(Header* begin, Header* end);

  /// @return units from an address to the end of the extent it lies in; 0 when it lies in none or
  ///         is not a place for a header
  std::size_t unitsFrom(const Header* at) const {
    if (!isInLast(at) && indexOf(at) == kNowhere) {
      return 0;
    }
    return reinterpret_cast<std::uintptr_t>(at) % sizeof(Header) == 0
               ? static_cast<std::size_t>(m_lastEnd - at)
               : 0;
  }

  /// Notes that a block came on the free list.
  /// @param units  its size
  void noteFree(Header* block, unsigned units);

  /// Notes that a block on the free list grew to `units` units.
  void noteGrown(const Header* block, unsigned units);

  /// Notes that a block left the free list.
  void noteTaken(const Header* block);

  /// @return the highest free block below a place in an extent, or the highest of all when there is
  ///         none: behind it on the list comes the lowest; null when there is no free block
  Header* freeBelow(const Header* place) const;

  /// @return the tour that begins at the stretch of a block
  Tour tourFrom(const Header* block) const;

  /// Whether the stretch a tour has come to may have a free block of `units` units.
  bool mayHave(const Tour& tour, unsigned units) const;

  /// Moves on to the next stretch that may have a free block of `units` units.
  /// @return false when there is none
  bool moveOn(Tour& tour, unsigned units) const;

  /// First place of the stretch a tour has come to.
  Header* beginOf(const Tour& tour) const {
    return m_extents[tour.extent].begin + tour.stretch * kStretch;
  }

  /// Tells which of 64 units of the stretch a tour has come to are starts of free blocks.
  /// @param first  the first of them, a multiple of 64 below kStretch
  /// @return one bit for each, the lowest for the first
  std::uint64_t startsIn(const Tour& tour, unsigned first) const {
    const std::vector<std::uint64_t>& starts = m_extents[tour.extent].starts;
    const std::size_t word = (tour.stretch * kStretch + first) / 64;
    return word < starts.size() ? starts[word] : 0;
  }

  /// Notes the size of the largest free block in a stretch.
  void setBound(const Tour& tour, unsigned units);

  /// All extents in ascending order.
  const std::vector<Extent>& all() const { return m_extents; }

 private:
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  bool isInLast(const Header* at) const { return m_lastBegin <= at && at < m_lastEnd; }
  std::size_t indexOf(const Header* at) const;

  std::vector<Extent> m_extents;  // ascending by address
  std::size_t m_stretches = 0;    // in all of them

  // The extent that was looked up last, which is mostly the one that is looked up next.
  mutable std::size_t m_last = 0;
  mutable const Header* m_lastBegin = nullptr;
  mutable const Header* m_lastEnd = nullptr;
};

#endif  // QRTHEAPEXTENTS_H
