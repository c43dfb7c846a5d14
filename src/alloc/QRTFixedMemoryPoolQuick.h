#ifndef QRTFIXEDMEMORYPOOLQUICK_H
#define QRTFIXEDMEMORYPOOLQUICK_H

#include <cstdint>
#include <cstring>

#include "QRTChunkIndex.h"
#include "QRTFixedMemoryPoolChunk.h"

/// @file
/// What alloc and free of a QRTFixedMemoryPool with headers do when nothing is out of the ordinary.
/// It is here, and not in the source, because a QRTMemoryArena does it for its bins without a call.

/// Takes an element of the current chunk where nothing has to be looked at on the way.
/// @return null, with nothing changed, when it has none, or when something has to be looked at
inline void* QRTFixedMemoryPool::takeFree() {
  return m_current != nullptr && isQuick() ? m_current->take() : nullptr;
}

/// Puts an element back where nothing but its header has to be looked at; for quick pools only.
/// @return false, with nothing changed, when the header is not that of an element in use
inline bool QRTFixedMemoryPool::putBack(void* p) {
  char* const area = static_cast<char*>(p);
  // Both the header and the trailer, to which only the header leads, are cache misses in a large
  // pool. Where the heap gave the chunks in a row the trailer lies a multiple of 32 KiB from that
  // of another chunk; a prefetch of the wrong place does no harm.
  constexpr std::uintptr_t kApart = 32768;
  const auto first = reinterpret_cast<std::uintptr_t>(m_chunks) + Chunk::size;
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t trailer = at + (first - at) % kApart;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): reckoned, never followed
  __builtin_prefetch(reinterpret_cast<const void*>(trailer), 1);
  std::uint32_t size;
  std::memcpy(&size, area - Chunk::kHeaderBytes, sizeof size);
  const std::uint32_t mark = Chunk::markOf(area);
  if (size != m_size || (mark & ~Chunk::kMarkOffset) != Chunk::kUsedMark) {
    return false;
  }
  const unsigned distance = (mark & Chunk::kMarkOffset) + Chunk::kHeaderBytes;
  auto* const chunk = reinterpret_cast<Chunk*>(area - distance);
  if (chunk->put(area, distance) && m_index != nullptr) {
    m_index->noteFree(chunk);
  }
  return true;
}

#endif  // QRTFIXEDMEMORYPOOLQUICK_H
