#include "QRTVirtualPageItemPool.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualMemoryMgr.h"

namespace {

struct FreeDeleter {
  void operator()(void* block) const noexcept { std::free(block); }
};

// Keys are handed out as pointers to const bytes, but the pool made them itself.
void freeKey(const QRTVirtualPageItemPool::PoolEntry& key) {
  std::free(const_cast<void*>(key.data));
}

}  // namespace

const unsigned int QRTVirtualPageItemPool::kDefaultPoolSize;

bool QRTVirtualPageItemPool::cmp_void::operator()(const PoolEntry& a,
                                                  const PoolEntry& b) const noexcept {
  if (a.size != b.size) {
    return a.size < b.size;
  }
  return a.size != 0 && std::memcmp(a.data, b.data, a.size) < 0;
}

QRTVirtualPageItemPool::QRTVirtualPageItemPool(QRTVirtualMemoryMgr* memMgr)
    : QRTVirtualPageItemPool(memMgr, kDefaultPoolSize) {}

QRTVirtualPageItemPool::QRTVirtualPageItemPool(QRTVirtualMemoryMgr* memMgr, unsigned int poolSize)
    : m_memMgr(memMgr), m_poolSize(poolSize) {}

QRTVirtualPageItemPool::~QRTVirtualPageItemPool() {
  try {
    reset();
  } catch (...) {
    // A destructor raises nothing.
  }
}

// 1. Nothing to store: return.
// 2. Look the bytes up.
// 3. Remembered: hand out the entry's item and make the entry the most recently used.
// 4. Otherwise store the bytes in a new object, pinned once.
// 5. Copy them for the pool's own key.
// 6. Unpin the object.
// 7. Enter key and item. List node and map node are made before either structure is seen to change,
//    so that running out of memory here loses nothing.
// 8. Above the bound, forget the least recently used entry.
void QRTVirtualPageItemPool::set(const void* data, unsigned int size, QRTVirtualPageItem& item) {
  // Step 1
  if (data == nullptr || size == 0) {
    return;
  }

  // Step 2
  const auto found = m_entryMap.find(PoolEntry{data, size});
  if (found != m_entryMap.end()) {
    // Step 3
    item = found->second->second;
    m_entryList.splice(m_entryList.begin(), m_entryList, found->second);
    return;
  }

  // Step 4
  void* const address = QRT_GUARD_ALLOC(m_memMgr->alloc(size, item));
  std::memcpy(address, data, size);

  // Step 5
  std::unique_ptr<void, FreeDeleter> keyBytes(QRT_GUARD_ALLOC(std::malloc(size)));
  std::memcpy(keyBytes.get(), data, size);

  // Step 6
  m_memMgr->dismiss(item);

  // Step 7
  const PoolEntry key{keyBytes.get(), size};
  EntryList node;
  node.emplace_front(key, item);
  m_entryMap.emplace(key, node.begin());
  m_entryList.splice(m_entryList.begin(), node);
  static_cast<void>(keyBytes.release());

  // Step 8
  if (m_entryList.size() > m_poolSize) {
    const PoolEntry last = m_entryList.back().first;
    m_entryMap.erase(last);
    m_entryList.pop_back();
    freeKey(last);
  }
}

void QRTVirtualPageItemPool::reset() {
  // The map goes first: its keys point into the copies that are freed here.
  m_entryMap.clear();
  for (const auto& entry : m_entryList) {
    freeKey(entry.first);
  }
  m_entryList.clear();
}

void QRTVirtualPageItemPool::setPoolSize(unsigned int poolSize) {
  m_poolSize = poolSize;
}
