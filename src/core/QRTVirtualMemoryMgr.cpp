#include "QRTVirtualMemoryMgr.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <ostream>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTDecimalFormat.h"
#include "QRTCore/QRTFmDir.h"
#include "QRTVirtualPageItemPool.h"
#include "QRTVirtualPin.h"
#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

namespace {

// The budget of a manager whose host does not say.
constexpr unsigned int kDefaultMemorySize = 0x400000;

// Whether an offset names nothing: 0 or all-ones, told by one comparison because every pin and
// unpin asks.
bool isNull(unsigned long long offset) {
  return offset + 1 <= 1;
}

struct FreeDeleter {
  void operator()(void* block) const noexcept { std::free(block); }
};

void dumpStatistics(std::ostream& os, const tcmalloc::VirtualMemoryStats& stats,
                    const tcmalloc::FixedPoolStats* pools) {
  if (stats.pageFileSize != 0) {
    os << "Paging File - " << stats.pagingFileName << std::endl;
    os << "Page file size: " << stats.pageFileSize << " bytes" << std::endl;
    os << std::endl;
  }
  os << "Mapping Mode - libtcmalloc_virtualmm" << std::endl;
  os << "Page size: " << stats.pageSize << " bytes" << std::endl;
  os << "Mapping Statistics - Virtual Objects (Current/Max/Cumulative): " << stats.currentObjects
     << "/" << stats.maxObjects << "/" << stats.cumulativeObjects << std::endl;
  os << "Paging Statistics - Reads: " << stats.pageReads << ", Writes: " << stats.pageWrites
     << ", Page Outs: " << stats.pageOuts << std::endl;
  os << std::endl;
  if (stats.largePages != 0) {
    os << "Large size block breakdown" << std::endl;
    os << "--------------------------" << std::endl;
    os << "Pages: " << stats.largePages << ", Spans: " << stats.largeSpans
       << ", Alloc: " << stats.pageSize * stats.largePages << " bytes" << std::endl;
  }
  os << "Fixed-size pool breakdown" << std::endl;
  os << "-------------------------" << std::endl;
  for (unsigned int i = 0; i < stats.poolCount; ++i) {
    const tcmalloc::FixedPoolStats& pool = pools[i];
    os << "  Pool [" << i << "] - Size: " << pool.objectSize << std::endl;
    os << "      Pages: " << pool.pages << ", Spans: " << pool.spans
       << ", Alloc: " << pool.allocBytes << " bytes, Free: " << pool.freeBytes << " bytes"
       << std::endl;
  }
  os << std::endl;
}

}  // namespace

int QRTVirtualMemoryMgr::m_exceptionOnReferenceLeak = 0;
int QRTVirtualMemoryMgr::m_pagingFileEncryption = 0;

QRTVirtualMemoryMgr::QRTVirtualMemoryMgr(unsigned int memorySize, unsigned int, int)
    : m_pool(nullptr), m_pageItemPool(nullptr) {
  initialize(memorySize);
}

QRTVirtualMemoryMgr::QRTVirtualMemoryMgr(unsigned int, unsigned int memorySize, unsigned int, int)
    : m_pool(nullptr), m_pageItemPool(nullptr) {
  initialize(memorySize);
}

QRTVirtualMemoryMgr::QRTVirtualMemoryMgr(mappertype, unsigned int, unsigned int memorySize,
                                         unsigned int, int)
    : m_pool(nullptr), m_pageItemPool(nullptr) {
  initialize(memorySize);
}

QRTVirtualMemoryMgr::~QRTVirtualMemoryMgr() {
  delete m_pageItemPool;
  m_pageItemPool = nullptr;
  delete m_pool;
  m_pool = nullptr;
}

