#ifndef EXAMPLES_POOLMAP_SUBJECTS_H
#define EXAMPLES_POOLMAP_SUBJECTS_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"

namespace example {

/// The allocators a trace is played through, each with the same operations: `get`, `put` and the
/// bytes it holds from the system.

/// The C runtime's.
class MallocSubject {
 public:
  MallocSubject();
  void* get(std::uint32_t size);
  void put(void* block, std::uint32_t size);
  std::uint64_t systemBytes() const;

 private:
  std::uint64_t m_before;  // bytes that were in use before
};

/// A QRTMemoryPool.
class PoolSubject {
 public:
  PoolSubject();
  void* get(std::uint32_t size);
  void put(void* block, std::uint32_t size);
  std::uint64_t systemBytes() const;

 private:
  mutable QRTMemoryPool m_pool;
};

/// One QRTFixedMemoryPool without headers for every 16 bytes of size up to 1,024, and malloc
/// beyond.
class FixedPoolsSubject {
 public:
  FixedPoolsSubject();
  void* get(std::uint32_t size);
  void put(void* block, std::uint32_t size);
  std::uint64_t systemBytes() const;

 private:
  std::vector<std::unique_ptr<QRTFixedMemoryPool>> m_pools;
  std::uint64_t m_largeBytes = 0;  // bytes from malloc, with a header of 16 each
};

/// A QRTMemoryArena with bins up to 1,024 bytes.
class ArenaSubject {
 public:
  ArenaSubject();
  void* get(std::uint32_t size);
  void put(void* block, std::uint32_t size);
  std::uint64_t systemBytes() const;
  const QRTMemoryArena& arena() const { return m_arena; }

 private:
  mutable QRTMemoryArena m_arena;
};

}  // namespace example

#endif  // EXAMPLES_POOLMAP_SUBJECTS_H
