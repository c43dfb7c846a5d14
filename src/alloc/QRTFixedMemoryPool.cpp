#include "QRTFixedMemoryPool.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <new>

#include "QRTChunkIndex.h"
#include "QRTCore/QRTAssert.h"
#include "QRTFixedMemoryPoolChunk.h"
#include "QRTMemoryChecker.h"

namespace {

using ElementHeader = QRTFixedMemoryPool::ElementHeader;
using Header = QRTFixedMemoryPoolHeader;

constexpr unsigned kLeastSize = 8;  // room for the link of a free element

// Up to here a search walks the chunks; beyond, an index is kept. Eight full chunks cost a few
// nanoseconds to pass over, and small pools then need no memory beside their chunks.
constexpr unsigned kWalkedChunks = 8;

/// Bytes from slot to slot. A sum beyond 32 bits is as much too large as the largest one.
std::uint32_t strideFor(unsigned size, int useHeaders) {
  const std::uint64_t bytes = std::uint64_t{size} + (useHeaders != 0 ? Header::kBytes : 0);
  return static_cast<std::uint32_t>(std::min((bytes + 7) / 8 * 8, std::uint64_t{0xFFFFFFF8}));
}

ElementHeader* headerOf(void* area) {
  return reinterpret_cast<ElementHeader*>(static_cast<char*>(area) - Header::kBytes);
}

}  // namespace

QRTFixedMemoryPool::QRTFixedMemoryPool(unsigned size, int growable, int useHeaders)
    : m_chunks(nullptr),
      m_esize(strideFor(size != 0 ? size : kLeastSize, useHeaders)),
      m_size(size != 0 ? size : kLeastSize),
      m_freeList(nullptr),
      m_growable(static_cast<unsigned>(growable) & 1),
      m_detectOverWrites(0),
      m_abortOnOverWrites(0),
      m_watched(QRTMemoryChecker::isActive() ? 1 : 0),
      m_useHeaders(useHeaders),
      m_current(nullptr),
      m_index(nullptr),
      m_currentHead(nullptr),
      m_currentAge(0) {
  static_assert(sizeof(Chunk) == Chunk::totalSize, "a chunk is 32,760 bytes everywhere");
  QRT_ASSERT_NAMED(m_esize <= Chunk::size, "Specified size for QRTFixedMemoryPool is too large.");
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, m_useHeaders != 0 ? Header::kBytes : 0);
  }
}

QRTFixedMemoryPool::~QRTFixedMemoryPool() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  while (m_chunks != nullptr) {
    Chunk* const chunk = m_chunks;
    m_chunks = chunk->next();
    if (m_watched != 0) {
      QRTMemoryChecker::open(chunk, Chunk::totalSize);
    }
    ::operator delete(chunk);
  }
  delete m_index;
}

void* QRTFixedMemoryPool::allocHere() {
  void* p = tryAlloc();
  if (p == nullptr && m_index != nullptr) {
    p = tryAllocFromIndex();
  }
  return p != nullptr ? p : allocSlow();
}

void QRTFixedMemoryPool::freeHere(void* p) {
  if (!tryFree(p)) {
    freeSlow(p);
  }
}

/// alloc of a pool with an index whose current chunk is full: takes from the newest chunk that has
/// a free element. Short, for while one free waits for memory, only what fits the processor's
/// window can be worked on ahead.
void* QRTFixedMemoryPool::tryAllocFromIndex() {
  if (m_currentHead != nullptr || m_useHeaders == 0 || m_detectOverWrites != 0 || m_watched != 0) {
    return nullptr;
  }
  if (m_current != nullptr) {
    m_index->noteFull(m_currentAge);
    m_current = nullptr;
  }
  const unsigned age = m_index->newestWithFree();
  if (age == QRTChunkIndex::kNone) {
    return nullptr;
  }
  Chunk* const chunk = m_index->chunkAt(age);
  char* const area = chunk->data + m_index->headAt(age);
  const std::uint64_t header = Header::load(area);
  if (!Header::isIntact(header)) {
    return nullptr;
  }
  char* const next = qrtLoadLink(area);
  if (next != nullptr) {
    m_current = chunk;
    m_currentHead = next;
    m_currentAge = age;
  } else {
    m_index->noteFull(age);
  }
  chunk->setFreeHead(next);
  Header::store(area, header | Header::kInUse);
  return area;
}

