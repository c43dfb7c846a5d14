#ifndef QRTMEMORYPOOL_H
#define QRTMEMORYPOOL_H

#include <cstdint>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

class QRTHeapMap;

/// A variable-size allocator for ordinary memory. It carves blocks from large pieces of the C
/// runtime heap, keeps free blocks on one list in address order, merges free neighbours, and
/// gives everything back when it is destroyed, including blocks that are still handed out.
///
/// The search for a free block starts where the last one ended (next fit) and takes from the high
/// end of the block it finds. What the pool may obtain in total is limited by an allowance.
///
/// Blocks are aligned to 8 bytes. A pool is used by one thread at a time.
class QRT_EXPORT QRTMemoryPool {
 public:
  /// Heads every block, free or handed out, and is the unit in which sizes are counted. Programs
  /// that AddressSanitizer or Valgrind watches may not read it by themselves: it is closed to them.
  /// `allocSize` reads it for them.
  ///
  ///     handed out     bytes 0-3  zero
  ///                    bytes 4-7  size of the block in units, header included
  ///     free, 32-bit   bytes 0-3  address of the next free block
  ///                    bytes 4-7  size of the block in units
  ///     free, 64-bit   bytes 0-7  address of the next free block plus the tags below; the size
  ///                               in units is in the block's second word when it has one
  ///
  /// Bytes 0-3 tell free from handed out on both widths: the list is circular, so a link is never
  /// null, and on 64-bit the free tag is always set.
  union memheader {
    std::uint64_t word;
    std::uint32_t half[2];

    /// Whether the block is in a caller's hands.
    bool isHandedOut() const { return half[0] == 0; }

    /// Size of a block that is handed out, in units.
    unsigned handedOutUnits() const { return half[1]; }

    /// Makes this the header of a block of `units` units that is handed out.
    void setHandedOut(unsigned units) { word = std::uint64_t{units} << 32; }

    /// The free block after this one on the list; only for free blocks.
    memheader* next() const {
      // NOLINTNEXTLINE(performance-no-int-to-ptr): the word holds tags beside the address.
      return reinterpret_cast<memheader*>(kPacked ? static_cast<std::uintptr_t>(word & ~kTags)
                                                  : static_cast<std::uintptr_t>(half[0]));
    }

    /// Size of a free block in units.
    unsigned units() const {
      if (!kPacked) {
        return half[1];
      }
      if ((word & (kOneUnit | kNoUnits)) == 0) {
        return static_cast<unsigned>(this[1].word);
      }
      return (word & kOneUnit) != 0 ? 1 : 0;
    }

    /// Makes this the header of a free block of `units` units in front of `next`.
    void setFree(memheader* next, unsigned units) {
      const auto link = reinterpret_cast<std::uintptr_t>(next);
      if (!kPacked) {
        half[0] = static_cast<std::uint32_t>(link);
        half[1] = units;
        return;
      }
      if (units > 1) {
        word = link | kFree;
        this[1].word = units;
      } else {
        word = link | kFree | (units == 1 ? kOneUnit : kNoUnits);
      }
    }

    /// Changes the size of a free block to `units` units, at least one and no more than it had.
    void setUnits(unsigned units) {
      if (!kPacked) {
        half[1] = units;
      } else if (units > 1) {
        this[1].word = units;
      } else {
        word |= kOneUnit;
      }
    }

    /// Links a free block to another successor and keeps its size.
    void setNext(memheader* next) {
      const auto link = reinterpret_cast<std::uintptr_t>(next);
      if (kPacked) {
        word = link | (word & kTags);
      } else {
        half[0] = static_cast<std::uint32_t>(link);
      }
    }

   private:
    static constexpr bool kPacked = sizeof(void*) == 8;
    static constexpr std::uint64_t kFree = 1;     // the block is on the free list
    static constexpr std::uint64_t kOneUnit = 2;  // the block has no second word: one unit
    static constexpr std::uint64_t kNoUnits = 4;  // the sentinel, which has no unit at all
    static constexpr std::uint64_t kTags = kFree | kOneUnit | kNoUnits;
  };

  /// Makes an empty pool; nothing but its bookkeeping is obtained.
  /// @param maxBytes   the allowance in bytes; 0 means twice the increment
  /// @param increment  bytes by which the pool grows at a time; 0 means 131072
  /// @throws std::bad_alloc, std::length_error  no room for maxBytes / increment + 10 entries
  QRTMemoryPool(unsigned maxBytes, unsigned increment);

