// Where a request goes, and on which way:
//
//     alloc, a bin's size   takeFromCurrent, allocFromIndex, then allocGrowing
//     alloc, a larger one   allocLarge: a block of the heap of its own, recorded in m_nonBinBlocks
//     free                  the size in the block's header names the bin; without one freeLarge
//
// What m_remaining counts: m_maxAllowed less m_chunkSize for each chunk in the bins, and less size
// and header of each block in m_nonBinBlocks. A chunk that moves from bin to bin stays charged.
// Only freeLarge departs from it: it credits a block that it then finds to be foreign.
//
// Detection is on or off in all bins alike, so the first one answers for all.

#include "QRTMemoryArena.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <utility>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTDecimalFormat.h"
#include "QRTFixedMemoryPoolFastPath.h"
#include "checkers/QRTMemoryChecker.h"

namespace {

using ElementHeader = QRTFixedMemoryPool::ElementHeader;

constexpr unsigned kHeaderBytes = sizeof(ElementHeader);
constexpr unsigned kBinStep = 8;             // element sizes of neighbouring bins differ by this
constexpr unsigned kDefaultBudget = 262144;  // eight chunks
constexpr unsigned kMostBytes = std::numeric_limits<unsigned>::max();

// Bins to reserve pointers for at most: one more than there can be. A larger count then fails at
// the first bin whose elements are too large, with that error, and not for want of memory.
constexpr std::size_t kMostReserved = 4094;

}  // namespace

QRTMemoryArena::QRTMemoryArena(int numBins, unsigned maxAllowed, unsigned)
    : m_numVarBins(numBins),
      m_maxAllowed(maxAllowed != 0 ? maxAllowed : kDefaultBudget),
      m_remaining(m_maxAllowed),
      m_expansions(0),
      m_nonBinAllocs(0),
      m_chunkSize(0),
      m_reclaims(0),
      m_minNonBin(kMostBytes),
      m_maxNonBin(0),
      m_nonBinBlocks(nullptr),
      m_watched(QRTMemoryChecker::isActive() ? 1 : 0) {
  // A negative count becomes a length that no vector can have, which reserve reports. With room for
  // all of them no push_back fails, which would lose the pool it was given.
  const auto wanted = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(numBins));
  m_pools.reserve(numBins < 0 ? wanted : std::min(wanted, kMostReserved));
  try {
    for (int bin = 0; bin < m_numVarBins; ++bin) {
      m_pools.push_back(QRT_GUARD_ALLOC(new QRTFixedMemoryPool(index2Size(bin), 0, 1)));
      if (bin == 0) {
        int chunkBytes = 0;
        m_pools[0]->info(&chunkBytes, nullptr, nullptr, nullptr);
        m_chunkSize = static_cast<unsigned>(chunkBytes);
      }
    }
    m_nonBinBlocks = QRT_GUARD_ALLOC(new QRTStd::set<void*>);
  } catch (...) {
    release();
    throw;
  }
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, kHeaderBytes);
  }
}

QRTMemoryArena::~QRTMemoryArena() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
  }
  release();
}

/// For the destructor, and for a constructor that fails with some of the bins made.
void QRTMemoryArena::release() noexcept {
  for (QRTFixedMemoryPool* pool : m_pools) {
    delete pool;
  }
  m_pools.clear();
  if (m_nonBinBlocks != nullptr) {
    for (void* block : *m_nonBinBlocks) {
      std::free(block);
    }
    delete m_nonBinBlocks;
    m_nonBinBlocks = nullptr;
  }
}

void* QRTMemoryArena::alloc(unsigned size) {
  // Size 0 wraps to an index beyond every bin.
  const auto bin = static_cast<unsigned>(size2Index(size));
  if (bin < static_cast<unsigned>(m_numVarBins)) {
    // Detection is on or off in all bins alike.
    void* const p = m_pools[bin]->takeFromCurrent();
    return p != nullptr ? p : allocFromIndex(bin);
  }
  return size != 0 ? allocLarge(size) : nullptr;
}

/// The header is read before it is known to be one, but it only picks a bin: that one compares size
/// and mark with its own and refuses what does not fit, and freeChecked finds out why.
void QRTMemoryArena::free(void* mem) {
  // Under a memory checker the header may not be read without a pass.
  if (mem != nullptr && m_watched == 0) {
    unsigned size;
    std::memcpy(&size, static_cast<const char*>(mem) - kHeaderBytes, sizeof size);
    const auto bin = static_cast<unsigned>(size2Index(size));
    if (bin < static_cast<unsigned>(m_numVarBins)) {
      QRTFixedMemoryPool* const pool = m_pools[bin];
      if (pool->isUnchecked() && pool->putIfIntact(mem)) {
        return;
      }
    }
  }
  freeChecked(mem);
}