/// The long way of alloc:
///   1. verify everything, with detection on;
///   2. find a free element, growing the pool if it may grow;
///   3. verify everything once more, before the element is changed;
///   4. take the element.
void* QRTFixedMemoryPool::allocSlow() {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  // Step 1
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  // Step 2
  Chunk* chunk = nullptr;
  char* area = findFree(chunk);
  if (area == nullptr && m_growable != 0) {
    grow(nullptr);
    area = findFree(chunk);
  }
  if (area == nullptr) {
    return nullptr;
  }
  // Step 3
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  // Step 4
  if (m_useHeaders == 0) {
    m_freeList = qrtLoadLink(area);
  } else {
    testHeader(headerOf(area));
    setFreeHead(chunk, qrtLoadLink(area));
    Header::store(area, Header::load(area) | Header::kInUse);
  }
  if (m_watched != 0) {
    QRTMemoryChecker::handedOut(this, area, callerBytes());
  }
  return area;
}

/// Finds the element that is handed out next and leaves it where it is. With headers this settles
/// the current chunk: when it has no free element, the newest chunk that has one takes its place,
/// unless that one holds no more than the element found.
/// @param chunk  receives the element's chunk, with headers
char* QRTFixedMemoryPool::findFree(Chunk*& chunk) {
  if (m_useHeaders == 0) {
    return static_cast<char*>(m_freeList);
  }
  if (m_currentHead != nullptr) {
    chunk = m_current;
    return m_currentHead;
  }
  setCurrent(nullptr, nullptr);
  char* area = nullptr;
  if (m_index != nullptr) {
    const unsigned age = m_index->newestWithFree();
    if (age != QRTChunkIndex::kNone) {
      chunk = m_index->chunkAt(age);
      area = chunk->data + m_index->headAt(age);
    }
  } else {
    chunk = m_chunks;
    while (chunk != nullptr && (area = chunk->freeHead()) == nullptr) {
      chunk = chunk->next();
    }
  }
  if (area != nullptr && qrtLoadLink(area) != nullptr) {
    setCurrent(chunk, area);
  }
  return area;
}

/// Makes a chunk, or none, the current one. The index learns what became of the one before.
/// @param head  the chunk's first free element
void QRTFixedMemoryPool::setCurrent(Chunk* chunk, char* head) {
  Chunk* const before = m_current;
  m_current = nullptr;
  if (before != nullptr && m_index != nullptr) {
    setFreeHead(before, m_currentHead);
  }
  m_current = chunk;
  m_currentHead = head;
  if (chunk != nullptr && m_index != nullptr) {
    m_currentAge = m_index->ageOf(chunk);
  }
}

/// Settles the first free element of a chunk, in its trailer and where there is a copy of it.
void QRTFixedMemoryPool::setFreeHead(Chunk* chunk, char* area) {
  chunk->setFreeHead(area);
  if (chunk == m_current) {
    m_currentHead = area;
  } else if (m_index != nullptr) {
    const unsigned age = m_index->ageOf(chunk);
    if (age != QRTChunkIndex::kNone) {
      m_index->setHeadAt(age, area != nullptr ? static_cast<unsigned>(area - chunk->data) : 0);
      m_index->noteFree(age);
    }
  }
}

void QRTFixedMemoryPool::freeSlow(void* p) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  if (p == nullptr) {
    return;
  }
  char* const area = static_cast<char*>(p);
  if (m_useHeaders != 0) {
    giveBack(area);
  } else {
    const QRTMemoryChecker::Pass pass(m_watched != 0);
    qrtStoreLink(area, static_cast<char*>(m_freeList));
    m_freeList = area;
  }
  if (m_watched != 0) {
    QRTMemoryChecker::givenBack(this, area, callerBytes());
  }
}

/// Puts an element with a header on its chunk's list, if the header shows that it belongs there.
void QRTFixedMemoryPool::giveBack(char* area) {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const ElementHeader* rh = headerOf(area);
  testHeader(rh);
  QRT_ASSERT_NAMED(rh->m_inUse != 0, "QRTFixedMemoryPool::free: the element is free already.");
  // A size that is not the pool's is damage, which is let pass here, or another pool's element.
  // The chunk tells them apart; with detection on there is time to look at it every time.
  Chunk* const chunk = reinterpret_cast<Chunk*>(area - Header::kBytes - rh->m_offset);
  const bool isSuspect = rh->m_size != m_size || m_detectOverWrites != 0 || m_watched != 0;
  QRT_ASSERT_NAMED(!isSuspect || (rh->m_offset % m_esize == 0 && hasChunk(chunk)),
                   "QRTFixedMemoryPool::free: the element belongs to another pool.");
  qrtStoreLink(area, chunk->freeHead());
  setFreeHead(chunk, area);
  Header::store(area, Header::load(area) & ~(Header::kInUse * 0xFF));
}

