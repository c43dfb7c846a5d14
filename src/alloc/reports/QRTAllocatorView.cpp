#include "QRTAllocatorView.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "../QRTFixedMemoryPoolChunk.h"
#include "../QRTHeapMap.h"
#include "../checkers/QRTMemoryChecker.h"

std::size_t QRTAllocatorView::callerBytes(const QRTFixedMemoryPool& pool) {
  return pool.callerBytes();
}

QRTAllocatorView::Fixed QRTAllocatorView::figures(const QRTFixedMemoryPool& pool) {
  return {pool.m_size, pool.m_esize, pool.elementsPerChunk(), pool.m_useHeaders != 0,
          pool.m_current};
}

std::vector<QRTAllocatorView::Chunk> QRTAllocatorView::chunks(const QRTFixedMemoryPool& pool) {
  const QRTMemoryChecker::Pass pass(pool.m_watched != 0);
  const std::size_t headerBytes = pool.headerBytes();
  std::vector<Chunk> result;
  for (const auto* chunk = pool.m_chunks; chunk != nullptr; chunk = chunk->next()) {
    result.push_back({chunk->data, {}, true});
    for (unsigned slot = 0; slot < pool.elementsPerChunk(); ++slot) {
      Slot seen{chunk->data + std::size_t{slot} * pool.m_esize + headerBytes, {}, false};
      if (headerBytes != 0) {
        // Of a fixed size, which takes no call: AddressSanitizer stands in for memcpy, also for
        // that of sources it does not watch, and would report the closed header.
        std::memcpy(seen.header.data(), seen.area - seen.header.size(), seen.header.size());
      }
      result.back().slots.push_back(seen);
    }
  }
  std::vector<Chunk*> sorted;
  sorted.reserve(result.size());
  for (Chunk& chunk : result) {
    sorted.push_back(&chunk);
  }
  if (pool.m_useHeaders == 0) {
    // One list leads through all chunks; damage to it cannot be laid to one of them.
    std::sort(sorted.begin(), sorted.end(),
              [](const Chunk* a, const Chunk* b) { return std::less<>()(a->start, b->start); });
    const bool isIntact = markListed(pool, pool.m_freeList, sorted);
    for (Chunk& chunk : result) {
      chunk.isListIntact = isIntact;
    }
    return result;
  }
  for (Chunk*& seen : sorted) {
    const auto* const chunk = reinterpret_cast<const QRTFixedMemoryPool::Chunk*>(seen->start);
    const unsigned head = chunk->head();
    std::vector<Chunk*> own{seen};
    seen->isListIntact = markListed(pool, head != 0 ? seen->start + head : nullptr, own);
  }
  return result;
}

/// Follows a free list and marks the slots on it.
/// @param chunks  the chunks it may lead through, by address
/// @return whether every link led to a slot, and to none twice
bool QRTAllocatorView::markListed(const QRTFixedMemoryPool& pool, const char* head,
                                  std::vector<Chunk*>& chunks) {
  while (head != nullptr) {
    auto at = std::upper_bound(
        chunks.begin(), chunks.end(), head,
        [](const char* p, const Chunk* chunk) { return std::less<>()(p, chunk->start); });
    if (at == chunks.begin()) {
      return false;
    }
    Chunk& chunk = **--at;
    const auto offset = static_cast<std::size_t>(head - chunk.slots.front().area);
    const std::size_t slot = offset / pool.m_esize;
    if (std::less<>()(head, chunk.slots.front().area) || offset % pool.m_esize != 0 ||
        slot >= chunk.slots.size() || chunk.slots[slot].isListed) {
      return false;
    }
    chunk.slots[slot].isListed = true;
    head = qrtLoadLink(head);
  }
  return true;
}

std::vector<QRTAllocatorView::Extent> QRTAllocatorView::extents(const QRTMemoryPool& pool) {
  const QRTMemoryChecker::Pass pass(pool.m_watched != 0);
  std::vector<Extent> result;
  for (const QRTHeapMap::Extent& extent : pool.m_heap->extents()) {
    const auto units = static_cast<std::size_t>(extent.end - extent.begin);
    result.push_back(
        {reinterpret_cast<const char*>(extent.begin), units * sizeof *extent.begin, {}, true});
    const QRTMemoryPool::memheader* at = extent.begin;
    while (at < extent.end && result.back().isIntact) {
      const bool isFree = !at->isHandedOut();
      const unsigned size = isFree ? at->units() : at->handedOutUnits();
      if (size == 0 || size > static_cast<std::size_t>(extent.end - at)) {
        result.back().isIntact = false;
        continue;
      }
      result.back().blocks.push_back(
          {reinterpret_cast<const char*>(at), size * sizeof *at, isFree});
      at += size;
    }
  }
  return result;
}

std::vector<QRTAllocatorView::Block> QRTAllocatorView::freeList(const QRTMemoryPool& pool,
                                                                bool& isCircular) {
  const QRTMemoryChecker::Pass pass(pool.m_watched != 0);
  std::vector<Block> result;
  isCircular = true;
  if (pool.m_rover == nullptr) {
    return result;
  }
  std::size_t most = 0;
  for (const QRTHeapMap::Extent& extent : pool.m_heap->extents()) {
    most += static_cast<std::size_t>(extent.end - extent.begin);
  }
  for (const auto* at = pool.m_base.next(); at != &pool.m_base; at = at->next()) {
    if (pool.m_heap->unitsFrom(at) == 0 || at->isHandedOut() || result.size() > most) {
      isCircular = false;
      break;
    }
    result.push_back({reinterpret_cast<const char*>(at), at->units() * sizeof *at, true});
  }
  return result;
}

std::size_t QRTAllocatorView::heapBlocks(const QRTMemoryPool& pool) {
  return pool.m_blocks.size();
}

const QRTStd::vector<QRTFixedMemoryPool*>& QRTAllocatorView::bins(const QRTMemoryArena& arena) {
  return arena.m_pools;
}

std::vector<QRTAllocatorView::Large> QRTAllocatorView::largeBlocks(const QRTMemoryArena& arena) {
  const QRTMemoryChecker::Pass pass(arena.m_watched != 0);
  std::vector<Large> result;
  for (const void* block : *arena.m_nonBinBlocks) {
    Large large{static_cast<const char*>(block), {}};
    std::memcpy(&large.header, block, sizeof large.header);
    result.push_back(large);
  }
  return result;
}

QRTAllocatorView::Budget QRTAllocatorView::budget(const QRTMemoryArena& arena) {
  return {arena.m_maxAllowed, arena.m_remaining, arena.m_chunkSize};
}
