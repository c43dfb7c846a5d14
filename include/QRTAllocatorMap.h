#ifndef QRTALLOCATORMAP_H
#define QRTALLOCATORMAP_H

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

class QRTFixedMemoryPool;
class QRTMemoryArena;
class QRTMemoryPool;

/// A picture of an allocator's memory at one moment: one row per chunk of a fixed-size pool or a
/// bin, newest first, or per extent of heap memory of a variable-size pool, and for an arena
/// one row for every 64 large blocks. Drawn as text or as SVG.
class QRT_EXPORT QRTAllocatorMap {
 public:
  /// Cells of a row of the text map.
  static constexpr unsigned kColumns = 80;

  explicit QRTAllocatorMap(const QRTMemoryPool& pool);       ///< Cost: O(blocks).
  explicit QRTAllocatorMap(const QRTFixedMemoryPool& pool);  ///< Cost: O(elements).
  explicit QRTAllocatorMap(const QRTMemoryArena& arena);     ///< Cost: O(elements + large blocks).
  ~QRTAllocatorMap();

  /// @return the number of rows
  unsigned getRows() const;

  /// Writes a legend and one line per row, whose cells are '#' in use, '.' free, '+' some of both,
  /// '!' with a damaged header, ' ' not used for elements.
  void writeText(std::ostream& os) const;

  /// Writes an SVG picture, self-contained, one strip per row.
  void writeSvg(std::ostream& os) const;

 private:
  enum State { eUsed, eFree, eDamaged, eUnused };

  // Neighbouring bytes in one state.
  struct Run {
    std::uint64_t end;  // after the last byte, from the row's start
    State state;
  };

  struct Row {
    std::string label;
    QRTStd::vector<Run> runs;  // in address order, without gaps
  };

  void addPool(const QRTFixedMemoryPool& pool, const std::string& label);
  static void addRun(Row& row, std::uint64_t bytes, State state);
  static char cellOf(const Row& row, std::uint64_t begin, std::uint64_t end);

  QRTStd::vector<Row> m_rows;  // from top to bottom
};

#endif  // QRTALLOCATORMAP_H
