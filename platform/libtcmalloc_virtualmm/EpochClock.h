#ifndef LIBTCMALLOC_VIRTUALMM_EPOCHCLOCK_H
#define LIBTCMALLOC_VIRTUALMM_EPOCHCLOCK_H

#include <algorithm>
#include <cstdint>

#include "libtcmalloc_virtualmm/PageEntry.h"

namespace tcmalloc {

/// Time as touches are counted: in epochs of so many misses. A span has at most one touch counted
/// an epoch (see ReplacementPolicy), so that many pins in a row are one use of it.
class EpochClock {
 public:
  /// @param budgetFrames  frames that the budget holds: an epoch is an eighth of them in misses
  explicit EpochClock(std::uint64_t budgetFrames) { SetBudget(budgetFrames); }

  /// Goes on in the current epoch with another length.
  void SetBudget(std::uint64_t budgetFrames) {
    m_length = std::max<std::uint64_t>(1, budgetFrames / kShare);
  }

  /// The current epoch, as PageEntry::Live::touched has it: a multiple of kEpochStep, wrapping
  /// round.
  std::uint16_t Now() const { return m_now; }
  /// What PageEntry::Live::touched is for a modified span touched in the current epoch.
  std::uint16_t Modified() const { return m_modified; }

  void OnMiss() {
    if (++m_misses >= m_length) {
      m_misses = 0;
      m_now += PageEntry::kEpochStep;
      m_modified = m_now | PageEntry::kModified;
    }
  }

 private:
  friend class EngineChecker;
  static constexpr std::uint64_t kShare = 8;

  std::uint64_t m_length = 1;                       // misses in an epoch
  std::uint64_t m_misses = 0;                       // misses of this epoch so far
  std::uint16_t m_now = 0;                          // the current epoch
  std::uint16_t m_modified = PageEntry::kModified;  // m_now with kModified, for the hot path
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_EPOCHCLOCK_H
