// The free list is circular and ascends by address but for one place, where the highest block links
// to the lowest. The sentinel m_base is on it by its own address, wherever the pool lies:
//
//     lowest -> ... -> m_base (no units) -> ... -> highest -> lowest
//
// Between two operations
//
//   - no free block touches another: neighbours are merged when they come on the list;
//   - m_rover is null or on the list: what takes a block off it sets m_rover to the one in front;
//   - the QRTHeapMap knows where free blocks start. The list is the record, the map an index to it:
//     whatever the map answers is a block of the list.

#include "QRTMemoryPool.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>

#include "QRTCore/QRTAssert.h"
#include "QRTHeapMap.h"
#include "checkers/QRTMemoryChecker.h"

namespace {

using Header = QRTMemoryPool::memheader;

constexpr unsigned kUnit = sizeof(Header);
constexpr unsigned kListSteps = 2;  // free blocks to try before the map; most searches end there
constexpr unsigned kDefaultIncrement = 131072;
constexpr unsigned kMostBytes = std::numeric_limits<unsigned>::max();

/// Units of a block with `bytes` usable bytes, header included.
unsigned unitsFor(unsigned bytes) {
  return static_cast<unsigned>((std::uint64_t{bytes} + kUnit - 1) / kUnit + 1);
}

unsigned addClamped(unsigned a, unsigned b) {
  return a > kMostBytes - b ? kMostBytes : a + b;
}

/// Whether a block belongs between a free block and its successor: between their addresses, or at
/// the wrap point, where the highest free block links to the lowest, beyond either.
bool isPlace(const Header* p, const Header* block) {
  const Header* const next = p->next();
  return p < next ? p < block && block < next : p < block || block < next;
}

/// Whether a block touches no unit of the free block in front of its place and of the one after it.
/// A block that was freed before and merged lies inside one of them.
bool isApart(const Header* p, const Header* block, unsigned units) {
  const Header* const next = p->next();
  return (p > block || p + p->units() <= block) && (next < block || block + units <= next);
}

}  // namespace

QRTMemoryPool::QRTMemoryPool(unsigned maxBytes, unsigned increment)
    : m_remaining(maxBytes),
      m_base(),
      m_rover(nullptr),
      m_increment(increment != 0 ? increment : kDefaultIncrement),
      m_watched(QRTMemoryChecker::isActive()),
      m_heap(nullptr) {
  if (m_remaining == 0) {
    m_remaining = addClamped(m_increment, m_increment);
  }
  try {
    m_blocks.reserve(m_remaining / m_increment + std::size_t{10});
  } catch (const std::exception&) {
    // So many heap blocks could not be had either: the list grows with them.
  }
  m_heap = new QRTHeapMap;
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, kUnit);
  }
}

QRTMemoryPool::~QRTMemoryPool() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
    try {
      for (const QRTHeapMap::Extent& extent : m_heap->extents()) {
        QRTMemoryChecker::open(extent.begin,
                               static_cast<std::size_t>(extent.end - extent.begin) * kUnit);
      }
    } catch (const std::exception&) {
      // The memory stays closed to the checker; the heap opens it when it hands it out again.
    }
  }
  for (void* block : m_blocks) {
    std::free(block);
  }
  delete m_heap;
}

void* QRTMemoryPool::alloc(unsigned size) {
  const unsigned units = unitsFor(size);
  if (m_watched != 0) {
    const QRTMemoryChecker::Pass pass(true);
    void* const memBlock = allocUnits(units);
    if (memBlock != nullptr) {
      QRTMemoryChecker::handedOut(this, memBlock, std::size_t{units - 1} * kUnit);
    }
    return memBlock;
  }
  return allocUnits(units);
}

/// alloc by units: searches, and grows once when the search finds nothing. After a growth the
/// second search cannot fail, as the new block alone is large enough.
inline void* QRTMemoryPool::allocUnits(unsigned units) {
  if (m_rover == nullptr) {
    m_base.setFree(&m_base, 0);
    m_rover = &m_base;
  }
  for (;;) {
    Header* const prev = find(units);
    if (prev != nullptr) {
      return take(prev, units);
    }
    if (moreCore(units) == nullptr) {
      return nullptr;
    }
  }
}

/// Finds the first block that is large enough, from the one after the rover on. The sentinel has no
/// units, so that it is never large enough and needs no test of its own.
/// @return the block in front of it on the list; null when there is none
inline QRTMemoryPool::memheader* QRTMemoryPool::find(unsigned units) {
  Header* prev = m_rover;
  for (unsigned step = 0; step < kListSteps; ++step) {
    Header* const p = prev->next();
    if (p->units() >= units) {
      return prev;
    }
    if (p == m_rover) {
      return nullptr;
    }
    prev = p;
  }
  return findInMap(prev, units);
}