/// Serves a bin request when the bin's current chunk has no free element. Never inlined, so that
/// alloc, which jumps here last, sets up no stack frame.
[[gnu::noinline]] void* QRTMemoryArena::allocFromIndex(unsigned bin) {
  void* const p = m_pools[bin]->takeFromIndex();
  return p != nullptr ? p : allocGrowing(bin);
}

/// Serves a bin request that may need a chunk:
///   1. from the bin itself, by its checked path;
///   2. from a new chunk, when the budget pays it;
///   3. from a wholly free chunk of another bin, each of which keeps one for itself. This is also
///      tried when the heap has no new chunk, or none that a bin can take.
/// With a chunk more the bin's alloc finds an element.
void* QRTMemoryArena::allocGrowing(unsigned bin) {
  checkForMemoryOverWrite();
  // Step 1
  QRTFixedMemoryPool* const pool = m_pools[bin];
  if (void* const p = pool->alloc()) {
    return p;
  }
  // Step 2
  if (m_remaining >= m_chunkSize) {
    // Charged first: when detection finds damage after the chunk came in, the charge stays.
    m_remaining -= m_chunkSize;
    const void* const newest = pool->m_chunks;
    try {
      pool->grow(nullptr);
    } catch (...) {
      if (pool->m_chunks != newest) {
        throw;
      }
      m_remaining += m_chunkSize;
      if (void* const p = allocFromReclaimedChunk(pool)) {
        return p;
      }
      throw;
    }
    return pool->alloc();
  }
  // Step 3
  return allocFromReclaimedChunk(pool);
}

/// Moves a wholly free chunk of another bin to a bin and serves a request from it. The budget is
/// the same before and after: the chunk was charged when it was obtained. It cannot get lost
/// between the two bins, as grow asks for no memory when it is given a chunk. Cost: O(chunks of all
/// bins + elements of the free ones) at worst, since the first bin with one serves.
/// @return null when no bin has one to give up
void* QRTMemoryArena::allocFromReclaimedChunk(QRTFixedMemoryPool* pool) {
  for (QRTFixedMemoryPool* other : m_pools) {
    void* const chunk = other != pool ? other->reclaim(1) : nullptr;
    if (chunk != nullptr) {
      ++m_reclaims;
      pool->grow(chunk);
      return pool->alloc();
    }
  }
  return nullptr;
}

/// Serves a large request:
///   1. make room in the budget;
///   2. obtain the block and record it;
///   3. count and charge it;
///   4. write the header.
/// Until step 3 nothing is charged. Chunks that step 1 released stay released and credited when a
/// later step fails.
void* QRTMemoryArena::allocLarge(unsigned size) {
  checkForMemoryOverWrite();
  // Step 1
  const std::uint64_t wanted = std::uint64_t{size} + kHeaderBytes;
  if (!makeRoom(wanted)) {
    return nullptr;
  }
  const unsigned total = static_cast<unsigned>(wanted);  // the budget has it, so it fits
  // Step 2
  void* const block = std::malloc(total);
  if (block == nullptr) {
    return nullptr;
  }
  std::pair<QRTStd::set<void*>::iterator, bool>
      insStatus;  // the names are part of the error's text
  try {
    insStatus = m_nonBinBlocks->insert(block);
  } catch (const std::bad_alloc&) {
    std::free(block);
    return nullptr;
  }
  // Recorded already: its holder gave it back to the heap and not to the arena.
  QRT_ASSERT(insStatus.second);
  // Step 3
  ++m_nonBinAllocs;
  m_minNonBin = std::min(m_minNonBin, total);
  m_maxNonBin = std::max(m_maxNonBin, total);
  m_remaining -= total;
  // Step 4
  auto* const header = static_cast<ElementHeader*>(block);
  header->m_size = size;
  header->m_offset = 0;
  header->m_inUse = 1;
  header->m_filler3 = 0x0E;
  void* const mem = header + 1;
  if (m_watched != 0) {
    QRTMemoryChecker::close(header, total);
    QRTMemoryChecker::handedOut(this, mem, size);
  }
  return mem;
}

