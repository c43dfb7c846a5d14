#include "QRTMemoryPool.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <limits>

#include "QRTCore/QRTAssert.h"
#include "QRTHeapExtents.h"
#include "checkers/QRTMemoryChecker.h"

namespace {

using Header = QRTMemoryPool::memheader;

constexpr unsigned kUnit = sizeof(Header);
constexpr unsigned kWalked = 2;  // blocks to look at before stretches are; most searches end there
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

/// Finds the first free block of a stretch that is large enough. The bits tell where the blocks
/// are, so that none has to wait for the one before it to be there.
/// @param passed   units at the beginning of the stretch to pass over
/// @param before   receives the free block in front of it; left as it is when there is none behind
///                 what was passed over
/// @param largest  raised to the size of the largest block that was too small
/// @return null when there is none
const Header* firstFit(const QRTHeapExtents& extents, const QRTHeapExtents::Tour& tour,
                       unsigned passed, unsigned units, Header*& before, unsigned& largest) {
  Header* const begin = extents.beginOf(tour);
  for (unsigned first = passed / 64 * 64; first < QRTHeapExtents::kStretch; first += 64) {
    std::uint64_t starts = extents.startsIn(tour, first);
    if (first < passed) {
      starts &= ~std::uint64_t{0} << (passed - first);
    }
    for (; starts != 0; starts &= starts - 1) {
      Header* const p = begin + first + std::countr_zero(starts);
      if (p->units() >= units) {
        return p;
      }
      largest = std::max(largest, p->units());
      before = p;
    }
  }
  return nullptr;
}

}  // namespace

QRTMemoryPool::QRTMemoryPool(unsigned maxBytes, unsigned increment)
    : m_remaining(maxBytes),
      m_base(),
      m_rover(nullptr),
      m_increment(increment != 0 ? increment : kDefaultIncrement),
      m_watched(QRTMemoryChecker::isActive()),
      m_extents(nullptr) {
  if (m_remaining == 0) {
    m_remaining = addClamped(m_increment, m_increment);
  }
  m_blocks.reserve(m_remaining / m_increment + std::size_t{10});
  m_extents = new QRTHeapExtents;
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, kUnit);
  }
}

QRTMemoryPool::~QRTMemoryPool() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
    for (const QRTHeapExtents::Extent& extent : m_extents->all()) {
      QRTMemoryChecker::open(extent.begin,
                             static_cast<std::size_t>(extent.end - extent.begin) * kUnit);
    }
  }
  for (void* block : m_blocks) {
    std::free(block);
  }
  delete m_extents;
}

void* QRTMemoryPool::alloc(unsigned size) {
  const unsigned units = unitsFor(size);
  if (m_watched != 0) {
    const QRTMemoryChecker::Pass pass(true);
    void* const memBlock = obtain(units);
    if (memBlock != nullptr) {
      QRTMemoryChecker::handedOut(this, memBlock, std::size_t{units - 1} * kUnit);
    }
    return memBlock;
  }
  return obtain(units);
}

