#include "QRTFixedMemoryPool.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "QRTChunkIndex.h"
#include "QRTChunkWindows.h"
#include "QRTCore/QRTAssert.h"
#include "QRTFixedMemoryPoolChunk.h"
#include "checkers/QRTMemoryChecker.h"

namespace {

using ElementHeader = QRTFixedMemoryPool::ElementHeader;

constexpr unsigned kElementHeaderBytes = sizeof(ElementHeader);
constexpr unsigned kLarge = 64;     // chunks, 2 MiB: more than a second-level cache
constexpr unsigned kLeastSize = 8;  // room for the link of a free element

/// Bytes from slot to slot. A sum beyond 32 bits is as much too large as the largest one.
std::uint32_t strideFor(unsigned size, int useHeaders) {
  const std::uint64_t bytes = std::uint64_t{size} + (useHeaders != 0 ? kElementHeaderBytes : 0);
  return static_cast<std::uint32_t>(std::min((bytes + 7) / 8 * 8, std::uint64_t{0xFFFFFFF8}));
}

ElementHeader* headerOf(void* area) {
  return reinterpret_cast<ElementHeader*>(static_cast<char*>(area) - kElementHeaderBytes);
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
      m_currentRecord(&QRTChunkRecord::none),
      m_quickRecord(&QRTChunkRecord::none),
      m_quickPlace(&m_quickRecord),
      m_otherList(nullptr),
      m_recent{},
      m_lastFreed(nullptr),
      m_noted(0),
      m_table(&QRTChunkTable::none),
      m_index(nullptr),
      m_windows(nullptr),
      m_added(0),
      m_path(eOther),
      m_sharesWindows(false) {
  static_assert(sizeof(Chunk) <= Chunk::totalSize, "a chunk is 32,760 bytes everywhere");
  QRT_ASSERT_NAMED(m_esize <= Chunk::size, "Specified size for QRTFixedMemoryPool is too large.");
  choosePath();
  if (m_watched != 0) {
    QRTMemoryChecker::poolCreated(this, m_useHeaders != 0 ? kHeaderBytes : 0);
  }
}

QRTFixedMemoryPool::~QRTFixedMemoryPool() {
  if (m_watched != 0) {
    QRTMemoryChecker::poolDestroyed(this);
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  while (m_chunks != nullptr) {
    Chunk* const chunk = m_chunks;
    m_chunks = chunk->next;
    if (m_watched != 0) {
      QRTMemoryChecker::open(chunk, Chunk::totalSize);
    }
    ::operator delete(chunk);
  }
  if (!m_sharesWindows) {
    delete m_windows;
  }
  delete m_index;
}

void* QRTFixedMemoryPool::allocHere() {
  void* p = nullptr;
  if (m_useHeaders != 0 && isQuick()) {
    p = allocElsewhere();
  }
  return p != nullptr ? p : allocSlow();
}

/// Settles what alloc and free may do, when something it depends on has changed.
void QRTFixedMemoryPool::choosePath() {
  if (m_useHeaders == 0 && m_watched == 0) {
    FreeElement* const list = freeList();
    freeList() = nullptr;
    // A hint stands behind the link.
    m_path = m_esize >= 2 * sizeof(void*) && m_added >= kLarge ? eAhead : ePlain;
    freeList() = list;
  }
  *m_quickPlace = isQuick() ? m_currentRecord : &QRTChunkRecord::none;
  m_table = isQuick() && m_windows != nullptr ? m_windows : &QRTChunkTable::none;
}

void QRTFixedMemoryPool::setWindows(QRTChunkWindows* windows) {
  m_windows = windows;
  choosePath();
}

/// Makes this a bin of an arena, which keeps what its own alloc and free need.
void QRTFixedMemoryPool::share(QRTChunkWindows* windows, QRTChunkRecord** quickPlace) {
  m_sharesWindows = true;
  m_quickPlace = quickPlace;
  setWindows(windows);
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
  QRTChunkRecord* record = nullptr;
  const auto next = [&]() -> char* {
    if (m_useHeaders == 0) {
      return reinterpret_cast<char*>(freeList());
    }
    record = findFree();
    return record != nullptr ? record->start + record->head() : nullptr;
  };
  char* area = next();
  if (area == nullptr && m_growable != 0) {
    grow(nullptr);
    area = next();
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
    freeList() = freeList()->next;
  } else {
    // A size or an offset that is not right is damage that is let pass here.
    testHeader(headerOf(area));
    --record->top;
    record->writeHead(record->head());
    headerOf(area)->m_inUse = 1;
    if (record->head() == 0) {
      record->noteFull();
    }
  }
  if (m_watched != 0) {
    QRTMemoryChecker::handedOut(this, area, callerBytes());
  }
  return area;
}

/// Finds the chunk whose next free element is handed out next. This settles the current chunk: when
/// it has no free element, the newest chunk that has one takes its place, unless that one has no
/// more than one.
/// @return null when no chunk has a free element
inline QRTChunkRecord* QRTFixedMemoryPool::findFree() {
  if (m_currentRecord->head() != 0) {
    return m_currentRecord;
  }
  QRTChunkFound found;
  if (!findElsewhere(found)) {
    return nullptr;
  }
  if (!found.record->hasOne()) {
    setCurrent(found.record);
  }
  return found.record;
}

void QRTFixedMemoryPool::freeHere(void* p) {
  // A window whose place was taken stands at another one.
  if (m_table == m_windows && m_windows->find(p)->put(p)) {
    return;
  }
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
    freeList() = new (p) FreeElement{freeList()};
  }
  if (m_watched != 0) {
    QRTMemoryChecker::givenBack(this, area, callerBytes());
  }
}

/// Puts an element with a header on its chunk's list, if it is one of this pool that is handed out.
/// A size or an offset in the header that is not right is damage that is let pass here.
void QRTFixedMemoryPool::giveBack(char* area) {
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  QRTChunkRecord* const record = recordOf(area - kHeaderBytes);
  QRT_ASSERT_NAMED(record->pool == this,
                   "QRTFixedMemoryPool::free: the element belongs to another pool.");
  char* const start = record->start;
  const auto distance = static_cast<unsigned>(area - start);
  QRT_ASSERT_NAMED((distance - kHeaderBytes) % m_esize == 0,
                   "QRTFixedMemoryPool::free: the address is not an element's.");
  const ElementHeader* rh = headerOf(area);
  testHeader(rh);
  QRT_ASSERT_NAMED(rh->m_inUse != 0 && !record->hasAll(),
                   "QRTFixedMemoryPool::free: the element is free already.");
  qrtStoreLink(area, record->head() != 0 ? start + record->head() : nullptr);
  *++record->top = static_cast<std::uint16_t>(distance);
  record->writeHead(distance);
  headerOf(area)->m_inUse = 0;
  record->noteFree();
}

void QRTFixedMemoryPool::grow(void* chunk) {
  std::unique_ptr<void, void (*)(void*)> obtained(nullptr, ::operator delete);
  if (chunk == nullptr) {
    obtained.reset(QRT_GUARD_ALLOC(::operator new(Chunk::totalSize)));
    chunk = obtained.get();
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  Chunk* const added = static_cast<Chunk*>(chunk);
  QRTChunkRecord* record = nullptr;
  // Without headers nothing needs a record, but under a memory checker: it holds the chunk's
  // address where a leak check looks, which passes over the closed trailers.
  if (m_useHeaders != 0 || m_watched != 0) {
    QRT_ASSERT_NAMED(recordOf(added) == &QRTChunkRecord::none,
                     "QRTFixedMemoryPool::grow: the chunk is in the pool already.");
    record = QRT_GUARD_ALLOC(enter(added));
  }
  static_cast<void>(obtained.release());
  added->next = m_chunks;
  m_chunks = added;
  ++m_added;
  choosePath();
  format(added, record);
  if (m_useHeaders != 0) {
    setCurrent(record);
  }
  if (m_watched != 0) {
    QRTMemoryChecker::close(added, Chunk::totalSize);
  }
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
}

/// Makes the record of a chunk and enters it everywhere.
/// @return null, with nothing changed, when memory cannot be had
QRTChunkRecord* QRTFixedMemoryPool::enter(Chunk* chunk) noexcept {
  if (m_index == nullptr) {
    m_index = new (std::nothrow) QRTChunkIndex;
  }
  if (m_windows == nullptr) {
    setWindows(new (std::nothrow) QRTChunkWindows);
  }
  if (m_index == nullptr || m_windows == nullptr) {
    return nullptr;
  }
  QRTChunkRecord* const record = QRTChunkRecord::make(this, chunk, elementsPerChunk());
  if (record == nullptr || !m_index->add(record)) {
    QRTChunkRecord::release(record);
    return nullptr;
  }
  if (!m_windows->add(record)) {
    m_index->remove(record);
    return nullptr;
  }
  return record;
}

/// Makes every slot a free element, so that a fresh chunk hands them out in ascending order.
/// Without headers the elements that were free before come behind those of the chunk.
void QRTFixedMemoryPool::format(Chunk* chunk, QRTChunkRecord* record) {
  const unsigned headerBytes = m_useHeaders != 0 ? kHeaderBytes : 0;
  const unsigned count = elementsPerChunk();
  char* area = chunk->data + headerBytes;
  char* const first = area;
  for (unsigned slot = 0; slot < count; ++slot, area += m_esize) {
    if (m_useHeaders != 0) {
      const auto distance = static_cast<unsigned>(area - chunk->data);
      const std::uint32_t header[2] = {m_size, QRTChunkRecord::freeMark(distance)};
      std::memcpy(area - kHeaderBytes, header, sizeof header);
      record->stack()[count - slot] = static_cast<std::uint16_t>(distance);
    }
    qrtStoreLink(area, area + m_esize);
  }
  char* const last = area - m_esize;
  if (m_useHeaders != 0) {
    qrtStoreLink(last, nullptr);
    record->top = record->last;
    record->noteFree();
    record->writeHead(record->head());
  } else {
    new (last) FreeElement{freeList()};
    QRTChunkRecord::writeHead(chunk->data, 0);
    freeList() = reinterpret_cast<FreeElement*>(first);
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

void QRTFixedMemoryPool::setDetectMemoryOverWrites(int on) {
  m_detectOverWrites = on != 0 ? 1 : 0;
  choosePath();
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

unsigned QRTFixedMemoryPool::elementsPerChunk() const {
  return Chunk::size / m_esize;
}
