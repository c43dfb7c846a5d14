#ifndef QRTVIRTUALBLOCKS_H
#define QRTVIRTUALBLOCKS_H

#include "QRTCore/QRTExport.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPin.h"

/// A sequence of blocks of equal size in a store, numbered from 0, that grows and shrinks at its
/// end. It is what the containers keep their elements in: it knows no elements, only bytes.
///
/// Blocks are found through a directory that is stored as well, a tree of nodes with 512 entries,
/// so that the process keeps nothing but this object however long the sequence is. A block's bytes
/// stay where they are when the sequence grows: an address lives as long as its pin.
///
/// Whatever a directory node or a block costs to read back comes on top of what is said below.
class QRT_EXPORT QRTVirtualBlocks {
 public:
  /// The most blocks of a sequence. A store has room for less.
  static constexpr unsigned long long kMaxCount = 1ULL << 32;

  /// Makes an empty sequence. Nothing is stored before the first block.
  /// @param memMgr     the store; must outlive the sequence
  /// @param blockSize  bytes of a block, from 1
  QRTVirtualBlocks(QRTVirtualMemoryMgr& memMgr, unsigned int blockSize) noexcept
      : m_memMgr(&memMgr), m_blockSize(blockSize) {}

  /// Gives everything back, as `shrink` to 0 does.
  ~QRTVirtualBlocks() { shrink(0); }

  /// Takes another sequence over, its store included; the other one is empty then and can be used.
  QRTVirtualBlocks(QRTVirtualBlocks&& other) noexcept
      : QRTVirtualBlocks(*other.m_memMgr, other.m_blockSize) {
    swap(other);
  }
  /// The same. What this sequence held is given back.
  QRTVirtualBlocks& operator=(QRTVirtualBlocks&& other) noexcept {
    QRTVirtualBlocks(static_cast<QRTVirtualBlocks&&>(other)).swap(*this);
    return *this;
  }
  QRTVirtualBlocks(const QRTVirtualBlocks&) = delete;
  QRTVirtualBlocks& operator=(const QRTVirtualBlocks&) = delete;

  /// Exchanges everything, the stores included. Pins stay good.
  void swap(QRTVirtualBlocks& other) noexcept;

  /// @return the store
  QRTVirtualMemoryMgr& getMemoryMgr() const noexcept { return *m_memMgr; }
  /// @return blocks there are
  unsigned long long getCount() const noexcept { return m_count; }

  /// Adds blocks of zero bytes at the end, unpinned, until there are `count`; does nothing when
  /// there are as many already.
  /// @param count  blocks wanted, up to kMaxCount
  /// @throws QRTOutOfMemoryError when no room can be had, or for more than kMaxCount
  /// @throws QRTAssertError when a directory node cannot be read back
  /// Nothing has changed then. Cost: O(blocks added); may write pages to disk.
  void grow(unsigned long long count);

  /// Frees blocks at the end, pinned or not, until there are `count`; does nothing when there are
  /// no more than that. Blocks that hang on a directory node which cannot be read back stay in the
  /// store until it ends.
  /// Cost: O(blocks freed); no block is read for it, and of the directory one node for 512 blocks.
  void shrink(unsigned long long count) noexcept;

  /// Pins a block for writing.
  /// @param block  its number, below `getCount`
  /// @return a pin that is not empty
  /// @throws QRTAssertError, which names the block, when it or a directory node cannot be read back
  /// Cost: O(1), some ten nanoseconds when all is in memory.
  QRTVirtualPin<unsigned char> pin(unsigned long long block) const;

  /// Pins a block for reading, as above.
  QRTVirtualPin<const unsigned char> pinForReading(unsigned long long block) const;

  /// Finds a block in memory without pinning it.
  /// @param block  its number
  /// @param mode   non-zero when it may be changed through the address
  /// @return its address, valid until anything else is asked of the store; null, which says nothing
  ///         about the block, when it has to be pinned instead
  /// Cost: O(1), some nanoseconds.
  void* find(unsigned long long block, int mode) const noexcept;

  /// Tells that a block will be pinned soon; see QRTVirtualMemoryMgr::prefetch. Does nothing for
  /// one that there is not.
  void prefetch(unsigned long long block) const noexcept;

 private:
  class Growth;

  static constexpr unsigned long long kNone = ~0ULL;

  void addBlock();
  void removeBlock() noexcept;
  unsigned long long tryLookUp(unsigned long long block, unsigned int level) const noexcept;
  unsigned long long offsetOf(unsigned long long block) const noexcept;
  [[noreturn]] void raiseUnreadable(unsigned long long block, const char* what) const;

  QRTVirtualMemoryMgr* m_memMgr;   // the store, not owned
  unsigned long long m_root = 0;   // offset of the directory's top node; of the block without one
  unsigned long long m_count = 0;  // blocks
  unsigned int m_blockSize;        // bytes of a block
  unsigned int m_height = 0;       // levels of the directory; none for a single block
  mutable unsigned long long m_lastBlock = kNone;  // block that was looked up last
  mutable unsigned long long m_lastOffset = 0;     // its offset
};

#endif  // QRTVIRTUALBLOCKS_H
