#ifndef QRTMEMORYARENA_H
#define QRTMEMORYARENA_H

#include <cstdint>
#include <ostream>
#include <set>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"
#include "QRTFixedMemoryPool.h"

/// A general allocator for ordinary memory under one byte budget. Requests up to 8 bytes times the
/// number of bins come from size classes, each a QRTFixedMemoryPool with headers; larger ones come
/// from the C runtime heap one by one. When the budget is spent, a bin that needs a chunk takes a
/// wholly free one from another bin, and a large request releases all wholly free chunks.
///
/// How many bins: each bin in use keeps at least one chunk of 32 KiB, so a bin that few blocks fall
/// into costs more than it saves. 32 to 64 bins, sizes up to 256 or 512 bytes, suit most programs;
/// larger blocks are served well by the heap. docs/allocators.md has figures of a real program.
///
/// The budget counts chunks and large blocks with their headers. It does not count what the heap
/// adds to each of them, the arena's record of large blocks, and the pools of the bins.
///
/// Blocks are aligned to 8 bytes. An arena is used by one thread at a time.
class QRT_EXPORT QRTMemoryArena {
 public:
  /// Makes an arena; its bins start without chunks.
  /// @param numBins     number of bins, 0 to 4,093; bin i serves 8 * i + 1 to 8 * i + 8 bytes
  /// @param maxAllowed  the budget in bytes; 0 means 262,144
  /// The third argument is not used.
  /// @throws std::length_error    numBins is negative
  /// @throws QRTAssertError       numBins is above the limit
  /// @throws QRTOutOfMemoryError  there is no memory for the bins; nothing is left behind
  QRTMemoryArena(int numBins, unsigned maxAllowed, unsigned);

  /// Releases the bins and every large block; all blocks of the arena become invalid.
  ~QRTMemoryArena();

  QRTMemoryArena(const QRTMemoryArena&) = delete;
  QRTMemoryArena& operator=(const QRTMemoryArena&) = delete;

  /// Hands out a block, to be given back with `free`.
  /// @param size  bytes wanted, above 0
  /// @return the block; null for size 0, when the budget cannot pay it and no bin can give up
  ///         chunks, or when the heap gives nothing for a large block
  /// @throws QRTOutOfMemoryError  a bin cannot obtain a chunk and no other bin can give up one; the
  ///                              budget is not charged
  /// @throws QRTAssertError       a damaged header or free list was found
  /// Cost: constant for a bin that has a free element; for a large block that of the heap's malloc
  /// and O(log large blocks).
  void* alloc(unsigned size);

  /// Takes a block back.
  /// @param mem  a block that `alloc` of this arena handed out
  /// @throws QRTAssertError  mem is null, its header is damaged, says that it is free already or
  ///                         belongs elsewhere. A large block that is not this arena's is not
  ///                         released, but its size is credited to the budget.
  ///
  /// A large block that was freed before is told only while its memory is there: when the C runtime
  /// has given it back to the system, as it does with blocks of 128 KiB and more, its header cannot
  /// be read, and the process ends.
  /// Cost: constant for a bin element; for a large block that of the heap's free and O(log large
  /// blocks).
  void free(void* mem);

  /// Resizes a block as the C runtime's `realloc` does. It stays where it is while the size fits
  /// and is more than half of what it has room for; else a new block is obtained, for which the
  /// budget must have room beside the old one, and the contents are copied.
  /// @param mem   a block of this arena; null asks for a new one
  /// @param size  bytes wanted; 0 gives the block back
  /// @return the block; null when it was given back or where `alloc` gives null for a block that is
  ///         to grow. Then, and when an error is raised, mem stays as it was. A block that is to
  ///         shrink and cannot be moved stays where it is.
  /// @throws  what `alloc` and `free` throw
  /// Cost: that of `alloc`, `free` and the copy.
  void* realloc(void* mem, unsigned size);

