#include "libtcmalloc_virtualmm/SlabDirectory.h"

#include <algorithm>
#include <exception>

namespace tcmalloc {

// The lists hold hints: a page stays in one when its slab leaves, ends or fills up, for to find it
// there would cost a search. So each is checked when it is taken. What holds at any time:
//  - A slab in memory that is neither open nor full nor used up is in `vacant`, flagged kListed,
//    unless memory for the list could not be had. A page in the list whose entry is not flagged
//    counts for nothing.
//  - A slab that is out and flagged kVacant is in `pagedOutVacant`, with that exception and
//    another: one whose leaf of the page table could not be read is passed over until it is in
//    memory again.
//  - The open slab is in memory, not listed, and may be full: it is replaced when the next object
//    comes.

void SlabDirectory::Open(std::uint32_t page) {
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(entry.Resident() && entry.Kind() < m_classes.Count());
  LIBTCMALLOC_ASSERT(entry.live.freeSlots > 0 && entry.live.firstFree != 0);
  LIBTCMALLOC_ASSERT(!entry.IsUsedUp());
  entry.flags &= static_cast<std::uint8_t>(~PageEntry::kListed);
  ClassState& state = m_states[entry.Kind()];
  LIBTCMALLOC_ASSERT(!state.HasFreeSlot());
  state.openSlab = SlabAt(entry.where);
  state.openEntry = &entry;
  state.openPage = page;
}

std::uint32_t SlabDirectory::TakeResident(std::uint8_t sizeClass) {
  std::vector<std::uint32_t>& vacant = m_states[sizeClass].vacant;
  while (!vacant.empty()) {
    const std::uint32_t page = vacant.back();
    vacant.pop_back();
    if (IsUsable(sizeClass, page)) {
      LIBTCMALLOC_ASSERT(m_table[page].live.freeSlots > 0);
      m_table[page].flags &= static_cast<std::uint8_t>(~PageEntry::kListed);
      return page;
    }
  }
  return PageTable::kNoPage;
}

std::uint32_t SlabDirectory::TakePagedOut(std::uint8_t sizeClass) {
  std::vector<std::uint32_t>& out = m_states[sizeClass].pagedOutVacant;
  while (!out.empty()) {
    const std::uint32_t page = out.back();
    out.pop_back();
    if (const PageEntry* entry = m_table.Fetch(page);
        entry != nullptr && IsUsablePagedOut(sizeClass, *entry)) {
      return page;
    }
  }
  return PageTable::kNoPage;
}

/// Free slots of a slab whose generations are used up stay empty: an object in one could not be
/// told from one that was there before.
void SlabDirectory::Retire(std::uint32_t page) {
  LIBTCMALLOC_ASSERT(m_table[page].Resident() && m_table[page].IsUsedUp());
  CloseIfOpen(page);
  m_table[page].flags &= static_cast<std::uint8_t>(~PageEntry::kListed);
}

/// Free slots come back with the slab, where SlabPage::Save left them.
void SlabDirectory::OnPageIn(std::uint32_t frame) {
  PageEntry& entry = EntryAt(frame);
  entry.flags &= static_cast<std::uint8_t>(~PageEntry::kVacant);
  SlabAt(frame)->Load(entry.live);
  LIBTCMALLOC_ASSERT(entry.live.freeSlots < m_classes[entry.Kind()].slots);
  LIBTCMALLOC_ASSERT((entry.live.firstFree == 0) == (entry.live.freeSlots == 0));
  if (entry.live.freeSlots > 0 && !entry.IsUsedUp()) {
    NoteVacant(m_arena[frame].page, entry);
  }
}

/// At this point the entry says that the slab is out, but still holds frame and free slots.
void SlabDirectory::OnPageOut(std::uint32_t frame) {
  const std::uint32_t page = m_arena[frame].page;
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(!entry.Resident() && entry.where == frame && entry.live.pinned == 0);
  CloseIfOpen(page);
  entry.flags &= static_cast<std::uint8_t>(~PageEntry::kListed);
  if (std::uint32_t{entry.live.freeSlots} * 4 >= m_classes[entry.Kind()].slots &&
      !entry.IsUsedUp()) {
    entry.flags |= PageEntry::kVacant;
    NotePagedOut(entry.Kind(), page);
  }
}

/// To the far end of the list: taken from the back, a page that cannot be read comes last.
void SlabDirectory::ReturnPagedOut(std::uint8_t sizeClass, std::uint32_t page) {
  if (NotePagedOut(sizeClass, page)) {
    std::vector<std::uint32_t>& out = m_states[sizeClass].pagedOutVacant;
    std::swap(out.front(), out.back());
  }
}

/// Lists a slab that is out and has free slots. Without memory for that they wait until it is in
/// memory again. What a leaf that is out describes is taken for usable.
bool SlabDirectory::NotePagedOut(std::uint8_t sizeClass, std::uint32_t page) {
  ClassState& state = m_states[sizeClass];
  return Note(state.pagedOutVacant, page, state.spans, [&](std::uint32_t noted) {
    return !m_table.IsIn(noted) || IsUsablePagedOut(sizeClass, m_table[noted]);
  });
}

void SlabDirectory::OnRelease(std::uint32_t frame) {
  const std::uint32_t page = m_arena[frame].page;
  LIBTCMALLOC_ASSERT(m_states[m_table[page].Kind()].spans > 0);
  LIBTCMALLOC_ASSERT(m_table[page].live.pinned == 0);
  CloseIfOpen(page);
  --m_states[m_table[page].Kind()].spans;
}

void SlabDirectory::OnMoved(std::uint32_t from, std::uint32_t to) {
  LIBTCMALLOC_ASSERT(from != to && EntryAt(to).where == from);
  ClassState& state = m_states[EntryAt(to).Kind()];
  if (state.openSlab == SlabAt(from)) {
    state.openSlab = SlabAt(to);
  }
}

void SlabDirectory::CloseIfOpen(std::uint32_t page) {
  ClassState& state = m_states[m_table[page].Kind()];
  if (state.openSlab != nullptr && state.openPage == page) {
    state.openSlab = nullptr;
  }
}

/// Lists a slab in memory with free slots. Without memory for that it waits for its next freed
/// slot.
void SlabDirectory::NoteVacant(std::uint32_t page, PageEntry& entry) {
  ClassState& state = m_states[entry.Kind()];
  entry.flags |= PageEntry::kListed;
  if (!Note(state.vacant, page, state.spans,
            [&](std::uint32_t noted) { return IsUsable(entry.Kind(), noted); })) {
    entry.flags &= static_cast<std::uint8_t>(~PageEntry::kListed);
  }
}

bool SlabDirectory::IsUsable(std::uint8_t sizeClass, std::uint32_t page) {
  const PageEntry& entry = m_table[page];
  return entry.state == sizeClass && (entry.flags & PageEntry::kListed) != 0;
}

bool SlabDirectory::IsUsablePagedOut(std::uint8_t sizeClass, const PageEntry& entry) {
  return entry.Kind() == sizeClass && !entry.Resident() && (entry.flags & PageEntry::kVacant) != 0;
}

/// Adds a page to a list. @return false without memory
template <typename Predicate>
bool SlabDirectory::Note(std::vector<std::uint32_t>& list, std::uint32_t page, std::uint32_t spans,
                         Predicate isUsable) {
  if (list.size() == list.capacity()) [[unlikely]] {
    // A page that came and went stands in the list more than once. When the list is full and
    // outgrows the class's spans, what no longer holds is dropped; that happens at most once in
    // `spans` notes.
    if (list.size() >= 2 * (std::size_t{spans} + 8)) {
      std::sort(list.begin(), list.end());
      list.erase(std::unique(list.begin(), list.end()), list.end());
      std::erase_if(list, [&](std::uint32_t noted) { return !isUsable(noted); });
    }
    try {
      list.push_back(page);
    } catch (const std::exception&) {
      return false;
    }
    return true;
  }
  list.push_back(page);
  return true;
}

}  // namespace tcmalloc
