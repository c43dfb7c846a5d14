#ifndef QRTCHUNKRECORD_H
#define QRTCHUNKRECORD_H

#include <cstdint>

#include "QRTFixedMemoryPool.h"

/// What a pool with headers knows of one of its chunks without touching it: above all the chunk's
/// free list once more, as a stack of distances.
///
/// The list in the chunk is a chain through memory: which element comes after the next one shows
/// only when the next one's cache line is there. The stack names the elements before their lines
/// are, so that the processor, and a prefetch, can work on several at a time. It costs 2 bytes an
/// element beside the 24 of the record.
struct QRTChunkRecord {
  using Chunk = QRTFixedMemoryPool::Chunk;

  Chunk* chunk;              // the chunk
  QRTFixedMemoryPool* pool;  // whose it is
  unsigned age;              // its place in the pool's QRTChunkIndex
  std::uint16_t free;        // free elements
  std::uint16_t elements;    // elements, free or not: what the stack has room for

  /// Makes a record for a chunk of `elements` elements, none of them free.
  /// @return the record, to be released with `release`; null when memory cannot be had
  static QRTChunkRecord* make(QRTFixedMemoryPool* pool, Chunk* chunk, unsigned elements) noexcept;
  static void release(QRTChunkRecord* record) noexcept;

  /// Where the chunk starts.
  std::uintptr_t start() const { return reinterpret_cast<std::uintptr_t>(chunk); }

  /// Distances from the chunk's start to the areas of the free elements, from entry 1 up to the
  /// one that is handed out next in entry `free`. Entry 0 is 0, which is no area's.
  std::uint16_t* stack() { return reinterpret_cast<std::uint16_t*>(this + 1); }
  const std::uint16_t* stack() const { return reinterpret_cast<const std::uint16_t*>(this + 1); }

  /// Distance of the element that is handed out next; 0 when none is free.
  unsigned head() const { return stack()[free]; }
};

#endif  // QRTCHUNKRECORD_H
