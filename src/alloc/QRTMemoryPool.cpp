#include "QRTMemoryPool.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <limits>

#include "QRTCore/QRTAssert.h"
#include "QRTMemoryChecker.h"

namespace {

using Header = QRTMemoryPool::memheader;

constexpr unsigned kUnit = sizeof(Header);
constexpr unsigned kDefaultIncrement = 131072;
constexpr unsigned kMostBytes = std::numeric_limits<unsigned>::max();

/// Units of a block with `bytes` usable bytes, header included.
unsigned unitsFor(unsigned bytes) {
  return static_cast<unsigned>((std::uint64_t{bytes} + kUnit - 1) / kUnit + 1);
}

unsigned addClamped(unsigned a, unsigned b) {
  return a > kMostBytes - b ? kMostBytes : a + b;
}

/// Whether a free list running from p to its successor has its wrap point there: p is the highest
/// free block and the successor the lowest.
bool isWrapPoint(const Header* p) {
  return p >= p->next();
}

}  // namespace

QRTMemoryPool::QRTMemoryPool(unsigned maxBytes, unsigned increment)
    : m_remaining(maxBytes),
      m_base(),
      m_rover(nullptr),
      m_increment(increment != 0 ? increment : kDefaultIncrement),
      m_watched(QRTMemoryChecker::isActive()) {
  if (m_remaining == 0) {
    m_remaining = addClamped(m_increment, m_increment);
  }
  m_blocks.reserve(m_remaining / m_increment + std::size_t{10});
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, kUnit);
  }
}

QRTMemoryPool::~QRTMemoryPool() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
    for (const Extent& extent : m_extents) {
      QRTMemoryChecker::open(extent.begin,
                             static_cast<std::size_t>(extent.end - extent.begin) * kUnit);
    }
  }
  for (void* block : m_blocks) {
    std::free(block);
  }
}

void* QRTMemoryPool::alloc(unsigned size) {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned units = unitsFor(size);
  if (m_rover == nullptr) {
    m_base.setFree(&m_base, 0);
    m_rover = &m_base;
  }
  Header* prev = m_rover;
  for (Header* p = prev->next();; prev = p, p = p->next()) {
    const unsigned have = p->units();
    if (have >= units) {
      Header* block = p;
      if (have == units) {
        prev->setNext(p->next());
      } else {
        // Cut from the high end: the free block stays where it is on the list.
        p->setFree(p->next(), have - units);
        block = p + (have - units);
      }
      block->setHandedOut(units);
      m_rover = prev;
      if (m_watched != 0) {
        QRTMemoryChecker::handedOut(this, block + 1, std::size_t{units - 1} * kUnit);
      }
      return block + 1;
    }
    if (p == m_rover) {
      // A whole circle found nothing.
      p = moreCore(units);
      if (p == nullptr) {
        return nullptr;
      }
    }
  }
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
  try {
    // Room first, so that nothing fails once something is entered.
    if (m_extents.size() == m_extents.capacity()) {
      m_extents.reserve(m_extents.size() * 2 + 8);
    }
    m_blocks.push_back(block);
  } catch (const std::exception&) {
    std::free(block);
    return nullptr;
  }
  addExtent(block, block + count);
  m_remaining = m_remaining > bytes ? m_remaining - static_cast<unsigned>(bytes) : 0;
  block->setHandedOut(static_cast<unsigned>(count));
  linkFree(block);
  if (m_watched != 0) {
    QRTMemoryChecker::close(block, static_cast<std::size_t>(bytes));
  }
  return m_rover;
}

void QRTMemoryPool::free(void* memBlock) {
  QRT_ASSERT(memBlock);
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  Header* const bp = static_cast<Header*>(memBlock) - 1;
  QRT_ASSERT_NAMED(isMine(bp), "QRTMemoryPool::free: not a block that this pool handed out.");
  const std::size_t usable = std::size_t{bp->handedOutUnits() - 1} * kUnit;
  linkFree(bp);
  if (m_watched != 0) {
    QRTMemoryChecker::givenBack(this, memBlock, usable);
  }
}

/// Puts a block that is handed out on the free list, merging it with the free blocks it touches.
void QRTMemoryPool::linkFree(memheader* bp) {
  const unsigned units = bp->handedOutUnits();
  Header* const end = bp + units;
  Header* p = m_rover;
  while (!(bp > p && bp < p->next()) && !(isWrapPoint(p) && (bp > p || bp < p->next()))) {
    p = p->next();
  }
  Header* const next = p->next();
  // A block that was freed before and merged shows here: it lies inside a free block.
  QRT_ASSERT_NAMED((p > bp || p + p->units() <= bp) && (next < bp || end <= next),
                   "QRTMemoryPool::free: the block is free already.");
  const bool mergesUp = end == next;
  const unsigned sum = mergesUp ? units + next->units() : units;
  Header* const after = mergesUp ? next->next() : next;
  if (p + p->units() == bp) {
    p->setFree(after, p->units() + sum);
  } else {
    bp->setFree(after, sum);
    p->setNext(bp);
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
bool QRTMemoryPool::isMine(const memheader* bp) const {
  const std::size_t room = unitsFrom(bp);
  return room != 0 && bp->isHandedOut() && bp->handedOutUnits() != 0 &&
         bp->handedOutUnits() <= room;
}

/// @return units from an address to the end of the extent it lies in; 0 when it lies in none or is
///         not aligned
std::size_t QRTMemoryPool::unitsFrom(const memheader* at) const {
  auto extent = std::upper_bound(m_extents.begin(), m_extents.end(), at,
                                 [](const Header* p, const Extent& e) { return p < e.begin; });
  if (extent == m_extents.begin() || reinterpret_cast<std::uintptr_t>(at) % kUnit != 0) {
    return 0;
  }
  --extent;
  return at < extent->end ? static_cast<std::size_t>(extent->end - at) : 0;
}

/// Enters the memory of a new heap block, one with an extent that it touches. Needs room in
/// m_extents.
void QRTMemoryPool::addExtent(memheader* begin, memheader* end) {
  auto above = std::upper_bound(m_extents.begin(), m_extents.end(), begin,
                                [](const Header* at, const Extent& e) { return at < e.begin; });
  const bool joinsBelow = above != m_extents.begin() && std::prev(above)->end == begin;
  const bool joinsAbove = above != m_extents.end() && above->begin == end;
  if (joinsBelow) {
    std::prev(above)->end = joinsAbove ? above->end : end;
    if (joinsAbove) {
      m_extents.erase(above);
    }
  } else if (joinsAbove) {
    above->begin = begin;
  } else {
    m_extents.insert(above, Extent{begin, end});
  }
}
