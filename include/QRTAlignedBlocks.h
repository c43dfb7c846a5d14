#ifndef QRTALIGNEDBLOCKS_H
#define QRTALIGNEDBLOCKS_H

#include <cstddef>

#include "QRTCore/QRTExport.h"

class QRTFixedMemoryPool;
class QRTMemoryArena;
class QRTMemoryPool;

/// Blocks of any alignment from the three allocators, whose own blocks are aligned to 8 bytes. A
/// larger alignment is served by a block that is larger by that much; the address it really has is
/// recorded in the word in front of what the caller gets. The standard adaptors are built on this.
class QRT_EXPORT QRTAlignedBlocks {
 public:
  /// The largest alignment that costs nothing.
  static constexpr std::size_t kFreeAlignment = 8;

  /// Hands out a block.
  /// @param pool       where it comes from
  /// @param bytes      usable bytes wanted, 0 and above
  /// @param alignment  a power of two
  /// @return the block, never null, to be given back with `deallocate` and the same alignment
  /// @throws std::bad_alloc  the allocator has no such block; it stays as usable as it was.
  ///                         An arena is trimmed and asked once more before that.
  static void* allocate(QRTMemoryPool& pool, std::size_t bytes, std::size_t alignment);
  static void* allocate(QRTMemoryArena& arena, std::size_t bytes, std::size_t alignment);
  static void* allocate(QRTFixedMemoryPool& pool, std::size_t bytes, std::size_t alignment);

  /// Takes a block back.
  /// @throws QRTAssertError  what the allocator's own `free` raises
  static void deallocate(QRTMemoryPool& pool, void* block, std::size_t alignment);
  static void deallocate(QRTMemoryArena& arena, void* block, std::size_t alignment);
  static void deallocate(QRTFixedMemoryPool& pool, void* block, std::size_t alignment);

  /// Whether an element of a pool is large enough for such a block.
  static bool fits(const QRTFixedMemoryPool& pool, std::size_t bytes, std::size_t alignment);
};

#endif  // QRTALIGNEDBLOCKS_H