void QRTFixedMemoryPool::grow(void* chunk) {
  if (chunk == nullptr) {
    chunk = QRT_GUARD_ALLOC(::operator new(Chunk::totalSize));
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  Chunk* const added = static_cast<Chunk*>(chunk);
  added->setNext(m_chunks);
  m_chunks = added;
  formatChunk(added);
  if (m_useHeaders != 0 || m_watched != 0) {
    indexChunk(added);
  }
  if (m_useHeaders != 0) {
    setCurrent(added, added->freeHead());
  }
  if (m_watched != 0) {
    QRTMemoryChecker::close(added, Chunk::totalSize);
  }
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
}

/// Makes every slot a free element, so that a fresh chunk hands them out in ascending order.
/// Without headers the elements that were free before come behind those of the chunk.
void QRTFixedMemoryPool::formatChunk(Chunk* chunk) {
  const unsigned headerBytes = m_useHeaders != 0 ? Header::kBytes : 0;
  const unsigned count = elementsPerChunk();
  char* area = chunk->data + headerBytes;
  char* const first = area;
  for (unsigned slot = 0; slot < count; ++slot, area += m_esize) {
    if (m_useHeaders != 0) {
      Header::store(area, m_size | std::uint64_t{slot} * m_esize << 32 | Header::kFiller);
    }
    qrtStoreLink(area, area + m_esize);
  }
  char* const last = area - m_esize;
  if (m_useHeaders != 0) {
    qrtStoreLink(last, nullptr);
    chunk->setFreeHead(first);
  } else {
    qrtStoreLink(last, static_cast<char*>(m_freeList));
    chunk->setFreeHead(nullptr);
    m_freeList = first;
  }
}

/// Keeps the index once there are many chunks. A pool that cannot have one walks its list. Under a
/// memory checker there is always one: it holds the chunks' addresses as plain pointers, which a
/// leak check can follow, unlike the packed links.
void QRTFixedMemoryPool::indexChunk(Chunk* chunk) {
  if (m_index != nullptr) {
    if (!m_index->add(chunk)) {
      delete m_index;
      m_index = nullptr;
    }
    return;
  }
  unsigned count = 0;
  for (Chunk* at = m_chunks; at != nullptr && count <= kWalkedChunks; at = at->next()) {
    ++count;
  }
  if (count <= kWalkedChunks && m_watched == 0) {
    return;
  }
  m_index = new (std::nothrow) QRTChunkIndex;
  if (m_index != nullptr && !m_index->addAll(m_chunks)) {
    delete m_index;
    m_index = nullptr;
  }
}

void* QRTFixedMemoryPool::reclaim(int keep) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  Chunk* previous = nullptr;
  return takeWhollyFree(previous, keep);
}

unsigned QRTFixedMemoryPool::trim(int maxChunks) {
  // Each chunk is searched for where the last one was: chunks before that are in use.
  unsigned released = 0;
  Chunk* previous = nullptr;
  while (m_useHeaders != 0 &&
         (maxChunks == 0 || (maxChunks > 0 && released < static_cast<unsigned>(maxChunks)))) {
    if (m_detectOverWrites != 0) {
      checkForMemoryOverWrite();
    }
    int keep = 0;
    Chunk* const chunk = takeWhollyFree(previous, keep);
    if (chunk == nullptr) {
      break;
    }
    ::operator delete(chunk);
    ++released;
  }
  return released * Chunk::totalSize;
}

