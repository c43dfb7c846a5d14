// A pool has one of two shapes, and every operation has a fast path and a checked one:
//
//                     with headers                         without headers
//     free elements   a list for each chunk (its trailer)  one list for all chunks (m_freeList)
//     next element    of m_current while that has one,     the head of the list
//                     then of the newest chunk with one
//     m_index         finds that chunk, and whether an     stores and follows prefetch hints
//                     address is a chunk of the pool
//     verified        every header before it is trusted    nothing
//     chunks leave    wholly free, by reclaim and trim     with the pool
//
// Fast paths (alloc, free, takeFromIndex, and QRTFixedMemoryPoolFastPath.h) change no element
// unless all is well, and otherwise leave the call to the checked path, which says what is wrong.
// Checked paths test an element before they change it: with an error it is as it was.
//
// m_current is null or a chunk of the pool; m_index is null or has every chunk of the pool.

#include "QRTFixedMemoryPool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "QRTCore/QRTAssert.h"
#include "QRTFixedMemoryPoolFastPath.h"
#include "checkers/QRTMemoryChecker.h"

namespace {

using ElementHeader = QRTFixedMemoryPool::ElementHeader;

constexpr unsigned kHeaderBytes = sizeof(ElementHeader);
constexpr unsigned kLeastSize = 8;  // room for the link of a free element

/// Chunks from which on an index is worth its memory. Without headers it is there for its prefetch
/// hints, which are worth their instructions where a second-level cache does not hold the elements.
constexpr std::size_t kFewestIndexed = 4;
constexpr std::size_t kFewestWithoutHeaders = 64;
constexpr unsigned kLeastHinted = 16;  // bytes of an element with room for a hint after the link

/// Bytes from slot to slot. A sum beyond 32 bits is as much too large as the largest one.
std::uint32_t strideFor(unsigned size, int useHeaders) {
  const std::uint64_t bytes = std::uint64_t{size} + (useHeaders != 0 ? kHeaderBytes : 0);
  return static_cast<std::uint32_t>(std::min((bytes + 7) / 8 * 8, std::uint64_t{0xFFFFFFF8}));
}

ElementHeader* headerOf(void* area) {
  return reinterpret_cast<ElementHeader*>(static_cast<char*>(area) - kHeaderBytes);
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
      m_index(nullptr) {
  static_assert(sizeof(Chunk) == Chunk::totalSize, "a chunk is 32,760 bytes everywhere");
  QRT_ASSERT_NAMED(m_esize <= Chunk::size, "Specified size for QRTFixedMemoryPool is too large.");
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, headerBytes());
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
  QRTChunkIndex::release(m_index);
}

/// Without headers m_index serves for its hints alone here, and only where an element has room for
/// one after the link.
void* QRTFixedMemoryPool::alloc() {
  if (m_useHeaders == 0) {
    char* const p = m_freeList;
    if (p == nullptr || !isUnchecked()) {
      return allocChecked();
    }
    m_freeList = qrtLoadLink(p);
    if (m_index != nullptr && m_esize >= kLeastHinted) {
      m_index->prefetchHinted(p);
    }
    return p;
  }
  void* const p = takeFromCurrent();
  return p != nullptr ? p : allocFromIndex();
}

/// Without headers nothing tells a free element from one in use: one that is freed twice is handed
/// out twice.
void QRTFixedMemoryPool::free(void* p) {
  if (p == nullptr || !isUnchecked()) {
    freeChecked(p);
    return;
  }
  if (m_useHeaders == 0) {
    char* const area = static_cast<char*>(p);
    if (m_index != nullptr && m_esize >= kLeastHinted) {
      m_index->storeHint(area, m_freeList);
    }
    qrtStoreLink(area, m_freeList);
    m_freeList = area;
    return;
  }
  if (!putIfIntact(p)) {
    freeChecked(p);
  }
}

/// alloc when the current chunk has no free element. Never inlined, so that alloc, which jumps here
/// last, sets up no stack frame.
[[gnu::noinline]] void* QRTFixedMemoryPool::allocFromIndex() {
  void* const p = takeFromIndex();
  return p != nullptr ? p : allocChecked();
}

/// Takes an element of the newest chunk that has one, which becomes current if it has more. Leaves
/// every chunk as the checked path would: which element comes next never depends on the path.
/// @return null when there is none, no index to find it, damage on the way, or the pool is checked
///         at every operation; then the checked path finds out
void* QRTFixedMemoryPool::takeFromIndex() {
  if (m_index == nullptr || !isUnchecked() || (m_current != nullptr && m_current->head() != 0)) {
    return nullptr;
  }
  m_current = nullptr;
  const QRTChunkIndex::Found found = m_index->findNewest();
  void* const p = found.chunk != nullptr ? found.chunk->take() : nullptr;
  if (p == nullptr) {
    return nullptr;
  }
  if (found.chunk->head() != 0) {
    m_current = found.chunk;
  } else {
    m_index->noteFull(found.place);
  }
  return p;
}

/// The checked path of alloc:
///   1. verify everything, with detection on;
///   2. find a free element, growing the pool if it may grow;
///   3. verify everything once more, before the element is changed;
///   4. take the element, after all tests of it. The index is not told when it is the last one of
///      its chunk: it finds that out by the trailer.
/// A growth that fails leaves the pool as it was. One that adds the chunk and then finds damage
/// leaves the chunk to the next call.
void* QRTFixedMemoryPool::allocChecked() {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  // Step 1
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  // Step 2
  Chunk* chunk = nullptr;
  char* area = firstFree(chunk);
  if (area == nullptr && m_growable != 0) {
    grow(nullptr);
    area = firstFree(chunk);
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
    QRT_ASSERT_NAMED(
        Chunk::isAreaOffset(chunk->head()) && Chunk::headerOffset(chunk->head()) % m_esize == 0,
        "QRTFixedMemoryPool::alloc: the free list leads to where no element is.");
    const ElementHeader* rh = headerOf(area);
    testHeader(rh);
    QRT_ASSERT_NAMED(rh->m_inUse != 1,
                     "QRTFixedMemoryPool::alloc: the free list leads to an element in use.");
    // Damage to the size and the offset alone is repaired or kept, not reported: the filler is what
    // a write past the end of the slot before reaches last.
    Chunk::setMark(area, Chunk::kUsedMark | Chunk::headerOffset(chunk->head()));
    chunk->advance(area);
    if (chunk->head() != 0) {
      m_current = chunk;
    }
  }
  if (m_watched != 0) {
    QRTMemoryChecker::handedOut(this, area, callerBytes());
  }
  return area;
}

/// Finds the element that is handed out next. Cost: constant with an index, O(chunks) without.
/// @param chunk  receives its chunk, with headers
/// @return null when none is free
char* QRTFixedMemoryPool::firstFree(Chunk*& chunk) {
  if (m_useHeaders == 0) {
    return m_freeList;
  }
  chunk = m_current;
  if (chunk == nullptr || chunk->head() == 0) {
    m_current = nullptr;
    if (m_index != nullptr) {
      chunk = m_index->findNewest().chunk;
    } else {
      chunk = m_chunks;
      while (chunk != nullptr && chunk->head() == 0) {
        chunk = chunk->next();
      }
    }
  }
  return chunk != nullptr ? chunk->data + chunk->head() : nullptr;
}

/// The checked path of free.
void QRTFixedMemoryPool::freeChecked(void* p) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  if (p == nullptr) {
    return;
  }
  char* const area = static_cast<char*>(p);
  {
    const QRTMemoryChecker::Pass pass(m_watched != 0);
    if (m_useHeaders != 0) {
      putChecked(area);
    } else {
      qrtStoreLink(area, m_freeList);
      m_freeList = area;
    }
  }
  if (m_watched != 0) {
    QRTMemoryChecker::givenBack(this, area, callerBytes());
  }
}

