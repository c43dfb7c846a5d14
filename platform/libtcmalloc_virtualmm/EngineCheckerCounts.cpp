// What the engine checks of objects, totals, files and shares of the budget.

#include <algorithm>
#include <functional>

#include "libtcmalloc_virtualmm/EngineChecker.h"

namespace tcmalloc {

/// The open slabs, the lists of slabs with free slots, and the classes' counts.
void EngineChecker::CheckClasses() {
  std::vector<std::vector<std::uint32_t>> vacant;
  for (const SlabDirectory::ClassState& state : m_engine.m_slabs.m_states) {
    vacant.push_back(state.vacant);
    std::sort(vacant.back().begin(), vacant.back().end());
  }
  for (std::uint32_t i = 0; i < m_classes.Count(); ++i) {
    const SlabDirectory::ClassState& state = m_engine.m_slabs.m_states[i];
    const ClassSeen& seen = m_seen[i];
    Require(seen.spans == state.spans || (!m_seesAll && seen.spans < state.spans), "class ", i,
            " counts ", state.spans, " slabs, ", seen.spans, " are there");
    const std::uint64_t unseen =  // objects in slabs whose leaf is out, at most
        std::uint64_t{state.spans - std::min(state.spans, seen.spans)} *
        m_classes[static_cast<std::uint8_t>(i)].slots;
    Require(
        state.liveObjects >= seen.leastObjects && state.liveObjects <= seen.mostObjects + unseen,
        "class ", i, " counts ", state.liveObjects, " objects, its slabs hold ", seen.leastObjects,
        " to ", seen.mostObjects + unseen);
    if (state.openSlab == nullptr) {
      continue;
    }
    const bool isThere = m_table.Has(state.openPage) && m_table.IsIn(state.openPage) &&
                         &m_table[state.openPage] == state.openEntry &&
                         state.openEntry->state == i && m_arena.IsMapped(state.openEntry->where);
    Require(isThere && SlabPage::At(m_arena.Address(state.openEntry->where)) == state.openSlab,
            "class ", i, "'s open slab at page ", state.openPage, " is not there");
  }
  for (const std::uint32_t frame : m_runs) {
    const std::uint32_t page = FrameAt(frame).page;
    if (!m_table.Has(page) || m_table[page].state >= m_classes.Count()) {
      continue;
    }
    const PageEntry& entry = m_table[page];
    const std::vector<std::uint32_t>& list = vacant[entry.state];
    const bool isOpen = m_engine.m_slabs.m_states[entry.state].IsOpen(entry);
    const bool isListed = (entry.flags & PageEntry::kListed) != 0;
    Require(!isListed || (!isOpen && entry.live.freeSlots > 0 &&
                          std::binary_search(list.begin(), list.end(), page)),
            "page ", page, " is flagged as listed and should not be, or is in no list");
    Require(
        isListed || isOpen || entry.live.freeSlots == 0 || entry.IsUsedUp() || m_wasShortOfMemory,
        "page ", page, " has free slots that its class cannot find");
    Require(!entry.IsUsedUp() || (!isListed && !isOpen), "page ", page,
            " has no generation left and takes further objects");
  }
}

/// The deferred pins against the objects they are of.
void EngineChecker::CheckDeferredPins() {
  const DeferredPins& pins = m_engine.m_deferred;
  for (std::uint32_t place = 0; place < DeferredPins::kPlaces; ++place) {
    if (pins.IsFree(place)) {
      continue;
    }
    const std::uint64_t offset = pins.m_offsets[place];
    const ObjectHandle handle = ObjectHandle::Decode(offset);
    const auto [entry, header] = pins.m_slots[place];
    const bool isThere =
        m_table.Has(handle.page) && &m_table[handle.page] == entry &&
        m_classes.IsSlotStart(entry->state, handle.byte) && m_arena.IsMapped(entry->where) &&
        SlabPage::At(m_arena.Address(entry->where))->HeaderAt(handle.byte) == header;
    if (Require(isThere, "the deferred pin of ", offset, " is of no object in memory")) {
      Require(header->tag == ObjectHandle::TagOf(offset) && header->pins == 0,
              "the deferred pin of ", offset, " is of another object or a pinned one");
      Require(!entry->Notifies(), "the last unpin of page ", handle.page,
              " is waited for, and one of its pins is deferred");
    }
  }
}

/// The frees that wait for their page: no object in memory is among them.
void EngineChecker::CheckPendingFrees() {
  const PendingFrees& frees = m_engine.m_pendingFrees;
  Require(frees.m_keys.size() <= frees.m_most, frees.m_keys.size(), " frees wait of at most ",
          frees.m_most);
  Require(std::is_sorted(frees.m_keys.begin(), frees.m_keys.end(), std::less_equal<>()),
          "the frees that wait are not in order");
  frees.ForEach([&](std::uint64_t offset) {
    const ObjectHandle handle = ObjectHandle::Decode(offset);
    if (!Require(m_table.Has(handle.page), "a free of page ", handle.page,
                 " waits, which the table does not have")) {
      return;
    }
    const PageEntry& entry = m_table[handle.page];
    const bool isObject = m_classes.IsSlotStart(entry.state, handle.byte) &&
                          m_arena.IsMapped(entry.where) &&
                          SlabPage::At(m_arena.Address(entry.where))->HeaderAt(handle.byte)->tag ==
                              ObjectHandle::TagOf(offset);
    Require(!isObject, "the free of ", offset, " waits, whose page is in memory");
  });
}

/// The engine's own totals. What waits to be freed counts as freed.
void EngineChecker::CheckCounts() {
  std::uint64_t objects = m_engine.m_largeObjects;
  for (const SlabDirectory::ClassState& state : m_engine.m_slabs.m_states) {
    objects += state.liveObjects;
  }
  objects -= m_engine.m_pendingFrees.Count();
  const auto counted = static_cast<std::uint64_t>(m_engine.m_currentObjects);
  Require(counted == objects, m_engine.m_currentObjects, " objects are counted in all, ", objects,
          " by their kinds");
  Require(m_engine.m_currentObjects <= m_engine.m_maxObjects &&
              static_cast<std::uint64_t>(m_engine.m_maxObjects) <= m_engine.m_allObjects,
          "of ", m_engine.m_allObjects, " objects, ", m_engine.m_maxObjects,
          " were there at a time and ", m_engine.m_currentObjects, " are now");
  Require(m_engine.m_largeObjects == m_largeObjects ||
              (!m_seesAll && m_largeObjects < m_engine.m_largeObjects),
          m_engine.m_largeObjects, " large objects are counted, ", m_largeObjects, " are there");
  Require(
      m_engine.m_largePages == m_largePages || (!m_seesAll && m_largePages < m_engine.m_largePages),
      m_engine.m_largePages, " pages of large objects are counted, ", m_largePages, " are there");
  Require(m_pager.m_clock.m_modified == (m_pager.m_clock.m_now | PageEntry::kModified) &&
              m_pager.m_clock.m_now % PageEntry::kEpochStep == 0,
          "the pager's epoch is ", m_pager.m_clock.m_now, " and ", m_pager.m_clock.m_modified);
}

/// Length and reserved space of both files.
void EngineChecker::CheckFiles() {
  for (const BackingStore* file : {&m_engine.m_store, &m_engine.m_tableStore}) {
    Require(file->m_open || (file->m_fileBytes == 0 && file->m_reservedEnd == 0),
            "a file that is not open has ", file->m_fileBytes, " bytes");
    Require(!file->m_canReserve || file->m_reservedEnd <= file->m_fileBytes, file->m_reservedEnd,
            " bytes are reserved of a file of ", file->m_fileBytes);
  }
  // A damaged leaf's pages stay in use, whatever space could be had for the rest.
  const std::uint64_t end = m_pager.m_file.Offset(m_table.UsedEnd());
  const bool fits = m_table.UsedPages() << m_pager.m_frameShift <= m_pager.BudgetFrames();
  Require(fits || m_table.m_damaged > 0 || m_engine.m_store.m_reservedEnd >= end,
          m_engine.m_store.m_reservedEnd, " bytes are reserved for pages that end at ", end);
}

/// What is a share of the budget, against an engine's that begins with this budget.
void EngineChecker::CheckBudget() {
  const EngineOptions& options = m_engine.m_options;
  const PagerOptions pager = options.ForPager();
  const std::uint64_t frames = m_pager.BudgetFrames();
  Require(frames == pager.budgetFrames, "the budget is ", options.budgetBytes, " bytes and ",
          frames, " frames");
  const EpochClock clock(frames);
  Require(m_pager.m_clock.m_length == clock.m_length, "an epoch has ", m_pager.m_clock.m_length,
          " misses in place of ", clock.m_length);
  const ReplacementPolicy& policy = m_pager.m_policy;
  const ReplacementPolicy fresh(policy.m_table, policy.m_arena, frames);
  Require(policy.m_smallTarget == fresh.m_smallTarget && policy.m_ghostReach == fresh.m_ghostReach,
          "the queues' shares are ", policy.m_smallTarget, " and ", policy.m_ghostReach,
          " in place of ", fresh.m_smallTarget, " and ", fresh.m_ghostReach);
  const std::uint64_t mostBatch = std::max<std::uint64_t>(frames / 8, 1);
  Require(m_pager.m_options.batch <= mostBatch && m_pager.m_options.readAhead <= mostBatch,
          "up to ", m_pager.m_options.batch, " spans are written and ", m_pager.m_options.readAhead,
          " pages read in one go, of ", frames, " frames");
  Require(m_table.m_leafLimit == options.TableLeaves(), "the page table's limit is ",
          m_table.m_leafLimit, " leaves in place of ", options.TableLeaves());
  Require(m_engine.m_pendingFrees.m_most >= options.MostPendingFrees(), "of ",
          m_engine.m_pendingFrees.m_most, " frees to remember there should be ",
          options.MostPendingFrees());
}

}  // namespace tcmalloc