/// Takes the first wholly free chunk out of the pool that stands behind `previous` on the list.
/// @param previous  null for the head of the list; receives the chunk in front of the one taken
/// @param keep      how many to pass over; counted down
QRTFixedMemoryPool::Chunk* QRTFixedMemoryPool::takeWhollyFree(Chunk*& previous, int& keep) {
  if (m_useHeaders == 0) {
    return nullptr;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  Chunk* chunk = previous != nullptr ? previous->next() : m_chunks;
  for (; chunk != nullptr; previous = chunk, chunk = chunk->next()) {
    if (!isWhollyFree(chunk)) {
      continue;
    }
    if (keep != 0) {
      // A negative count never comes to 0.
      keep -= keep > 0 ? 1 : 0;
      continue;
    }
    if (previous != nullptr) {
      previous->setNext(chunk->next());
    } else {
      m_chunks = chunk->next();
    }
    if (m_current == chunk) {
      setCurrent(nullptr, nullptr);
    }
    if (m_index != nullptr) {
      m_index->remove(chunk);
    }
    if (m_watched != 0) {
      QRTMemoryChecker::open(chunk, Chunk::totalSize);
    }
    return chunk;
  }
  return nullptr;
}

void QRTFixedMemoryPool::info(int* chunkBytes, int* chunkCount, int* elementsInChunk,
                              int* chunksInUse) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  if (chunkBytes != nullptr) {
    *chunkBytes = static_cast<int>(Chunk::totalSize);
  }
  if (chunksInUse != nullptr) {
    *chunksInUse = 0;
  }
  if (chunkCount != nullptr) {
    *chunkCount = 0;
    for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next()) {
      ++*chunkCount;
      if (m_useHeaders != 0 && chunksInUse != nullptr && !isWhollyFree(chunk)) {
        ++*chunksInUse;
      }
    }
  }
  if (elementsInChunk != nullptr) {
    *elementsInChunk = static_cast<int>(elementsPerChunk());
  }
}

unsigned QRTFixedMemoryPool::allocSize(void* p) {
  if (p == nullptr) {
    return 0;
  }
  const ElementHeader* rh = headerOf(p);
  QRT_ASSERT(rh->m_filler3 == 0xE);
  return rh->m_size;
}

void QRTFixedMemoryPool::checkForMemoryOverWrite() const {
  if (m_useHeaders == 0) {
    return;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned end = elementsPerChunk() * m_esize;
  for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next()) {
    for (unsigned offset = 0; offset < end; offset += m_esize) {
      const auto* rh = reinterpret_cast<const ElementHeader*>(chunk->data + offset);
      if (rh->m_size != m_size && m_abortOnOverWrites != 0) {
        std::abort();
      }
      testHeader(rh);
    }
  }
}

void QRTFixedMemoryPool::setDetectMemoryOverWrites(int on) {
  m_detectOverWrites = on != 0 ? 1 : 0;
}

int QRTFixedMemoryPool::getDetectMemoryOverWrites() const {
  return static_cast<int>(m_detectOverWrites);
}

void QRTFixedMemoryPool::setAbortProcessOnMemoryOverWrites(int on) {
  m_abortOnOverWrites = on != 0 ? 1 : 0;
}

int QRTFixedMemoryPool::getAbortProcessOnMemoryOverWrites() const {
  return static_cast<int>(m_abortOnOverWrites);
}

/// Tests the last byte of a header, where a write past the end of the slot before it arrives last.
void QRTFixedMemoryPool::testHeader(const ElementHeader* rh) const {
  if (rh->m_filler3 != 0xE && m_abortOnOverWrites != 0) {
    std::abort();
  }
  QRT_ASSERT(rh->m_filler3 == 0xE);
}

/// Whether no element of a chunk is handed out. Tests the headers it visits; the first element in
/// use ends the visit.
bool QRTFixedMemoryPool::isWhollyFree(const Chunk* chunk) const {
  if (chunk->freeHead() == nullptr) {
    return false;
  }
  const unsigned end = elementsPerChunk() * m_esize;
  for (unsigned offset = 0; offset < end; offset += m_esize) {
    const auto* rh = reinterpret_cast<const ElementHeader*>(chunk->data + offset);
    testHeader(rh);
    if (rh->m_inUse != 0) {
      return false;
    }
  }
  return true;
}

bool QRTFixedMemoryPool::hasChunk(const void* chunk) const {
  if (m_index != nullptr) {
    return m_index->ageOf(chunk) != QRTChunkIndex::kNone &&
           m_index->chunkAt(m_index->ageOf(chunk)) == chunk;
  }
  const Chunk* at = m_chunks;
  while (at != nullptr && at != chunk) {
    at = at->next();
  }
  return at != nullptr;
}

unsigned QRTFixedMemoryPool::elementsPerChunk() const {
  return Chunk::size / m_esize;
}