  /// Releases every wholly free chunk of every bin to the system, and to the budget.
  /// @return the bytes released
  /// @throws QRTAssertError  a damaged header was found; what was released before is credited
  /// Cost: O(chunks + elements of the free ones).
  unsigned trim();

  /// Raises the budget by `size` bytes or one chunk, whichever is larger, plus 8. It stops at
  /// 2^32 - 1.
  void expand(unsigned size);

  /// @return the element size of a bin, 8 * bin + 8; not range-checked
  unsigned bin2Size(int bin);

  /// @return the bin that serves a size, (size - 1) / 8 in 32-bit arithmetic; not range-checked
  int size2Bin(unsigned size);

  /// @return the number of bins
  int getNumVarBins() const;

  /// Reports the figures of one bin. Every pointer may be null.
  /// @param bin               the bin, from 0; all figures are 0 for a bin that does not exist
  /// @param chunkBytes        receives 32,760
  /// @param chunkCount        receives the bin's chunks
  /// @param elementsPerChunk  receives the elements of one chunk
  void getPoolStats(int bin, int* chunkBytes, int* chunkCount, int* elementsPerChunk);

  /// Reports the budget.
  /// @param count      receives 1
  /// @param used       receives the bytes charged
  /// @param remaining  receives the bytes left
  void getPoolStats(unsigned& count, unsigned& used, unsigned& remaining);

  /// Adds up the blocks that are handed out: the element size for blocks of bins, the size asked
  /// for for large ones.
  /// @return the bytes; what the budget is charged for, and not in use, is free in the bins
  /// Cost: O(elements + large blocks).
  std::uint64_t getBytesHandedOut() const;

  /// Writes the statistics as text, numbers in decimal whatever the stream is set to. A bin's line
  /// with its size is written before the bin is asked for its figures, so that it is the last one
  /// when these end in an error. Cost: O(elements).
  /// @throws QRTAssertError  a damaged header was found
  void dumpStats(std::ostream& os);

  /// Verifies the headers of all bins when detection is on. Large blocks are not visited.
  /// @throws QRTAssertError  the last byte of a header was overwritten
  void checkForMemoryOverWrite() const;

  /// Switches detection on (non-zero) or off in every bin: every operation then verifies every
  /// header.
  void setDetectMemoryOverWrites(int on);

  /// Chooses for every bin whether a damaged header ends the process (non-zero) or raises an error.
  void setAbortProcessOnMemoryOverWrites(int on);

 private:
  friend class QRTAllocatorView;

  static unsigned index2Size(int bin);
  static int size2Index(unsigned size);

  void* allocFromIndex(unsigned bin);
  void* allocGrowing(unsigned bin);
  void* allocFromReclaimedChunk(QRTFixedMemoryPool* pool);
  void* allocLarge(unsigned size);
  void freeChecked(void* mem);
  void freeLarge(void* mem, unsigned size);
  unsigned capacityOf(void* mem) const;
  bool makeRoom(std::uint64_t total);
  unsigned trimBin(QRTFixedMemoryPool* pool);
  void release() noexcept;

  int m_numVarBins;                             // number of bins
  unsigned m_maxAllowed;                        // the budget
  unsigned m_remaining;                         // the part of the budget not charged
  unsigned m_expansions;                        // calls of expand
  unsigned m_nonBinAllocs;                      // large blocks handed out so far
  unsigned m_chunkSize;                         // bytes charged for a chunk; 0 without bins
  unsigned m_reclaims;                          // chunks moved from bin to bin
  unsigned m_minNonBin;                         // smallest large block so far, with its header
  unsigned m_maxNonBin;                         // largest large block so far, with its header
  QRTStd::vector<QRTFixedMemoryPool*> m_pools;  // one pool per bin; owned
  QRTStd::set<void*>* m_nonBinBlocks;           // headers of the large blocks handed out; owned
  int m_watched;                                // whether a memory checker observes the process
};

#endif  // QRTMEMORYARENA_H
