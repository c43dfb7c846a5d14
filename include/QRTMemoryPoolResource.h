#ifndef QRTMEMORYPOOLRESOURCE_H
#define QRTMEMORYPOOLRESOURCE_H

#include <memory_resource>

#include "QRTCore/QRTExport.h"

class QRTMemoryPool;

/// Lets a QRTMemoryPool serve as a standard memory resource. Containers and everything else that
/// takes a polymorphic allocator then live in the pool. Alignments above 8 bytes are served, see
/// QRTAlignedBlocks.
///
/// The allocator is borrowed: it must outlive the resource and all that was allocated through it.
/// Used by one thread at a time, like the allocator.
class QRT_EXPORT QRTMemoryPoolResource : public std::pmr::memory_resource {
 public:
  /// @param pool  where memory comes from
  explicit QRTMemoryPoolResource(QRTMemoryPool& pool);

  ~QRTMemoryPoolResource() override;

  /// @return where memory comes from
  QRTMemoryPool& getMemoryPool() const { return m_pool; }

 protected:
  /// @throws std::bad_alloc  the pool's allowance is spent, or its heap gives nothing
  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) override;

  /// Resources over the same allocator can give back each other's memory.
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

 private:
  QRTMemoryPool& m_pool;  // borrowed
};

#endif  // QRTMEMORYPOOLRESOURCE_H
