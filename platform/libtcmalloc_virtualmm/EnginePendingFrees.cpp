// Frees of objects that are not in memory, also while their pages cannot be read.

#include "libtcmalloc_virtualmm/Engine.h"

namespace tcmalloc {

namespace {

// Spans that one read brings in begin within so many pages.
constexpr std::uint32_t kReadPages = PagingFile::kMaxSlices;

}  // namespace

/// Frees an object that is large, or whose slab is out, or that there is not:
///  1. Apply earlier frees whose page can be read now.
///  2. A large object ends without a read.
///  3. Only its slab proves that a handle names an object, so the slab is read.
///  4. What cannot be read now is freed later.
void Engine::DeallocatePagedOut(std::uint64_t offset) noexcept {
  // Step 1. The read for them may bring this one's slab in, too.
  RetryPendingFrees();
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    DeallocateSlot(offset, slot);
    return;
  }
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (m_pendingFrees.Has(offset) || !m_table.Has(handle.page)) {
    Refuse(offset);
    return;
  }
  if (m_table.Fetch(handle.page) == nullptr) {
    DeallocateLater(offset);
    return;
  }
  // Step 2.
  if (PageEntry* entry = FindLarge(handle)) {
    DeallocateLarge(handle, *entry);
    return;
  }
  // Steps 3 and 4.
  if (!IsInPagedOutSlab(handle)) {
    Refuse(offset);
  } else if (!PageIn(handle.page)) {
    DeallocateLater(offset);
  } else {
    if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
      DeallocateSlot(offset, slot);
    } else {
      Refuse(offset);
    }
    OnPagedInUnpinned(handle.page);
  }
}

/// Remembers a free whose page cannot be read, why has been noted. Where that is not possible the
/// object stays allocated and its handle good.
void Engine::DeallocateLater(std::uint64_t offset) noexcept {
  if (m_pendingFrees.Add(offset)) {
    --m_currentObjects;
    Fail(std::uint64_t{1} << m_pageShift);
    return;
  }
  m_error.NoteObject(offset,
                     "its page cannot be read, and no more frees can be remembered until one of "
                     "theirs can; it stays allocated and can be freed later");
}

/// Has the pager bring a span in, and ends what was to be freed in it and in those that came along.
/// A slab may be gone with that.
bool Engine::PageIn(std::uint32_t page) noexcept {
  if (!m_pager.PageIn(page)) {
    return false;
  }
  if (!m_pendingFrees.Empty()) {
    m_pendingFrees.OnRead();
    ApplyPendingFrees(page);
  }
  return true;
}

/// What follows when a span was brought in, but no object of it pinned: no unpin will come.
void Engine::OnPagedInUnpinned(std::uint32_t page) noexcept {
  const PageEntry& entry = m_table[page];
  if (entry.Resident() && entry.live.pinned == 0 && entry.Notifies()) {
    m_pager.OnLastUnpin(page);
  }
}

/// Tries to read one page of the pending frees. When the disk works again, every object that is
/// made in a new slab, and every free of one that is out, gives one page back.
void Engine::RetryPendingFrees() noexcept {
  const std::uint32_t page = m_pendingFrees.PageToTry();
  if (page == PageTable::kNoPage) {
    return;
  }
  const PageEntry* entry = m_table.Fetch(page);
  const bool isOut = entry != nullptr && entry->Kind() < PageEntry::kLarge && !entry->Resident();
  if (entry == nullptr || (isOut && !m_pager.PageIn(page))) {
    m_pendingFrees.OnReadFailed();
    return;
  }
  m_pendingFrees.OnRead();
  ApplyPendingFrees(page);
  if (isOut) {
    OnPagedInUnpinned(page);
  }
}

/// Ends what was to be freed in the spans that one read from `page` on can have brought in. The
/// first of them stays in memory meanwhile, though that may give back what exceeds the budget: the
/// caller is about to pin it.
void Engine::ApplyPendingFrees(std::uint32_t page) noexcept {
  const auto apply = [this](std::uint64_t offset) { return ApplyPendingFree(offset); };
  m_pendingFrees.Apply(page, 1, apply);
  if (PageEntry& entry = m_table[page]; entry.Resident()) {
    ++entry.live.pinned;
    m_pendingFrees.Apply(page + 1, kReadPages - 1, apply);
    --entry.live.pinned;
  }
}

/// Ends what was to be freed if that can be done now. A handle that names nothing was stale when it
/// was freed, and its count is taken back. @return false when its page is not in memory
bool Engine::ApplyPendingFree(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.IsIn(handle.page) || IsInPagedOutSlab(handle)) {
    return false;
  }
  ++m_currentObjects;
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    DeallocateSlot(offset, slot);
  } else if (IsLarge(handle)) {
    DeallocateLarge(handle, m_table[handle.page]);
  } else {
    ++m_staleHandles;
  }
  return true;
}

}  // namespace tcmalloc
