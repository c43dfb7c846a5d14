#include "Subjects.h"

#include <malloc.h>

#include <cstdlib>

namespace example {

namespace {

constexpr unsigned kBudget = 0xF0000000;
constexpr std::uint32_t kLargestSmall = 1024;
constexpr std::uint32_t kStep = 16;
constexpr std::uint64_t kMallocHeader = 16;

}  // namespace

MallocSubject::MallocSubject() {
  malloc_trim(0);
  const struct mallinfo2 info = mallinfo2();
  m_before = info.uordblks + info.hblkhd;
}

void* MallocSubject::get(std::uint32_t size) {
  return std::malloc(size);
}

void MallocSubject::put(void* block, std::uint32_t) {
  std::free(block);
}

std::uint64_t MallocSubject::systemBytes() const {
  const struct mallinfo2 info = mallinfo2();
  return info.arena + info.hblkhd - m_before;
}

PoolSubject::PoolSubject() : m_pool(kBudget, 1u << 20) {}

void* PoolSubject::get(std::uint32_t size) {
  return m_pool.alloc(size);
}

void PoolSubject::put(void* block, std::uint32_t) {
  m_pool.free(block);
}

std::uint64_t PoolSubject::systemBytes() const {
  unsigned blocks = 0;
  unsigned increment = 0;
  unsigned remaining = 0;
  m_pool.getStats(blocks, increment, remaining);
  return kBudget - remaining;
}

FixedPoolsSubject::FixedPoolsSubject() {
  for (std::uint32_t size = kStep; size <= kLargestSmall; size += kStep) {
    m_pools.push_back(std::make_unique<QRTFixedMemoryPool>(size, 1, 0));
  }
}

void* FixedPoolsSubject::get(std::uint32_t size) {
  if (size <= kLargestSmall) {
    return m_pools[(size - 1) / kStep]->alloc();
  }
  m_largeBytes += size + kMallocHeader;
  return std::malloc(size);
}

void FixedPoolsSubject::put(void* block, std::uint32_t size) {
  if (size <= kLargestSmall) {
    m_pools[(size - 1) / kStep]->free(block);
    return;
  }
  m_largeBytes -= size + kMallocHeader;
  std::free(block);
}

std::uint64_t FixedPoolsSubject::systemBytes() const {
  std::uint64_t bytes = m_largeBytes;
  for (const auto& pool : m_pools) {
    int chunkBytes = 0;
    int chunks = 0;
    pool->info(&chunkBytes, &chunks, nullptr, nullptr);
    bytes += static_cast<std::uint64_t>(chunkBytes) * static_cast<std::uint64_t>(chunks);
  }
  return bytes;
}

ArenaSubject::ArenaSubject() : m_arena(static_cast<int>(kLargestSmall / 8), kBudget, 0) {}

void* ArenaSubject::get(std::uint32_t size) {
  return m_arena.alloc(size);
}

void ArenaSubject::put(void* block, std::uint32_t) {
  m_arena.free(block);
}

std::uint64_t ArenaSubject::systemBytes() const {
  unsigned count = 0;
  unsigned used = 0;
  unsigned remaining = 0;
  m_arena.getPoolStats(count, used, remaining);
  return used;
}

}  // namespace example
