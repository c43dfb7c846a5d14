#ifndef QRTFIXEDMEMORYPOOLRESOURCE_H
#define QRTFIXEDMEMORYPOOLRESOURCE_H

#include <memory_resource>

#include "QRTCore/QRTExport.h"

class QRTFixedMemoryPool;

/// Lets a QRTFixedMemoryPool serve as a standard memory resource for node containers: what fits an
/// element, alignment included, comes from the pool, everything else from an upstream resource,
/// such as the bucket arrays of hash tables. See QRTAlignedBlocks for alignments above 8 bytes.
///
/// Pool and upstream are borrowed: they must outlive the resource and all that was allocated
/// through it. Used by one thread at a time, like the pool.
class QRT_EXPORT QRTFixedMemoryPoolResource : public std::pmr::memory_resource {
 public:
  /// @param pool      where what fits an element comes from
  /// @param upstream  where the rest comes from; std::pmr::null_memory_resource() to refuse it
  explicit QRTFixedMemoryPoolResource(
      QRTFixedMemoryPool& pool,
      std::pmr::memory_resource* upstream = std::pmr::get_default_resource());

  ~QRTFixedMemoryPoolResource() override;

  /// @return where what fits an element comes from
  QRTFixedMemoryPool& getFixedMemoryPool() const { return m_pool; }

  /// @return where the rest comes from
  std::pmr::memory_resource* getUpstream() const { return m_upstream; }

 protected:
  /// @throws std::bad_alloc  the pool has no free element and cannot grow, or upstream has nothing
  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) override;

  /// Resources over the same pool and upstream can give back each other's memory.
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

 private:
  QRTFixedMemoryPool& m_pool;             // borrowed
  std::pmr::memory_resource* m_upstream;  // borrowed
};

#endif  // QRTFIXEDMEMORYPOOLRESOURCE_H
