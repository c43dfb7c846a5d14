#ifndef QRTMEMORYARENARESOURCE_H
#define QRTMEMORYARENARESOURCE_H

#include <memory_resource>

#include "QRTCore/QRTExport.h"

class QRTMemoryArena;

/// Lets a QRTMemoryArena serve as a standard memory resource. It is a budgeted resource: when the
/// budget is spent, allocation throws and everything stays usable.
///
/// What is given back: `deallocate` of a large block returns it to the heap and its bytes to the
/// budget. `deallocate` of a smaller one returns it to its bin: blocks of the same size class can
/// be had again at once, others only when all blocks of its chunk of 32,760 bytes are back. Such
/// chunks return to the budget and the system when an allocation would fail otherwise, which is
/// then tried once more, and when the host calls `getMemoryArena().trim()`. A chunk with one block
/// in use stays.
///
/// Alignments above 8 bytes are served, see QRTAlignedBlocks.
///
/// The allocator is borrowed: it must outlive the resource and all that was allocated through it.
/// Used by one thread at a time, like the allocator.
class QRT_EXPORT QRTMemoryArenaResource : public std::pmr::memory_resource {
 public:
  /// @param arena  where memory comes from
  explicit QRTMemoryArenaResource(QRTMemoryArena& arena);

  ~QRTMemoryArenaResource() override;

  /// @return where memory comes from
  QRTMemoryArena& getMemoryArena() const { return m_arena; }

 protected:
  /// @throws std::bad_alloc  the budget is spent, or the heap gives nothing, also after a trim
  void* do_allocate(std::size_t bytes, std::size_t alignment) override;
  void do_deallocate(void* block, std::size_t bytes, std::size_t alignment) override;

  /// Resources over the same allocator can give back each other's memory.
  bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override;

 private:
  QRTMemoryArena& m_arena;  // borrowed
};

#endif  // QRTMEMORYARENARESOURCE_H