/// Releases wholly free chunks, bin by bin, until the budget has `total` bytes left.
/// @return whether it has; the chunks released stay released in any case
bool QRTMemoryArena::makeRoom(std::uint64_t total) {
  if (total > m_remaining) {
    const std::uint64_t need = total - m_remaining;
    std::uint64_t released = 0;
    for (std::size_t bin = 0; bin < m_pools.size() && released < need; ++bin) {
      released += trimBin(m_pools[bin]);
    }
  }
  return total <= m_remaining;
}

/// Releases all wholly free chunks of a bin and credits them. When a damaged header ends that
/// early, those released before it are credited all the same.
unsigned QRTMemoryArena::trimBin(QRTFixedMemoryPool* pool) {
  unsigned released = 0;
  try {
    pool->trimInto(0, released);
  } catch (...) {
    m_remaining += released;
    throw;
  }
  m_remaining += released;
  return released;
}

unsigned QRTMemoryArena::trim() {
  checkForMemoryOverWrite();
  unsigned released = 0;
  for (QRTFixedMemoryPool* pool : m_pools) {
    released += trimBin(pool);
  }
  return released;
}

/// Finds the owner by the size in the header, whose filler allocSize tests. A damaged size leads to
/// a bin or to the record of large blocks, and what does not have the block reports that.
void QRTMemoryArena::freeChecked(void* mem) {
  QRT_ASSERT(mem);
  checkForMemoryOverWrite();
  unsigned size = 0;
  {
    const QRTMemoryChecker::Pass pass(m_watched != 0);
    size = QRTFixedMemoryPool::allocSize(mem);
  }
  QRT_ASSERT_NAMED(size != 0, "QRTMemoryArena::free: the block's header says size 0.");
  const auto bin = static_cast<unsigned>(size2Index(size));
  if (bin < static_cast<unsigned>(m_numVarBins)) {
    m_pools[bin]->free(mem);
  } else {
    freeLarge(mem, size);
  }
}

/// The record decides whether the block is the arena's, and is asked before the heap is. The credit
/// comes before both and stays when the answer is no: see free.
void QRTMemoryArena::freeLarge(void* mem, unsigned size) {
  m_remaining += size + kHeaderBytes;
  void* const block = static_cast<ElementHeader*>(mem) - 1;
  const std::size_t eraseCount = m_nonBinBlocks->erase(block);
  QRT_ASSERT_NAMED(eraseCount == 1, "Invalid memory chunk in QRTMemoryArena::free");
  if (m_watched != 0) {
    QRTMemoryChecker::givenBack(this, mem, size);
    QRTMemoryChecker::open(block, kHeaderBytes);
  }
  std::free(block);
}

/// The steps, when there is a block and a size:
///   1. verify the block and stay where the size fits well enough: more than half of the room is
///      used, or a new block would come from the same bin;
///   2. obtain a new block. Where that fails a block that shrinks stays where it is after all, and
///      one that grows is not touched;
///   3. copy, and free the old one.
/// A large block has room for the size asked for and no more, so that one that grows always moves.
void* QRTMemoryArena::realloc(void* mem, unsigned size) {
  if (mem == nullptr) {
    return alloc(size);
  }
  if (size == 0) {
    free(mem);
    return nullptr;
  }
  // Step 1
  checkForMemoryOverWrite();
  const unsigned room = capacityOf(mem);
  if (size <= room && (size > room / 2 || size2Index(size) == size2Index(room))) {
    return mem;
  }
  // Step 2
  void* moved = nullptr;
  try {
    moved = alloc(size);
  } catch (const QRTOutOfMemoryError&) {
    if (size > room) {
      throw;
    }
  }
  if (moved == nullptr) {
    return size <= room ? mem : nullptr;
  }
  // Step 3
  std::memcpy(moved, mem, std::min(size, room));
  free(mem);
  return moved;
}

/// The bytes that a block of this arena has room for.
/// @throws QRTAssertError  its header is damaged, says that it is free or belongs elsewhere
unsigned QRTMemoryArena::capacityOf(void* mem) const {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned size = QRTFixedMemoryPool::allocSize(mem);
  auto* const header = static_cast<ElementHeader*>(mem) - 1;
  QRT_ASSERT_NAMED(header->m_inUse != 0, "QRTMemoryArena::realloc: the block is free.");
  const auto bin = static_cast<unsigned>(size2Index(size));
  const bool isOurs = bin < static_cast<unsigned>(m_numVarBins)
                          ? m_pools[bin]->chunkOf(static_cast<char*>(mem)) != nullptr
                          : m_nonBinBlocks->count(header) == 1;
  QRT_ASSERT_NAMED(isOurs, "QRTMemoryArena::realloc: the block belongs elsewhere.");
  return size;
}

