#include "QRTVirtualPersistNode.h"

#include <atomic>
#include <cstring>

#include "NodePlacement.h"
#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTThreadGuard.h"
#include "QRTCore/QRTUtCrc32.h"
#include "QRTVirtualContainer.h"

unsigned int QRTVirtualPersistNode::m_classId = 0;
QRTThreadCriticalSection QRTVirtualPersistNode::m_classIdLock(0);

unsigned int QRTVirtualPersistNode::getClassId() {
  return computeClassId(m_classId, m_classIdLock, "QRTVirtualPersistNode");
}

QRTVirtualPersistNode* QRTVirtualPersistNode::create(QRTVirtualContainer* container) {
  QRT_ASSERT(container != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  QRTVirtualMemoryMgr* const memMgr = container->getMemoryMgr();
  QRT_ASSERT(memMgr);
  return placeNode<QRTVirtualPersistNode>(*container, *memMgr);
}

void QRTVirtualPersistNode::dismiss() {
  QRT_ASSERT(m_container);
  QRTVirtualMemoryMgr* const memMgr = m_container->getMemoryMgr();
  QRT_ASSERT(memMgr);
  memMgr->dismiss(m_pageOffset);
}

QRTVirtualPageItem QRTVirtualPersistNode::getVirtualPageItem() {
  return QRTVirtualPageItem(m_pageOffset, getSize());
}

unsigned int QRTVirtualPersistNode::getSize() {
  return sizeof(QRTVirtualPersistNode);
}

const char* QRTVirtualPersistNode::getClassName() {
  return "QRTVirtualPersistNode";
}

unsigned int QRTVirtualPersistNode::getClassIdentifier() {
  return getClassId();
}

void QRTVirtualPersistNode::destroy() {
  destroyInPlace(this);
}

// A node's block outlives the node, and a host may end a node by its destructor alone. The barrier
// keeps what is stored here, and the virtual-table pointer of this class: compilers take stores to
// an object whose life ends for dead.
QRTVirtualPersistNode::~QRTVirtualPersistNode() {
  m_container = nullptr;
  asm volatile("" : : "r"(this) : "memory");
}

void QRTVirtualPersistNode::dump(std::ostream&) {}

void QRTVirtualPersistNode::onInit() {}

// Double-checked: the identifier depends on nothing else in memory, so relaxed accesses do. A check
// value that happens to be 0 is computed again by every call.
unsigned int QRTVirtualPersistNode::computeClassId(unsigned int& classId,
                                                   QRTThreadCriticalSection& lock,
                                                   const char* name) {
  const std::atomic_ref<unsigned int> cached(classId);
  unsigned int id = cached.load(std::memory_order_relaxed);
  if (id == 0) {
    const QRTThreadGuard guard(lock);
    id = cached.load(std::memory_order_relaxed);
    if (id == 0) {
      id = QRTUtCrc32::crc32(0, reinterpret_cast<const unsigned char*>(name),
                             static_cast<unsigned int>(std::strlen(name)));
      cached.store(id, std::memory_order_relaxed);
    }
  }
  return id;
}
