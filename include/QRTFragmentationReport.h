#ifndef QRTFRAGMENTATIONREPORT_H
#define QRTFRAGMENTATIONREPORT_H

#include <cstdint>
#include <ostream>

#include "QRTCore/QRTExport.h"

class QRTMemoryPool;

/// Tells how a QRTMemoryPool's memory is cut up: what is handed out, what is free, in how many
/// pieces of which sizes. Taken at one moment; the pool is not changed.
class QRT_EXPORT QRTFragmentationReport {
 public:
  /// Sizes are counted by powers of two; piece i holds 2^i to 2^(i+1) - 1 bytes, header included.
  static constexpr unsigned kClasses = 36;

  /// Goes through a pool. Cost: O(blocks).
  explicit QRTFragmentationReport(const QRTMemoryPool& pool);

  /// @return heap blocks obtained
  std::uint64_t getHeapBlocks() const { return m_heapBlocks; }
  /// @return bytes of the heap blocks
  std::uint64_t getHeapBytes() const { return m_usedBytes + m_freeBytes; }
  /// @return blocks handed out
  std::uint64_t getUsedBlocks() const { return m_usedBlocks; }
  /// @return bytes of the blocks handed out, headers included
  std::uint64_t getUsedBytes() const { return m_usedBytes; }
  /// @return free blocks
  std::uint64_t getFreeBlocks() const { return m_freeBlocks; }
  /// @return bytes of the free blocks, headers included
  std::uint64_t getFreeBytes() const { return m_freeBytes; }
  /// @return bytes of the largest free block, header included
  std::uint64_t getLargestFree() const { return m_largestFree; }
  /// @return free blocks of 2^i to 2^(i+1) - 1 bytes
  std::uint64_t getFreeOfClass(unsigned i) const { return i < kClasses ? m_histogram[i] : 0; }
  /// @return the part of the free memory that is not in the largest block: 0 is one piece, near 1
  ///         is crumbs; 0 when nothing is free
  double getFragmentation() const;

  /// Writes the figures and the histogram as text.
  void write(std::ostream& os) const;

 private:
  std::uint64_t m_heapBlocks = 0;            // heap blocks obtained
  std::uint64_t m_usedBlocks = 0;            // blocks handed out
  std::uint64_t m_usedBytes = 0;             // their bytes
  std::uint64_t m_freeBlocks = 0;            // free blocks
  std::uint64_t m_freeBytes = 0;             // their bytes
  std::uint64_t m_largestFree = 0;           // bytes of the largest
  std::uint64_t m_histogram[kClasses] = {};  // free blocks by size class
};

#endif  // QRTFRAGMENTATIONREPORT_H