/// Puts an element on its chunk's list, if it is one of this pool that is handed out. A damaged
/// size or offset in its header is no error; the chunk is then found by address. The offset is
/// written anew with the free mark. The size is not: it goes on sending the element's frees here.
void QRTFixedMemoryPool::putChecked(char* area) {
  const ElementHeader* rh = headerOf(area);
  testHeader(rh);
  QRT_ASSERT_NAMED(rh->m_inUse != 0, "QRTFixedMemoryPool::free: the element is free already.");
  Chunk* const chunk = chunkOf(area);
  QRT_ASSERT_NAMED(chunk != nullptr,
                   "QRTFixedMemoryPool::free: the element belongs to another pool.");
  const auto areaOffset = static_cast<unsigned>(chunk->offsetOf(area));
  QRT_ASSERT_NAMED((areaOffset - kHeaderBytes) % m_esize == 0,
                   "QRTFixedMemoryPool::free: the address is not an element's.");
  if (chunk->put(area, areaOffset) && m_index != nullptr) {
    m_index->noteFree(chunk);
  }
}

/// The chunk that an element with a header belongs to, null for a foreign one. The header's offset
/// leads to it when the header is intact and that address is a chunk of the pool. Otherwise, and
/// always with detection on, the chunks are searched for the address.
QRTFixedMemoryPool::Chunk* QRTFixedMemoryPool::chunkOf(const char* area) const {
  ElementHeader header;
  std::memcpy(&header, area - kHeaderBytes, kHeaderBytes);
  if (m_detectOverWrites == 0 && header.m_size == m_size && header.m_inUse == 1) {
    const char* const start = area - kHeaderBytes - header.m_offset;
    if (has(start)) {
      return reinterpret_cast<Chunk*>(const_cast<char*>(start));
    }
  }
  Chunk* chunk = m_chunks;
  while (chunk != nullptr && chunk->offsetOf(area - kHeaderBytes) >= Chunk::size) {
    chunk = chunk->next();
  }
  return chunk;
}

