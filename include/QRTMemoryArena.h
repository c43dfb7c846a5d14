#ifndef QRTMEMORYARENA_H
#define QRTMEMORYARENA_H

#include <ostream>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"
#include "QRTFixedMemoryPool.h"

class QRTLargeBlocks;

/// A general allocator for ordinary memory under one byte budget. Requests up to 8 bytes times the
/// number of bins come from size classes, each a QRTFixedMemoryPool with headers; larger ones come
/// from the C runtime heap one by one. When the budget is spent, a bin that needs a chunk takes a
/// wholly free one from another bin, and a large request releases all wholly free chunks.
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
  /// @throws QRTOutOfMemoryError  a bin cannot obtain a chunk; the budget is not charged
  /// @throws QRTAssertError       a damaged header was found
  /// Cost: constant for a bin that has a free element; for a large block that of the heap's malloc.
  [[gnu::always_inline]] void* alloc(unsigned size) {
    // Size 0 wraps to an index beyond every bin.
    const auto bin = static_cast<unsigned>(size2Index(size));
    void* p = nullptr;
    if (bin < static_cast<unsigned>(m_numVarBins)) {
      p = m_quickRecords[bin]->take();
    }
    return p != nullptr ? p : allocHere(size);
  }

  /// Takes a block back.
  /// @param mem  a block that `alloc` of this arena handed out
  /// @throws QRTAssertError  mem is null, its header is damaged, says that it is free already or
  ///                         belongs elsewhere. A large block that is not this arena's is not
  ///                         released, but its size is credited to the budget.
  /// Cost: constant for a bin element; for a large block that of the heap's free.
  [[gnu::always_inline]] void free(void* mem) {
    // The address tells the bin. The header does too, but everything else would have to wait for
    // it.
    if (!m_table->guess(mem)->put(mem)) {
      freeHere(mem);
    }
  }

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

  /// Writes the statistics as text. Cost: O(elements).
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
  static int size2Index(unsigned size) { return static_cast<int>((size - 1) / kBinStep); }
  static constexpr unsigned kBinStep = 8;  // element sizes of neighbouring bins differ by this

  // What is left of alloc and free: other chunks, large blocks, checks, errors.
  void* allocHere(unsigned size);
  void freeHere(void* mem);
  [[gnu::noinline]] void* allocFromBin(unsigned bin);
  [[gnu::noinline]] void* allocLarge(unsigned size);
  void chooseTable();
  void freeLarge(void* mem, unsigned size);
  bool makeRoom(std::uint64_t total);
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
  QRTLargeBlocks* m_nonBinBlocks;               // headers of the large blocks handed out; owned
  int m_watched;                                // whether a memory checker observes the process
  QRTChunkWindows* m_windows;                   // the chunks of all bins by address; owned
  QRTChunkRecord** m_quickRecords;  // each bin's current chunk where alloc needs not look
                                    // further; owned
  const QRTChunkTable* m_table;     // the same of m_windows for free
};

#endif  // QRTMEMORYARENA_H