/// find from the block after `prev` on, by the map of the heap. The map knows the order of
/// addresses, which is the order of the list but for the sentinel:
///   1. step over the sentinel, which the map does not know;
///   2. search the map;
///   3. if the map came to the block from elsewhere than the one in front, walk there from the
///      nearest filled card below: past the free blocks of one card, and the sentinel, at the most.
QRTMemoryPool::memheader* QRTMemoryPool::findInMap(memheader* prev, unsigned units) {
  // Step 1
  if (prev == &m_base) {
    prev = prev->next();
    if (prev->units() >= units) {
      return &m_base;
    }
  }
  // Step 2
  Header* before = nullptr;
  Header* const found = m_heap->find(prev, units, before);
  // Step 3
  if (found != nullptr && before == nullptr) {
    before = m_heap->freeBelow(found);
    while (before->next() != found) {
      before = before->next();
    }
  }
  return found != nullptr ? before : nullptr;
}

/// Takes `units` units from the block after `prev`, which has as many. A free block that is left is
/// smaller than the map's bound says, which is allowed; so only one that is used up is noted.
inline void* QRTMemoryPool::take(memheader* prev, unsigned units) {
  Header* const p = prev->next();
  const unsigned have = p->units();
  Header* block = p;
  if (have == units) {
    prev->setNext(p->next());
    m_heap->noteTaken(p, pastSentinel(p->next()));
  } else {
    // Cut from the high end: the free block stays where it is on the list.
    p->setUnits(have - units);
    block = p + (have - units);
  }
  block->setHandedOut(units);
  m_rover = prev;
  return block + 1;
}

/// Obtains a heap block that can hold a request and puts it on the free list:
///   1. its size: as many growth steps as the request takes. The last growth may go beyond the
///      allowance, as a step is rounded up and a request may need several;
///   2. the memory;
///   3. its entries in m_blocks, to be released, and in the map; both or neither;
///   4. the charge and the list. Nothing fails from here on.
/// @return the rover, after which the search goes on; null, with nothing changed, when the
///         allowance is spent or the heap gives nothing
QRTMemoryPool::memheader* QRTMemoryPool::moreCore(unsigned units) {
  // Step 1
  if (m_remaining == 0) {
    return nullptr;
  }
  const unsigned stepUnits = unitsFor(std::min(m_remaining, m_increment));
  const std::uint64_t count = (std::uint64_t{units} + stepUnits - 1) / stepUnits * stepUnits;
  const std::uint64_t bytes = count * kUnit;
  if (bytes > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
    return nullptr;
  }
  // Step 2
  Header* const block = static_cast<Header*>(std::malloc(static_cast<std::size_t>(bytes)));
  if (block == nullptr) {
    return nullptr;
  }
  // Step 3
  const std::size_t known = m_blocks.size();
  try {
    m_blocks.push_back(block);
    m_heap->add(block, block + count);
  } catch (const std::exception&) {
    m_blocks.resize(known);
    std::free(block);
    return nullptr;
  }
  // Step 4
  m_remaining = m_remaining > bytes ? m_remaining - static_cast<unsigned>(bytes) : 0;
  insertFree(block, static_cast<unsigned>(count));
  if (m_watched != 0) {
    QRTMemoryChecker::close(block, static_cast<std::size_t>(bytes));
  }
  return m_rover;
}

void QRTMemoryPool::free(void* memBlock) {
  QRT_ASSERT(memBlock);
  Header* const bp = static_cast<Header*>(memBlock) - 1;
  if (m_watched != 0) {
    const QRTMemoryChecker::Pass pass(true);
    const unsigned units = freeBlock(bp);
    QRTMemoryChecker::givenBack(this, memBlock, std::size_t{units - 1} * kUnit);
  } else {
    freeBlock(bp);
  }
}

/// Takes back a block by its header.
/// @return the units of the block
inline unsigned QRTMemoryPool::freeBlock(memheader* bp) {
  QRT_ASSERT_NAMED(isMine(bp), "QRTMemoryPool::free: not a block that this pool handed out.");
  const unsigned units = bp->handedOutUnits();
  insertFree(bp, units);
  return units;
}

/// Puts a block that is not on the free list on it, merging it with the free blocks it touches.
inline void QRTMemoryPool::insertFree(memheader* bp, unsigned units) {
  Header* const p = predecessorOf(bp);
  QRT_ASSERT_NAMED(isApart(p, bp, units), "QRTMemoryPool::free: the block is free already.");
  insertAfter(p, bp, units);
}

/// The free block after which another block belongs on the list. That is the rover when blocks are
/// freed next to each other, and otherwise a few steps from the nearest block below that the map
/// has: the first one of its card. Those steps are 64 at the most and one for the sentinel, since
/// no two of a card's 128 units that begin a free block are next to each other.
inline QRTMemoryPool::memheader* QRTMemoryPool::predecessorOf(const memheader* bp) const {
  Header* p = m_rover;
  if (!isPlace(p, bp)) {
    Header* const below = m_heap->freeBelow(bp);
    p = below != nullptr ? below : p;
    while (!isPlace(p, bp)) {
      p = p->next();
    }
  }
  return p;
}

