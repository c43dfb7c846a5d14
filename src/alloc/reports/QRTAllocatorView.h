#ifndef QRTALLOCATORVIEW_H
#define QRTALLOCATORVIEW_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"

/// Reads the allocators' insides for the reports, the checker and the map, which stand outside of
/// them. Copies what it reads, trusts nothing that a caller could have overwritten, and changes
/// nothing.
class QRTAllocatorView {
 public:
  /// One fixed-size pool.
  struct Fixed {
    unsigned size;        // element size as given
    unsigned stride;      // bytes from slot to slot
    unsigned slots;       // slots of one chunk
    bool hasHeaders;      // whether elements carry headers
    const void* current;  // current chunk; null when there is none
  };

  /// One slot and the bytes of its header.
  struct Slot {
    const char* area;                    // the caller's area
    std::array<std::uint8_t, 8> header;  // its header's bytes; zero without headers
    bool isListed;                       // whether it is on a free list
  };

  /// One chunk and its slots in address order.
  struct Chunk {
    const char* start;
    std::vector<Slot> slots;
    bool isListIntact;  // whether the free list leads from slot to slot to its end
  };

  /// One block of a QRTMemoryPool, or a free block on its list.
  struct Block {
    const char* start;  // its header
    std::size_t bytes;  // header included
    bool isFree;
  };

  /// An extent of heap memory of a QRTMemoryPool, without a hole, cut into its blocks.
  struct Extent {
    const char* start;
    std::size_t bytes;
    std::vector<Block> blocks;
    bool isIntact;  // whether the blocks' sizes lead exactly to the end
  };

  /// A large block of an arena.
  struct Large {
    const char* start;  // its header
    QRTFixedMemoryPool::ElementHeader header;
  };

  /// The arena's figures.
  struct Budget {
    unsigned allowed, remaining, chunkBytes;
  };

  static std::size_t callerBytes(const QRTFixedMemoryPool& pool);
  static Fixed figures(const QRTFixedMemoryPool& pool);
  static std::vector<Chunk> chunks(const QRTFixedMemoryPool& pool);

  static std::vector<Extent> extents(const QRTMemoryPool& pool);
  /// The free list from the sentinel on, which is left out.
  /// @param isCircular  receives whether it came back to the sentinel
  static std::vector<Block> freeList(const QRTMemoryPool& pool, bool& isCircular);
  static std::size_t heapBlocks(const QRTMemoryPool& pool);

  static const QRTStd::vector<QRTFixedMemoryPool*>& bins(const QRTMemoryArena& arena);
  static std::vector<Large> largeBlocks(const QRTMemoryArena& arena);
  static Budget budget(const QRTMemoryArena& arena);

 private:
  static bool markListed(const QRTFixedMemoryPool& pool, const char* head,
                         std::vector<Chunk*>& chunks);
};

#endif  // QRTALLOCATORVIEW_H
