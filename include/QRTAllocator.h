#ifndef QRTALLOCATOR_H
#define QRTALLOCATOR_H

#include <cstddef>
#include <limits>
#include <new>

#include "QRTAlignedBlocks.h"

/// A standard allocator over one of the three allocators, without virtual calls:
///
///     QRTMemoryArena arena(32, 1 << 20, 0);
///     std::vector<int, QRTAllocator<int, QRTMemoryArena>> v{QRTAllocator<int,
///     QRTMemoryArena>(arena)};
///
/// Over a QRTFixedMemoryPool it serves node containers whose nodes fit an element; larger requests
/// are refused with std::bad_alloc.
///
/// @tparam T     what is allocated, of any alignment
/// @tparam Pool  QRTMemoryPool, QRTFixedMemoryPool or QRTMemoryArena; borrowed, it must outlive the
///               containers
template <class T, class Pool>
class QRTAllocator {
 public:
  using value_type = T;

  /// @param pool  where memory comes from
  explicit QRTAllocator(Pool& pool) noexcept : m_pool(&pool) {}

  /// An allocator for another type over the same pool.
  template <class U>
  QRTAllocator(const QRTAllocator<U, Pool>& other) noexcept : m_pool(&other.pool()) {}

  /// @param count  objects wanted
  /// @return room for them, to be given back with `deallocate`
  /// @throws std::bad_alloc  the pool has no such block, or there is no such size
  T* allocate(std::size_t count) {
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
      throw std::bad_alloc();
    }
    return static_cast<T*>(QRTAlignedBlocks::allocate(*m_pool, count * sizeof(T), alignof(T)));
  }

  /// Gives back what `allocate` of an equal allocator handed out.
  void deallocate(T* block, std::size_t) {
    QRTAlignedBlocks::deallocate(*m_pool, block, alignof(T));
  }

  /// @return where memory comes from
  Pool& pool() const noexcept { return *m_pool; }

 private:
  Pool* m_pool;  // borrowed
};

/// Allocators over the same pool can give back each other's memory.
template <class T, class U, class Pool>
bool operator==(const QRTAllocator<T, Pool>& a, const QRTAllocator<U, Pool>& b) noexcept {
  return &a.pool() == &b.pool();
}

template <class T, class U, class Pool>
bool operator!=(const QRTAllocator<T, Pool>& a, const QRTAllocator<U, Pool>& b) noexcept {
  return !(a == b);
}

#endif  // QRTALLOCATOR_H
