#ifndef QRTFIXEDMEMORYPOOLFASTPATH_H
#define QRTFIXEDMEMORYPOOLFASTPATH_H

#include <cstdint>
#include <cstring>

#include "QRTChunkIndex.h"
#include "QRTFixedMemoryPoolChunk.h"

/// @file
/// The fast paths of a QRTFixedMemoryPool with headers: `alloc` from the current chunk, and `free`.
/// Both return without a change when anything calls for the checked path. They are in a header
/// because QRTMemoryArena inlines them for its bins.

/// Takes an element of the current chunk.
/// @return null, with nothing changed, when there is no current chunk, it has no free element, its
///         first one is damaged, or the pool is checked at every operation
inline void* QRTFixedMemoryPool::takeFromCurrent() {
  return m_current != nullptr && isUnchecked() ? m_current->take() : nullptr;
}

/// Puts an element on its chunk's list when its header is intact: size, in-use byte and filler are
/// those of an element of this pool that is handed out. That is what the offset to the chunk's
/// start is trusted on. Only for a pool that is unchecked.
/// @return false, with nothing changed, when the header is not intact
inline bool QRTFixedMemoryPool::putIfIntact(void* p) {
  char* const area = static_cast<char*>(p);
  // In a large pool the header and the trailer are a cache miss each, the second one after the
  // first, as only the header leads to the chunk. Chunks that the heap gave in a row are 32 KiB
  // apart, so the trailer is likely at the next address that differs from a known trailer's by a
  // multiple of that: fetched early, both misses overlap. A wrong address costs a prefetch.
  constexpr std::uintptr_t kApart = 32768;
  const auto first = reinterpret_cast<std::uintptr_t>(m_chunks) + Chunk::size;
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  const std::uintptr_t trailer = at + (first - at) % kApart;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): reckoned, never followed
  __builtin_prefetch(reinterpret_cast<const void*>(trailer), 1);
  std::uint32_t size;
  std::memcpy(&size, area - Chunk::kHeaderBytes, sizeof size);
  const std::uint32_t mark = Chunk::markOf(area);
  if (size != m_size || (mark & ~Chunk::kMarkOffsetMask) != Chunk::kUsedMark) {
    return false;
  }
  const unsigned areaOffset = (mark & Chunk::kMarkOffsetMask) + Chunk::kHeaderBytes;
  auto* const chunk = reinterpret_cast<Chunk*>(area - areaOffset);
  if (chunk->put(area, areaOffset) && m_index != nullptr) {
    m_index->noteFree(chunk);
  }
  return true;
}

#endif  // QRTFIXEDMEMORYPOOLFASTPATH_H