  /// Gives every heap block back; all blocks of the pool become invalid.
  ~QRTMemoryPool();

  QRTMemoryPool(const QRTMemoryPool&) = delete;
  QRTMemoryPool& operator=(const QRTMemoryPool&) = delete;

  /// Hands out a block.
  /// @param size  bytes wanted, 0 and above; 0 gives a block without usable bytes
  /// @return a block of `size` rounded up to a multiple of 8 usable bytes, aligned to 8, to be
  ///         given back with `free`; null when no free block is large enough and the allowance is
  ///         spent or the heap gives nothing
  /// Cost: constant when blocks are freed in reverse order; else at worst a look at a byte for
  /// every 1 KiB of the pool, and at the free blocks where that says that one may fit. A growth
  /// asks the heap for one piece, and for a few bytes beside it.
  void* alloc(unsigned size);

  /// Takes a block back and merges it with free neighbours.
  /// @param memBlock  a block that `alloc` of this pool handed out
  /// @throws QRTAssertError  memBlock is null, is free already or is not a block of this pool; the
  ///                         pool is unchanged. A pointer into the middle of a block is found when
  ///                         the 8 bytes in front of it do not read as a header.
  /// Cost: O(log size of the pool); asks the heap for nothing.
  void free(void* memBlock);

  /// Gives a block another size, as C's function of this name does. What is in it stays, up to the
  /// smaller of both sizes. The block stays where it is when it shrinks or keeps its size, and when
  /// it grows into a free block right after it; else it is copied to a new one and freed.
  /// @param memBlock  a block of this pool; null is `alloc(size)`
  /// @param size      bytes wanted; 0 with a block is `free(memBlock)`, and the result is null
  /// @return the block, in its new place if it moved; null when there is no such block to be had:
  ///         then the old one is as it was
  /// @throws QRTAssertError  memBlock is free already or is not a block of this pool, as in `free`;
  ///                         the pool is unchanged
  /// Cost: like `free`; when the block moves, like `alloc` and `free` and the copy.
  void* realloc(void* memBlock, unsigned size);

  /// Tells how large a block is.
  /// @param memBlock  a block of this pool that is handed out, or null
  /// @return its usable bytes: the size asked for, rounded up to a multiple of 8, or 2^32 - 1 where
  ///         that is more; 0 for null
  /// @throws QRTAssertError  memBlock is not a block of this pool
  /// Cost: O(log size of the pool).
  unsigned allocSize(const void* memBlock) const;

  /// Raises the allowance by `size` bytes, but at least by the increment; it stops at 2^32 - 1.
  void expand(unsigned size);

  /// Reports the pool's figures.
  /// @param blockCount  receives the number of heap blocks obtained so far
  /// @param increment   receives the growth step in bytes
  /// @param remaining   receives the bytes that may still be obtained
  void getStats(unsigned& blockCount, unsigned& increment, unsigned& remaining);

 private:
  friend class QRTAllocatorView;

  void* allocUnits(unsigned units);
  memheader* find(unsigned units);
  memheader* findInMap(memheader* prev, unsigned units);
  void* take(memheader* prev, unsigned units);
  memheader* moreCore(unsigned units);
  unsigned freeBlock(memheader* bp);
  void insertFree(memheader* bp, unsigned units);
  memheader* predecessorOf(const memheader* bp) const;
  void insertAfter(memheader* p, memheader* bp, unsigned units);
  bool resize(memheader* bp, unsigned units);
  bool isMine(const memheader* bp) const;
  memheader* pastSentinel(memheader* block) const;

  unsigned m_remaining;            // bytes that may still be obtained from the heap
  memheader m_base;                // free block of no units that keeps the list from being empty
  memheader* m_rover;              // where the next search starts; null before the first
  QRTStd::vector<void*> m_blocks;  // heap blocks in the order obtained; owned
  unsigned m_increment;            // growth step in bytes
  int m_watched;                   // whether a memory checker observes the process
  QRTHeapMap* m_heap;              // the memory of m_blocks by address; owned
};

static_assert(sizeof(QRTMemoryPool::memheader) == 8, "the unit of size is 8 bytes everywhere");

#endif  // QRTMEMORYPOOL_H
