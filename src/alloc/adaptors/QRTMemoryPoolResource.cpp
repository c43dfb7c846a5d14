#include "QRTMemoryPoolResource.h"

#include "QRTAlignedBlocks.h"

QRTMemoryPoolResource::QRTMemoryPoolResource(QRTMemoryPool& pool) : m_pool(pool) {}

QRTMemoryPoolResource::~QRTMemoryPoolResource() = default;

void* QRTMemoryPoolResource::do_allocate(std::size_t bytes, std::size_t alignment) {
  return QRTAlignedBlocks::allocate(m_pool, bytes, alignment);
}

void QRTMemoryPoolResource::do_deallocate(void* block, std::size_t, std::size_t alignment) {
  QRTAlignedBlocks::deallocate(m_pool, block, alignment);
}

bool QRTMemoryPoolResource::do_is_equal(const std::pmr::memory_resource& other) const noexcept {
  const auto* const same = dynamic_cast<const QRTMemoryPoolResource*>(&other);
  return same != nullptr && &same->m_pool == &m_pool;
}