void* QRTFixedMemoryPool::realloc(void* p, unsigned size) {
  if (p != nullptr && size == 0) {
    free(p);
    return nullptr;
  }
  if (p != nullptr && m_useHeaders != 0) {
    if (m_detectOverWrites != 0) {
      checkForMemoryOverWrite();
    }
    const QRTMemoryChecker::Pass pass(m_watched != 0);
    const ElementHeader* rh = headerOf(p);
    testHeader(rh);
    QRT_ASSERT_NAMED(rh->m_inUse != 0, "QRTFixedMemoryPool::realloc: the element is free.");
    QRT_ASSERT_NAMED(chunkOf(static_cast<char*>(p)) != nullptr,
                     "QRTFixedMemoryPool::realloc: the element belongs to another pool.");
  }
  if (size > callerBytes()) {
    return nullptr;
  }
  return p != nullptr ? p : alloc();
}

/// The steps of a growth:
///   1. obtain a chunk, or test the one given. If it is refused, one that was obtained is released
///      and one that was given stays the caller's;
///   2. put it in front of the list, make its elements and enter it into the index, in this order:
///      the index reads the chunk's trailer, and the list when it is made anew. Nothing fails here;
///   3. close it to the memory checker, and verify everything with detection on.
void QRTFixedMemoryPool::grow(void* chunk) {
  // Step 1
  std::unique_ptr<void, void (*)(void*)> obtained(nullptr, ::operator delete);
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  if (chunk == nullptr) {
    obtained.reset(QRT_GUARD_ALLOC(::operator new(Chunk::totalSize)));
    chunk = obtained.get();
  } else {
    QRT_ASSERT_NAMED(!has(chunk), "QRTFixedMemoryPool::grow: the chunk is in the pool already.");
  }
  QRT_ASSERT_NAMED(Chunk::Trailer::canHold(chunk),
                   "QRTFixedMemoryPool::grow: the chunk's address has more than 48 bits.");
  // Step 2
  static_cast<void>(obtained.release());
  Chunk* const added = static_cast<Chunk*>(chunk);
  added->setNext(m_chunks);
  m_chunks = added;
  format(added);
  updateIndex(added);
  // Step 3
  if (m_watched != 0) {
    QRTMemoryChecker::close(added, Chunk::totalSize);
  }
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
}

/// Whether a chunk is in the pool.
bool QRTFixedMemoryPool::has(const void* chunk) const {
  if (m_index != nullptr) {
    return m_index->has(chunk);
  }
  const Chunk* at = m_chunks;
  while (at != nullptr && at != chunk) {
    at = at->next();
  }
  return at != nullptr;
}

/// Makes every slot of a new chunk a free element, so that it hands them out in ascending order,
/// and makes it current. Without headers the elements that were free before follow those; with
/// headers m_freeList is always null, which ends the chunk's own list.
void QRTFixedMemoryPool::format(Chunk* chunk) {
  const unsigned count = elementsPerChunk();
  const unsigned first = headerBytes();
  char* area = chunk->data + first;
  for (unsigned slot = 0; slot < count; ++slot, area += m_esize) {
    if (m_useHeaders != 0) {
      const ElementHeader header{m_size, static_cast<std::uint16_t>(slot * m_esize), 0, 0x0E};
      std::memcpy(area - kHeaderBytes, &header, kHeaderBytes);
    }
    qrtStoreLink(area, area + m_esize);
  }
  qrtStoreLink(area - m_esize, m_freeList);
  chunk->setHead(first);
  if (m_useHeaders != 0) {
    m_current = chunk;
  } else {
    m_freeList = chunk->data;
  }
}

