#ifndef QRTCHUNKINDEX_H
#define QRTCHUNKINDEX_H

#include <cstddef>
#include <vector>

#include "QRTChunkRecord.h"

/// A chunk with a free element, and the words of the QRTChunkIndex that say so.
struct QRTChunkFound {
  QRTChunkRecord* record;
  std::size_t* has;
  std::size_t* summary;
};

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

  /// Finds the newest chunk with a free element; only for an index that has had chunks.
  /// @return false when there is none
  /// Cost: constant up to 4,096 chunks (1,024 where a word has 32 bits), then one more step for
  /// each as many newer ones that are full.
  [[gnu::always_inline]] bool findNewest(QRTChunkFound& found) noexcept {
    std::size_t top = m_top;
    while (m_summary[top] == 0) {
      if (top-- == 0) {
        return false;
      }
    }
    const std::size_t word = top * kBits + newestIn(m_summary[top]);
    found = {m_records[word * kBits + newestIn(m_has[word])], &m_has[word], &m_summary[top]};
    return true;
  }

  /// Does what QRTChunkRecord::noteFull does for the chunk that was found last. Its bits are the
  /// lowest ones of their words, so the next search needs not wait for the record.
  [[gnu::always_inline]] static void noteFull(const QRTChunkFound& found) noexcept {
    const std::size_t others = *found.has & (*found.has - 1);
    const std::size_t words = *found.summary;
    *found.has = others;
    *found.summary = others != 0 ? words : words & (words - 1);
  }

 private:
  static constexpr std::size_t kBits = sizeof(std::size_t) * 8;

  // Newer chunks have lower bits in a word: processors find the lowest bit at once.
  static unsigned bitOf(std::size_t age) { return kBits - 1 - age % kBits; }
  static std::size_t newestIn(std::size_t word) {
    if constexpr (sizeof word == sizeof(unsigned long long)) {
      return (kBits - 1) ^ static_cast<unsigned>(__builtin_ctzll(word));
    } else {
      return (kBits - 1) ^ static_cast<unsigned>(__builtin_ctz(word));
    }
  }

  void place(QRTChunkRecord* record, std::size_t age) noexcept;
  void placeAll() noexcept;

  std::vector<QRTChunkRecord*> m_records;  // by age, null where one was removed; owned
  std::vector<std::size_t> m_has;          // one bit per age: the chunk has a free element
  std::vector<std::size_t> m_summary;      // one bit per word of m_has that is not zero
  unsigned m_top = 0;                      // last word of m_summary
  std::size_t m_live = 0;                  // chunks in the index
};

#endif  // QRTCHUNKINDEX_H
