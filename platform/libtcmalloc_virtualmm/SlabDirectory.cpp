#include "libtcmalloc_virtualmm/SlabDirectory.h"

#include <algorithm>
#include <exception>

namespace tcmalloc {

void SlabDirectory::Open(std::uint32_t frame) {
  Unlink(frame);
  PageEntry& entry = EntryAt(frame);
  ClassState& state = m_states[entry.Kind()];
  state.openSlab = SlabAt(frame);
  state.openEntry = &entry;
  state.openPage = m_arena[frame].page;
}

std::uint32_t SlabDirectory::TakeOut(std::uint8_t sizeClass) {
  std::vector<std::uint32_t>& out = m_states[sizeClass].outVacant;
  while (!out.empty()) {
    const std::uint32_t page = out.back();
    out.pop_back();
    if (const PageEntry* entry = m_table.Fetch(page);
        entry != nullptr && IsUsableOut(sizeClass, *entry)) {
      return page;
    }
  }
  return PageTable::kNoPage;
}

void SlabDirectory::OnSlotFreed(std::uint32_t frame) {
  if (!m_arena[frame].vacantListed) {
    Link(frame);
  }
}

void SlabDirectory::OnPageIn(std::uint32_t frame) {
  PageEntry& entry = EntryAt(frame);
  entry.flags &= static_cast<std::uint8_t>(~PageEntry::kVacant);
  SlabAt(frame)->Load(entry.live);
  if (entry.live.freeSlots > 0) {
    Link(frame);
  }
}

void SlabDirectory::OnPageOut(std::uint32_t frame) {
  Withdraw(frame);
  PageEntry& entry = EntryAt(frame);
  if (std::uint32_t{entry.live.freeSlots} * 4 >= m_classes[entry.Kind()].slots) {
    entry.flags |= PageEntry::kVacant;
    NoteOut(entry.Kind(), m_arena[frame].page);
  }
}

void SlabDirectory::OnRelease(std::uint32_t frame) {
  Withdraw(frame);
  --m_states[EntryAt(frame).Kind()].spans;
}

void SlabDirectory::OnMoved(std::uint32_t from, std::uint32_t to) {
  const Frame& frame = m_arena[to];
  ClassState& state = m_states[m_table[frame.page].Kind()];
  if (frame.vacantListed) {
    if (frame.vacantOlder != kNoFrame) {
      m_arena[frame.vacantOlder].vacantNewer = to;
    }
    (frame.vacantNewer == kNoFrame ? state.newestVacant : m_arena[frame.vacantNewer].vacantOlder) =
        to;
    m_arena[from].vacantListed = 0;
  } else if (state.openSlab == SlabAt(from)) {
    state.openSlab = SlabAt(to);
  }
}

void SlabDirectory::Link(std::uint32_t frame) {
  Frame& f = m_arena[frame];
  ClassState& state = m_states[EntryAt(frame).Kind()];
  f.vacantListed = 1;
  f.vacantOlder = state.newestVacant;
  f.vacantNewer = kNoFrame;
  if (state.newestVacant != kNoFrame) {
    m_arena[state.newestVacant].vacantNewer = frame;
  }
  state.newestVacant = frame;
}

void SlabDirectory::Unlink(std::uint32_t frame) {
  Frame& f = m_arena[frame];
  if (!f.vacantListed) {
    return;
  }
  if (f.vacantOlder != kNoFrame) {
    m_arena[f.vacantOlder].vacantNewer = f.vacantNewer;
  }
  (f.vacantNewer == kNoFrame ? m_states[EntryAt(frame).Kind()].newestVacant
                             : m_arena[f.vacantNewer].vacantOlder) = f.vacantOlder;
  f.vacantListed = 0;
}

void SlabDirectory::Withdraw(std::uint32_t frame) {
  Unlink(frame);
  CloseIfOpen(m_arena[frame].page);
}

void SlabDirectory::CloseIfOpen(std::uint32_t page) {
  ClassState& state = m_states[m_table[page].Kind()];
  if (state.openSlab != nullptr && state.openPage == page) {
    state.openSlab = nullptr;
  }
}

bool SlabDirectory::IsUsableOut(std::uint8_t sizeClass, const PageEntry& entry) {
  return entry.Kind() == sizeClass && !entry.Resident() && (entry.flags & PageEntry::kVacant) != 0;
}

void SlabDirectory::NoteOut(std::uint8_t sizeClass, std::uint32_t page) {
  ClassState& state = m_states[sizeClass];
  std::vector<std::uint32_t>& out = state.outVacant;
  try {
    // A page that came and went stands in the list more than once. When the list outgrows the
    // class's spans, what is known not to hold any more is dropped. What is left is at most every
    // page once, and it has to double before the next time.
    if (out.size() >= std::max(state.tidyAt, 2 * (std::size_t{state.spans} + 8))) {
      std::sort(out.begin(), out.end());
      out.erase(std::unique(out.begin(), out.end()), out.end());
      std::erase_if(out, [&](std::uint32_t p) {
        return m_table.IsIn(p) && !IsUsableOut(sizeClass, m_table[p]);
      });
      state.tidyAt = 2 * out.size();
    }
    out.push_back(page);
  } catch (const std::exception&) {
    // Not noted: its free slots wait until the slab is in memory again.
  }
}

}  // namespace tcmalloc
