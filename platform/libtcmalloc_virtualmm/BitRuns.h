#ifndef LIBTCMALLOC_VIRTUALMM_BITRUNS_H
#define LIBTCMALLOC_VIRTUALMM_BITRUNS_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

/// A fixed set of bits, one for each free place, searched for runs of free places.
template <std::uint32_t kBits>
class BitRuns {
 public:
  static_assert(kBits % 64 == 0);
  static constexpr std::uint32_t kNone = ~0U;

  /// Marks `count` places from `first` on as free or taken.
  void Mark(std::uint32_t first, std::uint32_t count, bool free) {
    LIBTCMALLOC_ASSERT(first <= kBits && count <= kBits - first);
    while (count > 0) {
      const std::uint32_t bit = first % 64;
      const std::uint32_t here = std::min(count, 64 - bit);
      const std::uint64_t mask = (here == 64 ? ~0ULL : (1ULL << here) - 1) << bit;
      std::uint64_t& word = m_words[first / 64];
      word = free ? word | mask : word & ~mask;
      first += here;
      count -= here;
    }
  }

  bool IsFree(std::uint32_t place) const {
    LIBTCMALLOC_ASSERT(place < kBits);
    return (m_words[place / 64] >> (place % 64) & 1) != 0;
  }

  /// Whether all of `count` places from `first` on are free, or all of them taken.
  bool AreAll(std::uint32_t first, std::uint32_t count, bool free) const {
    return (free ? NextTaken(first) : NextFree(first)) >= first + count;
  }

  /// The lowest run of at least `count` free places at or after `from`, or kNone.
  /// @param longest  receives the longest run met on the way; all of them when there is none
  std::uint32_t Find(std::uint32_t count, std::uint32_t& longest, std::uint32_t from = 0) const {
    longest = 0;
    for (std::uint32_t at = NextFree(from); at < kBits;) {
      const std::uint32_t end = NextTaken(at);
      longest = std::max(longest, end - at);
      if (end - at >= count) {
        return at;
      }
      at = NextFree(end);
    }
    return kNone;
  }

  /// The first free place at or after `from`; kBits when there is none.
  std::uint32_t NextFree(std::uint32_t from) const { return Next(from, 0); }
  /// The first taken place at or after `from`; kBits when there is none.
  std::uint32_t NextTaken(std::uint32_t from) const { return Next(from, ~0ULL); }

  /// The last taken place, or kNone.
  /// @param but  null, or places to pass over: those that are free in it
  std::uint32_t LastTaken(const BitRuns* but = nullptr) const {
    for (std::size_t word = m_words.size(); word-- > 0;) {
      const std::uint64_t taken = ~m_words[word] & ~(but != nullptr ? but->m_words[word] : 0);
      if (taken != 0) {
        return static_cast<std::uint32_t>(word) * 64 + 63 -
               static_cast<std::uint32_t>(std::countl_zero(taken));
      }
    }
    return kNone;
  }

 private:
  std::uint32_t Next(std::uint32_t from, std::uint64_t invert) const {
    if (from >= kBits) {
      return kBits;
    }
    std::size_t word = from / 64;
    std::uint64_t bits = (m_words[word] ^ invert) & (~0ULL << (from % 64));
    while (bits == 0) {
      if (++word == m_words.size()) {
        return kBits;
      }
      bits = m_words[word] ^ invert;
    }
    return static_cast<std::uint32_t>(word) * 64 +
           static_cast<std::uint32_t>(std::countr_zero(bits));
  }

  std::array<std::uint64_t, kBits / 64> m_words{};  // a set bit is a free place
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_BITRUNS_H
