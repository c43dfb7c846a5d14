#ifndef LIBTCMALLOC_VIRTUALMM_ENGINEOPTIONS_H
#define LIBTCMALLOC_VIRTUALMM_ENGINEOPTIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "libtcmalloc_virtualmm/Pager.h"

namespace tcmalloc {

/// How an engine is set up. Hosts give the budget and the directory; the rest is for tests and
/// measurements. The functions tell what follows for the engine's parts.
struct EngineOptions {
  std::uint64_t budgetBytes = 0;      ///< bytes of pages to keep in memory
  std::uint32_t pageSize = 0;         ///< 4,096, 8,192 or 16,384; 0 chooses by budget and system
  std::uint32_t minimumFrames = 256;  ///< the budget is raised to this many frames of 4 KiB
  std::uint32_t batch = 8;            ///< most spans written in one go, 1 to 16
  std::uint32_t readAhead = 16;       ///< most pages read in one go, 1 to 64
  std::uint32_t tableLeaves = 0;      ///< leaves of the page table in memory; 0 chooses by budget
  bool encrypted = false;             ///< encrypt what is written, see MakeStoreFiles
  bool moveOnUnpin = false;  ///< move every span at its last unpin, to catch kept addresses
  std::optional<std::uint16_t> firstGeneration;  ///< below kFirstGenerations; none draws one

  /// The set-up with another budget, cut to what an engine can make use of.
  EngineOptions WithBudget(std::uint64_t bytes) const;

  /// log2 of the page size.
  std::uint32_t PageShift() const;
  /// Whether memory comes in huge pages.
  bool HugePages() const;
  /// Leaves that the page table may keep in memory.
  std::uint32_t TableLeaves() const;
  /// The generation that new pages begin with.
  std::uint16_t FirstGeneration() const;
  /// Most frees to remember while their pages cannot be read.
  std::size_t MostPendingFrees() const;
  PagerOptions ForPager() const;
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINEOPTIONS_H
