#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstdint>

#include "QRTFixedMemoryPool.h"

/// Finds the newest chunk with a free element without visiting the others.
///
/// A pool hands out from the first chunk of its list, newest first, that has a free element. When
/// thousands of chunks are full, walking the list costs a cache miss each; under a steady load of
/// frees and allocations every allocation would pay that. The index numbers the chunks by age and
/// keeps one bit for each that may have a free element, with a summary bit over every 64.
///
///     m_chunks    age -> chunk, null where one was removed
///     m_mayHave   one bit per age: the chunk may have a free element
///     m_summary   one bit per word of m_mayHave that is not zero
///     m_ages      chunk address -> age + 1, open addressing, 0 where empty
///
/// A bit is set when a chunk gets a free element and cleared when a search finds the chunk full,
/// so that neither the common alloc nor the common free touches the index. All of it lives in one
/// block of the C runtime heap: about 17 bytes for a chunk of 32,760.
class QRTChunkIndex {
 public:
  using Chunk = QRTFixedMemoryPool::Chunk;

  QRTChunkIndex() = default;
  ~QRTChunkIndex();
  QRTChunkIndex(const QRTChunkIndex&) = delete;
  QRTChunkIndex& operator=(const QRTChunkIndex&) = delete;

  /// Adds a chunk as the newest one, as one that may have a free element.
  /// @return false when memory cannot be had; the index is then unchanged
  bool add(Chunk* chunk) noexcept;

  /// Adds all chunks of a list, the newest first, to an empty index.
  /// @return false when memory cannot be had; the index is then empty
  bool addAll(Chunk* newest) noexcept;

  /// Removes a chunk, if it is here.
  void remove(const Chunk* chunk) noexcept;

  /// Notes that a chunk that was full has a free element.
  void noteFree(const Chunk* chunk) noexcept;

  /// @return the newest chunk with a free element, or null. Cost: constant plus the chunks that
  ///         became full since they were noted.
  Chunk* newestWithFree() noexcept;

  /// Whether a chunk is in the index.
  bool contains(const void* chunk) const noexcept { return findAge(chunk) != 0; }

 private:
  bool rebuild(unsigned capacity) noexcept;
  void enter(unsigned age, Chunk* chunk) noexcept;
  void setBit(unsigned age) noexcept;
  unsigned findAge(const void* chunk) const noexcept;
  unsigned firstPlace(const void* chunk) const noexcept;

  unsigned m_capacity = 0;             // ages there is room for: a power of two, at least 64
  unsigned m_used = 0;                 // ages given out
  unsigned m_live = 0;                 // chunks in the index
  Chunk** m_chunks = nullptr;          // start of the one block; owned
  std::uint64_t* m_mayHave = nullptr;  // m_capacity / 64 words
  std::uint64_t* m_summary = nullptr;  // one word per 64 of those
  std::uint32_t* m_ages = nullptr;     // m_capacity * 2 entries
};

#endif  // QRTCHUNKINDEX_H