/// alloc for so many units.
inline void* QRTMemoryPool::obtain(unsigned units) {
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

/// Finds the first block that is large enough, from the one behind the rover on.
/// @return the block in front of it on the list; null when there is none
inline QRTMemoryPool::memheader* QRTMemoryPool::find(unsigned units) {
  Header* prev = m_rover;
  for (unsigned step = 0; step < kWalked; ++step) {
    Header* const p = prev->next();
    if (p->units() >= units) {
      return prev;
    }
    if (p == m_rover) {
      return nullptr;
    }
    prev = p;
  }
  return findFar(prev, units);
}

/// Goes on behind `prev`, passing whole stretches of memory that have no block large enough:
///   1. through the rest of the stretch that `prev` lies in;
///   2. through every stretch behind it that may have one, around to the same stretch from its
///      beginning. What was passed before is seen twice there, and is too small once more.
QRTMemoryPool::memheader* QRTMemoryPool::findFar(memheader* prev, unsigned units) {
  // Step 1
  if (prev == &m_base) {
    prev = prev->next();
    if (prev->units() >= units) {
      return &m_base;
    }
  }
  QRTHeapExtents::Tour tour = m_extents->tourFrom(prev);
  unsigned largest = 0;
  if (m_extents->mayHave(tour, units)) {
    const auto passed = static_cast<unsigned>(prev - m_extents->beginOf(tour)) + 1;
    if (firstFit(*m_extents, tour, passed, units, prev, largest) != nullptr) {
      return prev;
    }
  }
  // Step 2
  while (m_extents->moveOn(tour, units)) {
    largest = 0;
    prev = nullptr;
    const Header* const p = firstFit(*m_extents, tour, 0, units, prev, largest);
    if (p != nullptr) {
      return prev != nullptr ? prev : lastBefore(p);
    }
    m_extents->setBound(tour, largest);
  }
  return nullptr;
}

/// The block on the free list in front of another one: the free block below it, or the sentinel
/// when that lies in between.
QRTMemoryPool::memheader* QRTMemoryPool::lastBefore(const memheader* block) {
  Header* const below = m_extents->freeBelow(block);
  Header* prev = below != nullptr ? below : &m_base;
  while (!isPlace(prev, block) && prev->next() != block) {
    prev = prev->next();
  }
  return prev;
}

/// Takes `units` units from the block behind `prev`.
inline void* QRTMemoryPool::take(memheader* prev, unsigned units) {
  Header* const p = prev->next();
  const unsigned have = p->units();
  Header* block = p;
  if (have == units) {
    prev->setNext(p->next());
    m_extents->noteTaken(p);
  } else {
    // Cut from the high end: the free block stays where it is on the list.
    p->setUnits(have - units);
    block = p + (have - units);
  }
  block->setHandedOut(units);
  m_rover = prev;
  return block + 1;
}

/// Obtains a heap block that can hold a request and puts it on the free list.
/// @return the rover, behind which the search goes on; null, with nothing changed, when the
///         allowance is spent or the heap gives nothing
QRTMemoryPool::memheader* QRTMemoryPool::moreCore(unsigned units) {
  if (m_remaining == 0) {
    return nullptr;
  }
  const unsigned stepUnits = unitsFor(std::min(m_remaining, m_increment));
  const std::uint64_t count = (std::uint64_t{units} + stepUnits - 1) / stepUnits * stepUnits;
  const std::uint64_t bytes = count * kUnit;
  if (bytes > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
    return nullptr;
  }
  Header* const block = static_cast<Header*>(std::malloc(static_cast<std::size_t>(bytes)));
  if (block == nullptr) {
    return nullptr;
  }
  const std::size_t known = m_blocks.size();
  try {
    m_blocks.push_back(block);
    m_extents->add(block, block + count);
  } catch (const std::exception&) {
    m_blocks.resize(known);
    std::free(block);
    return nullptr;
  }
  m_remaining = m_remaining > bytes ? m_remaining - static_cast<unsigned>(bytes) : 0;
  linkFree(block, static_cast<unsigned>(count));
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
    const unsigned units = giveBack(bp);
    QRTMemoryChecker::givenBack(this, memBlock, std::size_t{units - 1} * kUnit);
  } else {
    giveBack(bp);
  }
}

/// free for a block's header.
/// @return the units of the block
inline unsigned QRTMemoryPool::giveBack(memheader* bp) {
  QRT_ASSERT_NAMED(isMine(bp), "QRTMemoryPool::free: not a block that this pool handed out.");
  const unsigned units = bp->handedOutUnits();
  linkFree(bp, units);
  return units;
}

/// Puts a block that is not on the free list on it, merging it with the free blocks it touches.
inline void QRTMemoryPool::linkFree(memheader* bp, unsigned units) {
  Header* const end = bp + units;
  // Its place is mostly where the last operation was; else behind the free block below it, or
  // behind the sentinel when that lies in between.
  Header* p = m_rover;
  if (!isPlace(p, bp)) {
    Header* const below = m_extents->freeBelow(bp);
    p = below != nullptr ? below : p;
    while (!isPlace(p, bp)) {
      p = p->next();
    }
  }
  Header* const next = p->next();
  // A block that was freed before and merged shows here: it lies inside a free block.
  QRT_ASSERT_NAMED((p > bp || p + p->units() <= bp) && (next < bp || end <= next),
                   "QRTMemoryPool::free: the block is free already.");
  const bool mergesUp = end == next;
  const unsigned sum = mergesUp ? units + next->units() : units;
  Header* const after = mergesUp ? next->next() : next;
  const unsigned below = p->units();
  const bool mergesDown = p + below == bp;
  if (mergesDown) {
    p->setFree(after, below + sum);
    if (below < QRTHeapExtents::kNoBound) {
      m_extents->noteGrown(p, below + sum);
    }
  } else {
    bp->setFree(after, sum);
    p->setNext(bp);
    m_extents->noteFree(bp, sum);
  }
  if (mergesUp) {
    m_extents->noteTaken(next);
  }
  m_rover = p;
}

void QRTMemoryPool::expand(unsigned size) {
  m_remaining = addClamped(m_remaining, std::max(size, m_increment));
}

void QRTMemoryPool::getStats(unsigned& blockCount, unsigned& increment, unsigned& remaining) {
  blockCount = static_cast<unsigned>(m_blocks.size());
  increment = m_increment;
  remaining = m_remaining;
}

/// Whether a header lies in the pool's memory and reads as one of a block that is handed out.
inline bool QRTMemoryPool::isMine(const memheader* bp) const {
  const std::size_t room = m_extents->unitsFrom(bp);
  return room != 0 && bp->isHandedOut() && bp->handedOutUnits() != 0 &&
         bp->handedOutUnits() <= room;
}
