#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstdint>
#include <vector>

#include "QRTChunkRecord.h"

/// The chunks of a pool by age, and the newest one with a free element, without touching any.
///
/// A pool hands out from the first chunk of its list, newest first, that has a free element. In a
/// large pool each look at a chunk is a cache miss, all the more as trailers lie 32 KiB apart and
/// compete for the same few cache sets. The index numbers the chunks by age and keeps a bit for
/// each: set at every free, cleared when a search finds the chunk full.
class QRTChunkIndex {
 public:
  QRTChunkIndex() = default;
  ~QRTChunkIndex();
  QRTChunkIndex(const QRTChunkIndex&) = delete;
  QRTChunkIndex& operator=(const QRTChunkIndex&) = delete;

  /// Adds a chunk as the newest one; its record is the index's from then on.
  /// @return false when memory cannot be had; the record is still the caller's
  bool add(QRTChunkRecord* record) noexcept;

  /// Takes a chunk out and releases its record.
  void remove(QRTChunkRecord* record) noexcept;

  /// Notes that an element of a chunk was given back.
  void noteFree(const QRTChunkRecord* record) noexcept { setBit(record->age); }

  /// Notes that a chunk has no free element left.
  void noteFull(const QRTChunkRecord* record) noexcept {
    m_mayHave[record->age / kBits] &= ~bitOf(record->age);
  }

  /// @return the newest chunk with a free element, or null; only for an index that has chunks
  /// Cost: constant, plus the chunks that became full since they were noted.
  [[gnu::always_inline]] QRTChunkRecord* newestWithFree() noexcept {
    const std::uint64_t summary = m_summary[m_top];
    if (summary != 0) {
      const unsigned word = m_top * kBits + highest(summary);
      const std::uint64_t mayHave = m_mayHave[word];
      if (mayHave != 0) {
        QRTChunkRecord* const record = m_records[word * kBits + highest(mayHave)];
        if (record->free != 0) {
          return record;
        }
      }
    }
    return searchNewest();
  }

 private:
  static constexpr unsigned kBits = 64;

  static constexpr std::uint64_t bitOf(unsigned index) {
    return std::uint64_t{1} << (index % kBits);
  }
  static unsigned highest(std::uint64_t word) {
    return static_cast<unsigned>(__builtin_clzll(word)) ^ 63;
  }
  void setBit(unsigned age) noexcept {
    m_mayHave[age / kBits] |= bitOf(age);
    m_summary[age / kBits / kBits] |= bitOf(age / kBits);
  }

  [[gnu::noinline]] QRTChunkRecord* searchNewest() noexcept;
  void renumber() noexcept;

  std::vector<QRTChunkRecord*> m_records;  // by age, null where one was removed; owned
  std::vector<std::uint64_t> m_mayHave;    // one bit per age: the chunk may have a free element
  std::vector<std::uint64_t> m_summary;    // one bit per word of m_mayHave that may not be zero
  unsigned m_top = 0;                      // last word of m_summary
  std::size_t m_live = 0;                  // chunks in the index
};

#endif  // QRTCHUNKINDEX_H
