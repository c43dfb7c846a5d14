#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstdint>
#include <vector>

#include "QRTChunkRecord.h"

/// The chunks of a pool by age, and the newest one with a free element, without touching any.
///
/// A pool hands out from the first chunk of its list, newest first, that has a free element. In a
/// large pool each look at a chunk is a cache miss, all the more as the links of the list lie 32
/// KiB apart and compete for the same few cache sets. The index numbers the chunks by age and keeps
/// a bit for each that has a free element. Nothing here depends on which chunks these are by a
/// branch: that is anybody's guess, and a wrong one waits for the address of what was freed.
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

  static constexpr unsigned kNoAge = UINT32_MAX;

  /// @return the age of the newest chunk with a free element, or kNoAge; only for an index that has
  ///         chunks
  /// Cost: constant up to 4,096 chunks, then one more step for each 4,096 newer ones that are full.
  [[gnu::always_inline]] unsigned newestWithFree() const noexcept {
    const std::uint64_t summary = m_summary[m_top];
    return summary != 0 ? newestOf(m_top, summary) : searchNewest();
  }

  /// @return the chunk of an age that `newestWithFree` gave
  QRTChunkRecord* at(unsigned age) const noexcept { return m_records[age]; }

  /// Does what QRTChunkRecord::noteFull does, without a look at the record: the next search for the
  /// newest chunk depends on it, and would have to wait.
  void noteFull(unsigned age) noexcept {
    const unsigned word = age / kBits;
    QRTChunkRecord::clear(m_has[word], std::uint64_t{1} << (age % kBits), m_summary[word / kBits],
                          std::uint64_t{1} << (word % kBits));
  }

 private:
  static constexpr unsigned kBits = 64;

  static unsigned highest(std::uint64_t word) {
    return static_cast<unsigned>(__builtin_clzll(word)) ^ 63;
  }
  unsigned newestOf(unsigned top, std::uint64_t summary) const noexcept {
    const unsigned word = top * kBits + highest(summary);
    return word * kBits + highest(m_has[word]);
  }

  [[gnu::noinline]] unsigned searchNewest() const noexcept;
  void place(QRTChunkRecord* record, std::size_t age) noexcept;
  void placeAll() noexcept;

  std::vector<QRTChunkRecord*> m_records;  // by age, null where one was removed; owned
  std::vector<std::uint64_t> m_has;        // one bit per age: the chunk has a free element
  std::vector<std::uint64_t> m_summary;    // one bit per word of m_has that is not zero
  unsigned m_top = 0;                      // last word of m_summary
  std::size_t m_live = 0;                  // chunks in the index
};

#endif  // QRTCHUNKINDEX_H
