#include "QRTFixedMemoryPoolResource.h"

#include "QRTAlignedBlocks.h"

QRTFixedMemoryPoolResource::QRTFixedMemoryPoolResource(QRTFixedMemoryPool& pool,
                                                       std::pmr::memory_resource* upstream)
    : m_pool(pool), m_upstream(upstream) {}

QRTFixedMemoryPoolResource::~QRTFixedMemoryPoolResource() = default;

void* QRTFixedMemoryPoolResource::do_allocate(std::size_t bytes, std::size_t alignment) {
  return QRTAlignedBlocks::fits(m_pool, bytes, alignment)
             ? QRTAlignedBlocks::allocate(m_pool, bytes, alignment)
             : m_upstream->allocate(bytes, alignment);
}

void QRTFixedMemoryPoolResource::do_deallocate(void* block, std::size_t bytes,
                                               std::size_t alignment) {
  if (QRTAlignedBlocks::fits(m_pool, bytes, alignment)) {
    QRTAlignedBlocks::deallocate(m_pool, block, alignment);
  } else {
    m_upstream->deallocate(block, bytes, alignment);
  }
}

bool QRTFixedMemoryPoolResource::do_is_equal(
    const std::pmr::memory_resource& other) const noexcept {
  const auto* const same = dynamic_cast<const QRTFixedMemoryPoolResource*>(&other);
  return same != nullptr && &same->m_pool == &m_pool && *same->m_upstream == *m_upstream;
}