void QRTMemoryArena::expand(unsigned size) {
  checkForMemoryOverWrite();
  const std::uint64_t add = std::uint64_t{std::max(size, m_chunkSize)} + kHeaderBytes;
  const unsigned room = kMostBytes - m_maxAllowed;
  const unsigned raised = add < room ? static_cast<unsigned>(add) : room;
  ++m_expansions;
  m_remaining += raised;
  m_maxAllowed += raised;
}

unsigned QRTMemoryArena::bin2Size(int bin) {
  return index2Size(bin);
}

int QRTMemoryArena::size2Bin(unsigned size) {
  return size2Index(size);
}

unsigned QRTMemoryArena::index2Size(int bin) {
  return kBinStep * static_cast<unsigned>(bin) + kBinStep;
}

int QRTMemoryArena::size2Index(unsigned size) {
  return static_cast<int>((size - 1) / kBinStep);
}

int QRTMemoryArena::getNumVarBins() const {
  return m_numVarBins;
}

void QRTMemoryArena::getPoolStats(int bin, int* chunkBytes, int* chunkCount,
                                  int* elementsPerChunk) {
  checkForMemoryOverWrite();
  if (bin >= 0 && bin < m_numVarBins) {
    m_pools[static_cast<unsigned>(bin)]->info(chunkBytes, chunkCount, elementsPerChunk, nullptr);
    return;
  }
  for (int* figure : {chunkBytes, chunkCount, elementsPerChunk}) {
    if (figure != nullptr) {
      *figure = 0;
    }
  }
}

void QRTMemoryArena::getPoolStats(unsigned& count, unsigned& used, unsigned& remaining) {
  checkForMemoryOverWrite();
  count = 1;
  used = m_maxAllowed - m_remaining;
  remaining = m_remaining;
}

std::uint64_t QRTMemoryArena::getBytesHandedOut() const {
  checkForMemoryOverWrite();
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  std::uint64_t bytes = 0;
  for (const QRTFixedMemoryPool* pool : m_pools) {
    bytes += pool->countInUse() * pool->m_size;
  }
  for (const void* block : *m_nonBinBlocks) {
    bytes += static_cast<const ElementHeader*>(block)->m_size;
  }
  return bytes;
}

void QRTMemoryArena::dumpStats(std::ostream& os) {
  checkForMemoryOverWrite();
  const QRTDecimalFormat decimal(os);
  os << std::endl;
  os << "Pool Statistics - Max Allowed: " << m_maxAllowed
     << ", Memory used: " << m_maxAllowed - m_remaining << ", Pool remaining: " << m_remaining
     << ", Expansions: " << m_expansions << ", Reclaims: " << m_reclaims << std::endl;
  os << std::endl;
  os << "Arena Statistics - Memory Bins: " << m_numVarBins << ", Non Bin Allocs: " << m_nonBinAllocs
     << " (" << (m_nonBinAllocs != 0 ? m_minNonBin : 0) << "/" << m_maxNonBin << ")" << std::endl;
  for (int bin = 0; bin < m_numVarBins; ++bin) {
    int chunkBytes = 0;
    int chunkCount = 0;
    int elementsPerChunk = 0;
    int chunksInUse = 0;
    os << "  Bin [" << bin + 1 << "] - Size: " << index2Size(bin) << std::endl;
    m_pools[static_cast<unsigned>(bin)]->info(&chunkBytes, &chunkCount, &elementsPerChunk,
                                              &chunksInUse);
    os << "     Chunk Size: " << chunkBytes << ", Chunk Count: " << chunkCount
       << ", Chunks InUse: " << chunksInUse << ", Pool Size: "
       << static_cast<int>(static_cast<unsigned>(chunkBytes) * static_cast<unsigned>(chunkCount))
       << ", Elements/Chunk: " << elementsPerChunk << std::endl;
  }
  os << std::endl;
}

void QRTMemoryArena::checkForMemoryOverWrite() const {
  if (m_numVarBins > 0 && m_pools[0]->getDetectMemoryOverWrites() != 0) {
    for (const QRTFixedMemoryPool* pool : m_pools) {
      pool->checkForMemoryOverWrite();
    }
  }
}

void QRTMemoryArena::setDetectMemoryOverWrites(int on) {
  for (QRTFixedMemoryPool* pool : m_pools) {
    pool->setDetectMemoryOverWrites(on);
  }
}

void QRTMemoryArena::setAbortProcessOnMemoryOverWrites(int on) {
  for (QRTFixedMemoryPool* pool : m_pools) {
    pool->setAbortProcessOnMemoryOverWrites(on);
  }
}
