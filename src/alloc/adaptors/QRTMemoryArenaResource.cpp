#include "QRTMemoryArenaResource.h"

#include "QRTAlignedBlocks.h"

QRTMemoryArenaResource::QRTMemoryArenaResource(QRTMemoryArena& arena) : m_arena(arena) {}

QRTMemoryArenaResource::~QRTMemoryArenaResource() = default;

void* QRTMemoryArenaResource::do_allocate(std::size_t bytes, std::size_t alignment) {
  return QRTAlignedBlocks::allocate(m_arena, bytes, alignment);
}

void QRTMemoryArenaResource::do_deallocate(void* block, std::size_t, std::size_t alignment) {
  QRTAlignedBlocks::deallocate(m_arena, block, alignment);
}

bool QRTMemoryArenaResource::do_is_equal(const std::pmr::memory_resource& other) const noexcept {
  const auto* const same = dynamic_cast<const QRTMemoryArenaResource*>(&other);
  return same != nullptr && &same->m_arena == &m_arena;
}