// 1. A manager is initialised once.
// 2. No budget given: take the default.
// 3. Fetch the temp directory; one that does not exist shows when the engine first needs it.
// 4. Make the engine.
// 5. Make the page item pool. The members are set only now, so that the engine goes again when the
//    pool cannot be made.
void QRTVirtualMemoryMgr::initialize(unsigned int memorySize) {
  // Step 1
  QRT_ASSERT(m_pool == NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line

  // Step 2
  if (memorySize == 0) {
    memorySize = kDefaultMemorySize;
  }

  // Step 3
  I18NString directory;
  QRTFmDir::getTempPath(directory);

  // Step 4
  std::unique_ptr<tcmalloc::VirtualMemoryPool> engine(
      QRT_GUARD_ALLOC(new tcmalloc::VirtualMemoryPool(
          memorySize, QRTFmDir::getNarrowPath(directory).c_str(), m_pagingFileEncryption != 0)));

  // Step 5
  m_pageItemPool = QRT_GUARD_ALLOC(new QRTVirtualPageItemPool(this));
  m_pool = engine.release();
}

// The engine is made with as much as its constructor takes, and the rest set afterwards, which
// cannot fail: nothing is stored yet.
void QRTVirtualMemoryMgr::initialize(unsigned long long memorySize) {
  constexpr unsigned long long kMost = std::numeric_limits<unsigned int>::max();
  initialize(static_cast<unsigned int>(std::min(memorySize, kMost)));
  if (memorySize > kMost) {
    setMemorySize(memorySize);
  }
}

// 1. A live item is trimmed or moved.
// 2. Otherwise make a new object.
// 3. No address means no room.
// 4. The caller owes a dismiss for the address.
void* QRTVirtualMemoryMgr::alloc(unsigned int size, QRTVirtualPageItem& item) {
  void* address = nullptr;
  if (!item.empty()) {
    // Step 1
    address = allocAgain(size, item);
  } else {
    // Step 2
    tcmalloc::PageItem newItem{0};
    address = m_pool->Allocate(size, newItem);
    if (address != nullptr) {
      item = QRTVirtualPageItem(newItem.offset, size);
    }
  }

  // Step 3
  if (address == nullptr) {
    throwNoRoom();
  }

  // Step 4
  return address;
}

// Kept apart from alloc, which then needs no stack for what goes wrong.
void QRTVirtualMemoryMgr::throwNoRoom() {
  QRT_THROW_FROM("QRTVirtualMemoryMgr::alloc", QRTOutOfMemoryError(0, nullptr));
}

// 1. A smaller size trims a live item in place: note the size, pin the object.
// 2. Otherwise make a new object.
// 3. Move the item's content into it:
//    3.1 pin the old object;
//    3.2 if that fails, give the new object back, since nobody will ever know its offset;
//    3.3 copy the bytes that the item names, which a trim may have made fewer;
//    3.4 drop the pin and free the old object.
//    The item changes only when there is an object for it.
// The result is null when there is no room.
void* QRTVirtualMemoryMgr::allocAgain(unsigned int size, QRTVirtualPageItem& item) {
  if (size < item.getSize()) {
    // Step 1
    item.setSize(size);
    return QRTVirtualPin<char>::whole(*this, item).release();
  }
  // Step 2
  tcmalloc::PageItem newItem{0};
  void* const address = m_pool->Allocate(size, newItem);
  if (address != nullptr) {
    // Step 3.1
    auto old = QRTVirtualPin<char>::whole(*this, item);
    // Step 3.2
    const void* const old_ptr = old.get();
    if (old_ptr == nullptr) {
      m_pool->Dismiss(newItem);
      m_pool->Deallocate(newItem);
    }
    QRT_ASSERT(old_ptr);
    // Step 3.3
    std::memcpy(address, old_ptr, item.getSize());
    // Step 3.4
    old.reset();
    free(item);
    item = QRTVirtualPageItem(newItem.offset, size);
  }
  return address;
}

void QRTVirtualMemoryMgr::free(QRTVirtualPageItem& item) {
  if (!isNull(item.getOffset())) {
    tcmalloc::PageItem handle{item.getOffset()};
    m_pool->Deallocate(handle);
    item.setOffset(0);
  }
}

void QRTVirtualMemoryMgr::dirty(QRTVirtualPageItem& item) {
  if (!isNull(item.getOffset())) {
    tcmalloc::PageItem handle{item.getOffset()};
    m_pool->Dirty(handle);
  }
}

void QRTVirtualMemoryMgr::dismiss(QRTVirtualPageItem& item) {
  dismiss(item.getOffset());
}

void QRTVirtualMemoryMgr::dismiss(unsigned long long offset) {
  if (!isNull(offset)) {
    tcmalloc::PageItem handle{offset};
    m_pool->Dismiss(handle);
  }
}

void* QRTVirtualMemoryMgr::getAddress(QRTVirtualPageItem& item, int mode) {
  return getAddress(item.getOffset(), mode);
}

void* QRTVirtualMemoryMgr::getAddress(unsigned long long offset, int mode) {
  if (isNull(offset)) {
    return nullptr;
  }
  tcmalloc::PageItem handle{offset};
  return m_pool->GetAddress(handle, mode != 0);
}

unsigned int QRTVirtualMemoryMgr::getAddresses(const unsigned long long* offsets, void** addresses,
                                               unsigned int count, int mode) {
  if (addresses == nullptr) {
    return 0;
  }
  if (offsets == nullptr) {
    std::fill_n(addresses, count, nullptr);
    return 0;
  }
  return m_pool->GetAddresses(offsets, addresses, count, mode != 0);
}

void QRTVirtualMemoryMgr::dismiss(const unsigned long long* offsets, unsigned int count) {
  if (offsets != nullptr) {
    m_pool->DismissAll(offsets, count);
  }
}

unsigned int QRTVirtualMemoryMgr::getObjectSize(unsigned long long offset) const {
  if (isNull(offset)) {
    return 0;
  }
  tcmalloc::PageItem handle{offset};
  return m_pool->GetSize(handle);
}

void* QRTVirtualMemoryMgr::movePin(unsigned long long from, unsigned long long to) {
  if (isNull(from) || isNull(to)) {
    dismiss(from);
    return getAddress(to, 1);
  }
  tcmalloc::PageItem fromHandle{from};
  tcmalloc::PageItem toHandle{to};
  return m_pool->MovePin(fromHandle, toHandle);
}

void* QRTVirtualMemoryMgr::getUnpinned(unsigned long long offset) {
  return getUnpinned(offset, 1);
}

// The engine itself finds nothing at offsets that name nothing.
void* QRTVirtualMemoryMgr::getUnpinned(unsigned long long offset, int mode) {
  tcmalloc::PageItem handle{offset};
  return m_pool->GetUnpinned(handle, mode != 0);
}

void QRTVirtualMemoryMgr::prefetch(unsigned long long offset) const {
  if (!isNull(offset)) {
    tcmalloc::PageItem handle{offset};
    m_pool->Prefetch(handle);
  }
}

int QRTVirtualMemoryMgr::setMemorySize(unsigned long long bytes) {
  return m_pool->SetMemorySize(bytes != 0 ? bytes : kDefaultMemorySize) ? 1 : 0;
}

unsigned long long QRTVirtualMemoryMgr::getMemorySize() const {
  return m_pool->GetMemorySize();
}

QRTVirtualMemoryMgr::MemoryInUse QRTVirtualMemoryMgr::getMemoryInUse() const {
  tcmalloc::VirtualMemoryInUse use{};
  m_pool->GetMemoryInUse(use);
  return {use.frameBytes, use.residentBytes, use.pinnedBytes,
          use.tableBytes, use.excessBytes,   use.excessPins};
}

const char* QRTVirtualMemoryMgr::getPinsBeyondMemorySize() const {
  return m_pool->GetBudgetExcess();
}

void QRTVirtualMemoryMgr::allocUsingPool(const void* data, unsigned int size,
                                         QRTVirtualPageItem& item) {
  m_pageItemPool->set(data, size, item);
}

void QRTVirtualMemoryMgr::setVirtualPageItemPoolSize(unsigned int poolSize) {
  m_pageItemPool->setPoolSize(poolSize);
}

void QRTVirtualMemoryMgr::pageOut(unsigned int) {}

void QRTVirtualMemoryMgr::setDiagnosticMode(diagflags) {}

const char* QRTVirtualMemoryMgr::getLastStoreError() const {
  return m_pool->GetLastError();
}

int QRTVirtualMemoryMgr::getExceptionOnReferenceLeak() {
  return m_exceptionOnReferenceLeak;
}

void QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(int on) {
  m_exceptionOnReferenceLeak = on;
}

int QRTVirtualMemoryMgr::getPagingFileEncryption() {
  return m_pagingFileEncryption;
}

void QRTVirtualMemoryMgr::setPagingFileEncryption(int on) {
  if (on != 0 && !tcmalloc::VirtualMemoryPool::CanEncrypt()) {
    QRT_THROW_FROM("QRTVirtualMemoryMgr::setPagingFileEncryption",
                   QRTIllegalStateError(0,
                                        "Paging files cannot be encrypted: this library was built "
                                        "without libcrypto (QRT_WITH_ENCRYPTION), or libcrypto "
                                        "did not start"));
  }
  m_pagingFileEncryption = on;
}

void QRTVirtualMemoryMgr::throwExceptionOnReferenceLeak() {
  if (m_exceptionOnReferenceLeak == 0) {
    return;
  }
  m_pageItemPool->reset();
  const unsigned int pinned = m_pool->GetOutstandingReferences(nullptr, 0, nullptr);
  if (pinned == 0) {
    return;
  }
  char text[256];
  std::snprintf(text, sizeof text,
                "Reference Leak Error, total objects with reference count > 0 : %d",
                static_cast<int>(pinned));
  QRT_THROW_FROM("QRTVirtualMemoryMgr::throwExceptionOnReferenceLeak",
                 QRTIllegalStateError(0, text));
}

// 1. Fetch the statistics record, whose length only the engine knows.
// 2. Write the heading.
// 3. Write the statistics.
// 4. Write the notice about mapper records.
// 5. Count the pinned objects.
// 6. Close the dump.
void QRTVirtualMemoryMgr::dumpMapper(std::ostream& os, int flags) {
  // Step 1
  unsigned int needed = 0;
  m_pool->ExtractStats(nullptr, 0, needed);
  const std::unique_ptr<void, FreeDeleter> record(QRT_GUARD_ALLOC(std::malloc(needed)));
  const auto* const stats = static_cast<tcmalloc::VirtualMemoryStats*>(record.get());
  m_pool->ExtractStats(static_cast<tcmalloc::VirtualMemoryStats*>(record.get()), needed, needed);

  // Step 2
  const QRTDecimalFormat decimal(os);
  os << "**Dump of Virtual Mapper**" << std::endl;
  os << std::endl;

  // Step 3
  if ((flags & eDumpStatistics) != 0) {
    dumpStatistics(os, *stats, reinterpret_cast<const tcmalloc::FixedPoolStats*>(stats + 1));
  }

  // Step 4
  if ((flags & eDumpMapper) != 0) {
    os << "QRTVirtualMemoryMgr::eDumpMapper is not supported - "
       << "consider using Windbg to debug leaks in the virtual memory system!" << std::endl;
    os << std::endl;
  }

  // Step 5
  const unsigned int pinned = m_pool->GetOutstandingReferences(nullptr, 0, nullptr);
  if (pinned != 0) {
    os << "Total Objects with reference count > 0 : " << pinned << std::endl;
    os << std::endl;
  }

  // Step 6
  os << "Diagnostic Options are not supported!" << std::endl;
  os << std::endl;
}
