#ifndef LIBTCMALLOC_VIRTUALMM_PENDINGFREES_H
#define LIBTCMALLOC_VIRTUALMM_PENDINGFREES_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "libtcmalloc_virtualmm/PageTable.h"

namespace tcmalloc {

/// The frees of objects whose page could not be read, by page. They are made up for when the page
/// comes into memory; until then the handles count as freed.
///
/// That a handle names an object only its page can tell, so among them may be frees of handles that
/// were stale already, and a page whose objects seem to be freed all is read all the same before it
/// ends. A free takes 8 bytes, in one sorted array: frees come in thousands while a disk fails, and
/// one costs a failed read anyway. How many are remembered is bounded.
class PendingFrees {
 public:
  static constexpr std::size_t kBytes = sizeof(std::uint64_t);  ///< memory that each takes

  /// @param most  frees to remember at a time, at least 1
  explicit PendingFrees(std::size_t most) : m_most(most) {}

  /// Takes another limit. No fewer than are remembered now: none is forgotten for it.
  void SetMost(std::size_t most) { m_most = std::max(most, m_keys.size()); }

  bool Empty() const { return m_keys.empty(); }
  std::size_t Count() const { return m_keys.size(); }

  /// Remembers the free of a handle that is not among them.
  /// @return false when there are as many as there may be, or without memory
  bool Add(std::uint64_t offset) noexcept;

  /// Whether the free of a handle is among them. Cost: O(log n), O(1) while there are none.
  bool Has(std::uint64_t offset) const {
    return !Empty() && std::binary_search(m_keys.begin(), m_keys.end(), KeyOf(offset));
  }

  /// The page to try to read next, in turns, so that one that cannot be read at all holds up no
  /// other; kNoPage when there is none, or when it is not time yet.
  std::uint32_t PageToTry() noexcept;

  /// Notes that a page could be read, whichever: it is time to try.
  void OnRead() noexcept { m_pause = m_lastPause = 0; }

  /// Notes that the page to try could not be read. The next calls of PageToTry wait, the longer the
  /// more often in a row that happened, but not when no further free could be remembered.
  void OnReadFailed() noexcept;

  /// Calls visit(offset) for all of them.
  template <typename Visitor>
  void ForEach(Visitor visit) const {
    for (const std::uint64_t key : m_keys) {
      visit(OffsetOf(key));
    }
  }

  /// Calls apply(offset), which changes nothing here, for the frees of the pages [from, from +
  /// count) and forgets those for which it returns true.
  template <typename Visitor>
  void Apply(std::uint32_t from, std::uint64_t count, Visitor apply) {
    const auto first = FirstOf(from);
    auto last = first;
    auto kept = first;
    for (; last != m_keys.end() && PageOf(*last) - from < count; ++last) {
      if (!apply(OffsetOf(*last))) {
        *kept++ = *last;
      }
    }
    m_keys.erase(kept, last);
  }

 private:
  friend class EngineChecker;
  // An offset turned so that the page comes first: [page 32][byte 16][generation 16].
  static std::uint64_t KeyOf(std::uint64_t offset) { return std::rotl(offset, 16); }
  static std::uint64_t OffsetOf(std::uint64_t key) { return std::rotr(key, 16); }
  static std::uint32_t PageOf(std::uint64_t key) { return static_cast<std::uint32_t>(key >> 32); }

  /// The first key of a page or of those behind it.
  std::vector<std::uint64_t>::iterator FirstOf(std::uint32_t page) {
    return std::lower_bound(m_keys.begin(), m_keys.end(), std::uint64_t{page} << 32);
  }

  static constexpr std::uint32_t kMostPause = 64;

  std::vector<std::uint64_t> m_keys;  // of the freed handles, ascending
  std::size_t m_most;                 // keys to hold at most
  std::uint32_t m_nextPage = 0;       // where the search for the page to try goes on
  std::uint32_t m_pause = 0;          // calls of PageToTry to wait for yet
  std::uint32_t m_lastPause = 0;      // calls that the last failure made wait
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PENDINGFREES_H
