#include "QRTVirtualContainer.h"

#include <cstdio>

#include "QRTCore/QRTAssert.h"

QRTVirtualContainer::QRTVirtualContainer(unsigned int memorySize, unsigned int second, int third)
    : m_ownsMemMgr(0), m_memMgr(nullptr) {
  m_memMgr = QRT_GUARD_ALLOC(new QRTVirtualMemoryMgr(memorySize, second, third));
  m_ownsMemMgr = 1;
}

QRTVirtualContainer::QRTVirtualContainer(QRTVirtualMemoryMgr::mappertype type,
                                         unsigned int memorySize, unsigned int second, int third)
    : m_ownsMemMgr(0), m_memMgr(nullptr) {
  m_memMgr = QRT_GUARD_ALLOC(new QRTVirtualMemoryMgr(type, memorySize, memorySize, second, third));
  m_ownsMemMgr = 1;
}

// Makes the manager of a container that was made without one.
void QRTVirtualContainer::ownMemoryMgr(unsigned long long memorySize) {
  m_memMgr = QRT_GUARD_ALLOC(new QRTVirtualMemoryMgr(memorySize));
  m_ownsMemMgr = 1;
}

QRTVirtualContainer::QRTVirtualContainer(QRTVirtualMemoryMgr* memMgr)
    : m_ownsMemMgr(0), m_memMgr(memMgr) {}

QRTVirtualContainer::~QRTVirtualContainer() {
  try {
    if (m_ownsMemMgr != 0) {
      delete m_memMgr;
    }
    m_memMgr = nullptr;
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor lets nothing out
  }
}

void QRTVirtualContainer::registerNodeCreator(
    unsigned int classId, QRTVirtualPersistNode* (*creator)(QRTVirtualContainer*)) {
  m_nodeCreators.emplace(classId, creator);
}

QRTVirtualPersistNode* QRTVirtualContainer::createNode(unsigned int classId) {
  const auto found = m_nodeCreators.find(classId);
  if (found == m_nodeCreators.end() || found->second == nullptr) {
    return nullptr;
  }
  QRTVirtualPersistNode* const node = found->second(this);
  if (node == nullptr) {
    QRT_THROW_FROM("QRTVirtualContainer::createNode", QRTOutOfMemoryError(0, nullptr));
  }
  return node;
}

QRTVirtualPersistNode* QRTVirtualContainer::createRegisteredNode(unsigned int classId) {
  QRTVirtualPersistNode* const node = createNode(classId);
  if (node == nullptr) {
    char text[200];
    std::snprintf(text, sizeof text,
                  "no creator is registered for the class identifier %u (0x%08x): call "
                  "registerNodeCreator with the class's getClassId() and create first",
                  classId, classId);
    QRT_THROW_FROM("QRTVirtualContainer::createRegisteredNode", QRTAssertError(0, text));
  }
  return node;
}

QRTVirtualPersistNode* QRTVirtualContainer::getNode(unsigned long long offset) {
  return offset == 0 ? nullptr : static_cast<QRTVirtualPersistNode*>(getAddress(offset, 1));
}

QRTVirtualPersistNode* QRTVirtualContainer::getNode(QRTVirtualPageItem& item) {
  return getNode(item.getOffset());
}

void* QRTVirtualContainer::alloc(unsigned int size, QRTVirtualPageItem& item) {
  QRT_ASSERT(m_memMgr);
  return m_memMgr->alloc(size, item);
}

void QRTVirtualContainer::free(QRTVirtualPageItem& item) {
  QRT_ASSERT(m_memMgr);
  m_memMgr->free(item);
}

void QRTVirtualContainer::dismiss(unsigned long long offset) {
  QRT_ASSERT(m_memMgr);
  m_memMgr->dismiss(offset);
}

void QRTVirtualContainer::dismiss(QRTVirtualPageItem& item) {
  QRT_ASSERT(m_memMgr);
  m_memMgr->dismiss(item);
}

void* QRTVirtualContainer::getAddress(QRTVirtualPageItem& item, int mode) {
  QRT_ASSERT(m_memMgr);
  return m_memMgr->getAddress(item, mode);
}

void* QRTVirtualContainer::getAddress(unsigned long long offset, int mode) {
  QRT_ASSERT(m_memMgr);
  return m_memMgr->getAddress(offset, mode);
}

void QRTVirtualContainer::dumpMapper(std::ostream& os) {
  QRT_ASSERT(m_memMgr);
  m_memMgr->dumpMapper(os, QRTVirtualMemoryMgr::eDumpStatistics | QRTVirtualMemoryMgr::eDumpMapper);
}

void QRTVirtualContainer::dirty(QRTVirtualPageItem&) {}

void QRTVirtualContainer::unMap(unsigned long long) {}
