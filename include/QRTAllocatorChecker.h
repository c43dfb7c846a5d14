#ifndef QRTALLOCATORCHECKER_H
#define QRTALLOCATORCHECKER_H

#include <ostream>

#include "QRTCore/QRTExport.h"

class QRTFixedMemoryPool;
class QRTMemoryArena;
class QRTMemoryPool;

/// Verifies what must hold in an allocator between two operations, however it was used. Meant for
/// tests and for hunting a write that went astray; nothing is changed and nothing is raised.
class QRT_EXPORT QRTAllocatorChecker {
 public:
  /// Verifies a pool: its blocks fill its heap memory without a gap, the free list is circular and
  /// ascending with one wrap, holds exactly the free blocks, and no two of them touch.
  /// @param pool  what to verify
  /// @param os    receives one line per violation
  /// @return the number of violations
  /// Cost: O(blocks).
  static unsigned check(const QRTMemoryPool& pool, std::ostream& os);

  /// Verifies a pool: each free list leads through slots of its own chunk, headers say what the
  /// list says, and the current chunk is one of the pool's.
  /// Cost: O(elements).
  static unsigned check(const QRTFixedMemoryPool& pool, std::ostream& os);

  /// Verifies all bins, the headers of large blocks, and that chunks and large blocks add up to
  /// what the budget says is used.
  /// Cost: O(elements + large blocks).
  static unsigned check(const QRTMemoryArena& arena, std::ostream& os);
};

#endif  // QRTALLOCATORCHECKER_H