/// Puts a block on the free list after `p`, merging it with the free blocks it touches. The map is
/// told of what changed only:
///   - merged into `p`: p's size, unless its size class stays as it was;
///   - else: a block at bp;
///   - merged with the block after: that one is no block any more.
inline void QRTMemoryPool::insertAfter(memheader* p, memheader* bp, unsigned units) {
  Header* const next = p->next();
  const bool mergesUp = bp + units == next;
  const unsigned sum = mergesUp ? units + next->units() : units;
  Header* const after = mergesUp ? next->next() : next;
  const unsigned below = p->units();
  if (p + below == bp) {
    p->setFree(after, below + sum);
    if (!QRTHeapMap::isSameClass(below, below + sum)) {
      m_heap->noteFree(p, below + sum);
    }
  } else {
    bp->setFree(after, sum);
    p->setNext(bp);
    m_heap->noteFree(bp, sum);
  }
  if (mergesUp) {
    m_heap->noteTaken(next, pastSentinel(after));
  }
  m_rover = p;
}

/// Only a block that grows moves, so that all of its bytes fit into the new one. The old one is
/// handed out until they are copied.
void* QRTMemoryPool::realloc(void* memBlock, unsigned size) {
  if (memBlock == nullptr) {
    return alloc(size);
  }
  if (size == 0) {
    free(memBlock);
    return nullptr;
  }
  const unsigned units = unitsFor(size);
  unsigned had = 0;
  {
    const QRTMemoryChecker::Pass pass(m_watched != 0);
    Header* const bp = static_cast<Header*>(memBlock) - 1;
    QRT_ASSERT_NAMED(isMine(bp), "QRTMemoryPool::realloc: not a block that this pool handed out.");
    had = bp->handedOutUnits();
    if (resize(bp, units)) {
      if (m_watched != 0) {
        QRTMemoryChecker::resized(this, memBlock, std::size_t{had - 1} * kUnit,
                                  std::size_t{units - 1} * kUnit);
      }
      return memBlock;
    }
  }
  void* const moved = alloc(size);
  if (moved != nullptr) {
    std::memcpy(moved, memBlock, std::size_t{had - 1} * kUnit);
    free(memBlock);
  }
  return moved;
}

/// Gives a block that is handed out another size in its place. What it loses becomes a free block;
/// what it gains comes from the low end of the free block right after it. The start of that one
/// moves up by as much, or it leaves the list. Its link and size are read first: the header of
/// what is left may lie on them.
/// @return false, with nothing changed, when that is no free block or is too small
bool QRTMemoryPool::resize(memheader* bp, unsigned units) {
  const unsigned had = bp->handedOutUnits();
  Header* const p = predecessorOf(bp);
  QRT_ASSERT_NAMED(isApart(p, bp, had), "QRTMemoryPool::realloc: the block is free already.");
  if (units < had) {
    bp->setHandedOut(units);
    insertAfter(p, bp + units, had - units);
  } else if (units > had) {
    Header* const next = p->next();
    if (bp + had != next || next->units() < units - had) {
      return false;
    }
    const unsigned rest = next->units() - (units - had);
    Header* const after = next->next();
    if (rest != 0) {
      Header* const cut = bp + units;
      cut->setFree(after, rest);
      p->setNext(cut);
      m_heap->noteTaken(next, cut);
      m_heap->noteFree(cut, rest);
    } else {
      p->setNext(after);
      m_heap->noteTaken(next, pastSentinel(after));
    }
    bp->setHandedOut(units);
    m_rover = p;
  }
  return true;
}

unsigned QRTMemoryPool::allocSize(const void* memBlock) const {
  if (memBlock == nullptr) {
    return 0;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const Header* const bp = static_cast<const Header*>(memBlock) - 1;
  QRT_ASSERT_NAMED(isMine(bp), "QRTMemoryPool::allocSize: not a block that this pool handed out.");
  const std::uint64_t bytes = std::uint64_t{bp->handedOutUnits() - 1} * kUnit;
  return static_cast<unsigned>(std::min<std::uint64_t>(bytes, kMostBytes));
}

void QRTMemoryPool::expand(unsigned size) {
  m_remaining = addClamped(m_remaining, std::max(size, m_increment));
}

void QRTMemoryPool::getStats(unsigned& blockCount, unsigned& increment, unsigned& remaining) {
  blockCount = static_cast<unsigned>(m_blocks.size());
  increment = m_increment;
  remaining = m_remaining;
}

/// Whether a header lies in the pool's memory and reads as one of a block that is handed out. The
/// map is asked first: it alone tells whether the header may be read at all.
inline bool QRTMemoryPool::isMine(const memheader* bp) const {
  const std::size_t room = m_heap->unitsFrom(bp);
  if (room == 0 || !bp->isHandedOut() || bp->handedOutUnits() == 0) {
    return false;
  }
  return bp->handedOutUnits() <= room || m_heap->contains(bp, bp->handedOutUnits());
}

/// A block of the free list, or the one after it when it is the sentinel, which the map leaves
/// out.
inline QRTMemoryPool::memheader* QRTMemoryPool::pastSentinel(memheader* block) const {
  return block != &m_base ? block : m_base.next();
}