/// Enters a chunk into the index, which is made anew, larger, when it is full. Under a memory
/// checker there is an index from the first chunk on: a leak check finds the chunks' addresses in
/// it, and would not in the trailers, which are closed to the checker.
void QRTFixedMemoryPool::updateIndex(Chunk* added) noexcept {
  if (m_index == nullptr || !m_index->add(added)) {
    QRTChunkIndex::release(m_index);
    const std::size_t fewest = m_useHeaders != 0 ? kFewestIndexed : kFewestWithoutHeaders;
    m_index = QRTChunkIndex::make(m_chunks, m_watched != 0 ? 1 : fewest);
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
  unsigned released = 0;
  trimInto(maxChunks, released);
  return released;
}

/// Releases wholly free chunks, as `trim` says.
/// @param released  receives the bytes released, also when an error ends it early
void QRTFixedMemoryPool::trimInto(int maxChunks, unsigned& released) {
  // The search goes on where the last chunk was found: those in front of it are in use.
  Chunk* previous = nullptr;
  for (int count = 0; m_useHeaders != 0 && (maxChunks == 0 || count < maxChunks); ++count) {
    if (m_detectOverWrites != 0) {
      checkForMemoryOverWrite();
    }
    int keep = 0;
    Chunk* const chunk = takeWhollyFree(previous, keep);
    if (chunk == nullptr) {
      break;
    }
    ::operator delete(chunk);
    released += Chunk::totalSize;
  }
}

/// Takes the first wholly free chunk after `previous` on the list out of the pool: off the list,
/// and out of what else names a chunk, m_current and the index.
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
    m_current = m_current != chunk ? m_current : nullptr;
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

/// Whether no element of a chunk is handed out. That takes two witnesses, since zeros written past
/// the end of an element make the next header say "free":
///   1. every header says so; each is tested for damage, up to the first one in use;
///   2. the free list holds every element.
bool QRTFixedMemoryPool::isWhollyFree(const Chunk* chunk) const {
  if (chunk->head() == 0) {
    return false;
  }
  // Step 1
  const unsigned count = elementsPerChunk();
  for (unsigned slot = 0; slot < count; ++slot) {
    const auto* rh =
        reinterpret_cast<const ElementHeader*>(chunk->data + std::size_t{slot} * m_esize);
    testHeader(rh);
    if (rh->m_inUse != 0) {
      return false;
    }
  }
  // Step 2. No element is there twice in a list that ends after `count` of them: a link back makes
  // a cycle, which has no end. So `count` links that lead to slots, and then the end, are all.
  unsigned listed = 0;
  for (const char* area = chunk->data + chunk->head(); area != nullptr; area = qrtLoadLink(area)) {
    const std::uintptr_t offset = chunk->offsetOf(area) - kHeaderBytes;
    if (listed == count || offset >= std::uintptr_t{count} * m_esize || offset % m_esize != 0) {
      return false;
    }
    ++listed;
  }
  return listed == count;
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

/// How many elements are handed out, by their headers. No header is tested: a damaged in-use byte
/// counts unless it is 0.
std::uint64_t QRTFixedMemoryPool::countInUse() const {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned count = elementsPerChunk();
  std::uint64_t inUse = 0;
  for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next()) {
    for (unsigned slot = 0; slot < count; ++slot) {
      const auto* rh =
          reinterpret_cast<const ElementHeader*>(chunk->data + std::size_t{slot} * m_esize);
      inUse += rh->m_inUse != 0 ? 1 : 0;
    }
  }
  return inUse;
}

unsigned QRTFixedMemoryPool::allocSize(void* p) {
  if (p == nullptr) {
    return 0;
  }
  const ElementHeader* rh = headerOf(p);
  QRT_ASSERT(rh->m_filler3 == 0xE);
  return rh->m_size;
}

/// A damaged size alone ends the process where that was asked for. It raises no error, since alloc
/// and free do without the size.
void QRTFixedMemoryPool::checkForMemoryOverWrite() const {
  if (m_useHeaders == 0) {
    return;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned count = elementsPerChunk();
  for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next()) {
    for (unsigned slot = 0; slot < count; ++slot) {
      const auto* rh =
          reinterpret_cast<const ElementHeader*>(chunk->data + std::size_t{slot} * m_esize);
      if (rh->m_size != m_size && m_abortOnOverWrites != 0) {
        std::abort();
      }
      testHeader(rh);
    }
  }
}

/// Tests the filler, the last byte of a header, which a write past the end of the slot before
/// reaches last.
void QRTFixedMemoryPool::testHeader(const ElementHeader* rh) const {
  if (rh->m_filler3 != 0xE && m_abortOnOverWrites != 0) {
    std::abort();
  }
  QRT_ASSERT(rh->m_filler3 == 0xE);
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

unsigned QRTFixedMemoryPool::elementsPerChunk() const {
  return Chunk::size / m_esize;
}
