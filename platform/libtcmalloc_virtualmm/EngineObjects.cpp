// Allocation and freeing of objects.

#include <algorithm>

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

/// Whether an object of `size` bytes may lie there: at a multiple of the largest power of two that
/// divides its size, up to 16.
[[maybe_unused]] bool IsAligned(const void* address, std::uint32_t size) {
  return reinterpret_cast<std::uintptr_t>(address) % std::min(size & (0U - size), 16U) == 0;
}

}  // namespace

// ---- allocate -----------------------------------------------------------------------------------

void* Engine::Allocate(std::uint32_t size, std::uint64_t& offset) noexcept {
  size = std::max(size, 1U);
  const std::uint8_t sizeClass = m_classes.ClassFor(size);
  if (sizeClass == SizeClasses::kLarge || !m_slabs[sizeClass].HasFreeSlot()) [[unlikely]] {
    return AllocateInOtherSpan(size, sizeClass, offset);
  }
  return TakeSlot(sizeClass, size, offset);
}

/// Makes a large object, or one of a class whose open slab is full. All that takes further memory
/// comes this way, so it is here that pending frees get another chance to give theirs back.
void* Engine::AllocateInOtherSpan(std::uint32_t size, std::uint8_t sizeClass,
                                  std::uint64_t& offset) noexcept {
  RetryPendingFrees();
  void* address = nullptr;
  if (sizeClass == SizeClasses::kLarge) {
    address = AllocateLarge(size, offset);
  } else if (OpenSlab(sizeClass)) {
    address = TakeSlot(sizeClass, size, offset);
  }
  return address != nullptr ? address : Fail(size);
}

/// Makes an object, pinned, in a free slot of the class's open slab. The open slab is in memory and
/// the directory knows its entry, so neither page table nor frame is looked up. A new object counts
/// as written: its span is touched as modified, after which its pin has nothing to note and is
/// deferred.
inline void* Engine::TakeSlot(std::uint8_t sizeClass, std::uint32_t size,
                              std::uint64_t& offset) noexcept {
  SlabDirectory::ClassState& state = m_slabs[sizeClass];
  PageEntry& entry = *state.openEntry;
  LIBTCMALLOC_ASSERT(entry.state == sizeClass && &entry == &m_table[state.openPage]);
  LIBTCMALLOC_ASSERT(state.openSlab == SlabPage::At(m_arena.Address(entry.where)));
  ObjectHeader* header =
      state.openSlab->Take(entry.live, entry.generation, size, m_classes[sizeClass]);
  if (!IsTouched(entry)) {
    entry.Touch(m_pager.Epoch(), true);
  }
  ++state.liveObjects;
  CountObject();
  offset =
      ObjectHandle{state.openPage, ObjectHandle::ByteOf(header->tag), entry.generation}.Encode();
  const Slot slot{&entry, header};
  LIBTCMALLOC_ASSERT(offset != 0 && FindInMemory(offset).header == header);
  LIBTCMALLOC_ASSERT(IsAligned(header + 1, size));
  return m_deferred.IsFree(0) && IsTouched(entry) ? PinDeferred(0, slot, offset)
                                                  : PinSlot(slot, offset);
}

inline void Engine::CountObject() noexcept {
  ++m_allObjects;
  m_maxObjects = std::max(m_maxObjects, ++m_currentObjects);
}

/// Finds the slab that the class's next objects come from, the cheapest first:
///  1. One in memory with free slots.
///  2. One that is out with at least a quarter of its slots free. Pending frees that its read
///     applies may end it, use its generations up, or open another one.
///  3. A new one.
bool Engine::OpenSlab(std::uint8_t sizeClass) noexcept {
  if (m_slabs[sizeClass].HasFreeSlot()) {
    return true;  // pending frees opened one
  }
  // Step 1.
  std::uint32_t page = m_slabs.TakeResident(sizeClass);
  bool found = page != PageTable::kNoPage;
  // Step 2.
  while (!found && (page = m_slabs.TakePagedOut(sizeClass)) != PageTable::kNoPage) {
    if (!PageIn(page)) {
      m_slabs.ReturnPagedOut(sizeClass, page);
      break;  // one failed read is enough
    }
    found = m_table[page].state == sizeClass && !m_table[page].IsUsedUp();
    if (m_slabs[sizeClass].HasFreeSlot()) {
      return true;
    }
  }
  // Step 3.
  if (!found) {
    const SizeClass& c = m_classes[sizeClass];
    page = MakeSpan(c.pages, sizeClass, 0);
    if (page == PageTable::kNoPage) {
      return false;
    }
    char* frame = m_arena.Address(m_table[page].where);
    SlabPage::Format(frame, c, m_table[page].live);
    ObjectGuard::HideSlab(frame, c);
    ++m_slabs[sizeClass].spans;
  }
  m_slabs.Open(page);
  return true;
}

/// Makes a large object, pinned: one object in a span of its own. Its pins are counted in its
/// frame, its bytes in the table.
void* Engine::AllocateLarge(std::uint32_t size, std::uint64_t& offset) noexcept {
  const auto pages =
      static_cast<std::uint32_t>((std::uint64_t{size} + (1U << m_pageShift) - 1) >> m_pageShift);
  const std::uint32_t page = MakeSpan(pages, PageEntry::kLarge, size);
  if (page == PageTable::kNoPage) {
    return nullptr;
  }
  PageEntry& entry = m_table[page];
  LIBTCMALLOC_ASSERT(entry.live.pinned == 0 && m_arena[entry.where].pins == 0);
  entry.live.pinned = 1;
  m_arena[entry.where].pins = 1;
  ++m_largeObjects;
  m_largePages += pages;
  CountObject();
  offset = ObjectHandle{page, kLargeByte, entry.generation}.Encode();
  ObjectGuard::Hide(m_arena.Address(entry.where), std::size_t{pages} << m_pageShift);
  ObjectGuard::Show(m_arena.Address(entry.where), size);
  return m_arena.Address(entry.where);
}

/// Makes a span in memory:
///  1. Take page numbers.
///  2. Set disk space aside for them once the store is larger than the budget.
///  3. Take frames, which may evict other spans.
/// What was done is undone when a step fails.
std::uint32_t Engine::MakeSpan(std::uint32_t pages, std::uint8_t kind,
                               std::uint32_t largeBytes) noexcept {
  // Step 1.
  const std::uint32_t page = m_table.Acquire(pages, kind);
  if (page == PageTable::kNoPage) {
    return PageTable::kNoPage;
  }
  const bool isLarge = kind == PageEntry::kLarge;
  LIBTCMALLOC_ASSERT(isLarge == (largeBytes > 0));
  const bool made = !isLarge || m_table.PrepareLargeBytes(page);
  if (isLarge && made) {
    m_table.LargeBytes(page) = largeBytes;
  }
  // Steps 2 and 3.
  if (made && m_pager.ReserveDiskSpace() && m_pager.PlaceNew(page, pages) != kNoFrame) {
    return page;
  }
  m_table.Release(page, pages);
  return PageTable::kNoPage;
}

// ---- deallocate ---------------------------------------------------------------------------------

void Engine::Deallocate(std::uint64_t offset) noexcept {
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) [[likely]] {
    DeallocateSlot(offset, slot);
    return;
  }
  DeallocatePagedOut(offset);
}

/// Frees an object of a slab in memory, pinned or not; its pins end with it. The slab's generation
/// goes on, so that the freed handle and all older ones fit nothing that is made there later.
void Engine::DeallocateSlot(std::uint64_t offset, Slot slot) noexcept {
  PageEntry& entry = *slot.entry;
  SlabDirectory::ClassState& state = m_slabs[entry.state];
  ObjectGuard::Hide(slot.header + 1, ClassOf(entry).capacity);
  m_deferred.Forget(offset);
  LIBTCMALLOC_ASSERT(m_deferred.Find(offset) == DeferredPins::kPlaces);
  LIBTCMALLOC_ASSERT(state.liveObjects > 0);
  const bool wasPinned = slot.header->IsPinned() && entry.live.pinned != 0;
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  SlabPage::GiveBack(entry.live, slot.header, handle.byte);
  ++entry.generation;
  entry.live.touched |= PageEntry::kModified;
  --m_currentObjects;
  --state.liveObjects;
  if (wasPinned || IsPastLastGeneration(entry.generation) ||
      entry.live.freeSlots == ClassOf(entry).slots) [[unlikely]] {
    FinishFree(handle.page, entry, wasPinned);
  } else if (!state.IsOpen(entry)) {
    m_slabs.OnSlotFreed(handle.page, entry);
  }
}

/// Does what few frees need, after the object's slot was given back:
///  1. The object was pinned: the slab has a pinned object less.
///  2. No generation is left: no further object is made in the slab.
///  3. The slab is empty: it ends, unless its class takes objects from it. Else it is listed as one
///     with free slots, and if the pager waited for this last pin to go, it is told so.
///  4. The slab is empty, ended or not: the file may be cut off.
void Engine::FinishFree(std::uint32_t page, PageEntry& entry, bool wasPinned) noexcept {
  // Step 1.
  LIBTCMALLOC_ASSERT(entry.live.pinned >= (wasPinned ? 1 : 0));
  entry.live.pinned = static_cast<std::uint16_t>(entry.live.pinned - (wasPinned ? 1 : 0));
  // Step 2.
  if (IsPastLastGeneration(entry.generation)) {
    entry.generation = kNoGeneration;
    m_slabs.Retire(page);
  }
  // Step 3.
  const bool open = m_slabs[entry.state].IsOpen(entry);
  const bool empty = entry.live.freeSlots == ClassOf(entry).slots;
  if (empty && !open) {
    m_pager.EndSpan(page);
  } else {
    if (!open && !entry.IsUsedUp()) {
      m_slabs.OnSlotFreed(page, entry);
    }
    if (wasPinned && entry.live.pinned == 0 && entry.Notifies()) {
      m_pager.OnLastUnpin(page);
    }
  }
  // Step 4, the last: it may end this slab, if it is the one that objects are taken from.
  if (empty) {
    m_pager.CutFile();
  }
}

/// Frees a large object, in memory or not: nothing of it has to be read.
void Engine::DeallocateLarge(ObjectHandle handle, PageEntry& entry) noexcept {
  LIBTCMALLOC_ASSERT(m_largeObjects > 0);
  LIBTCMALLOC_ASSERT(m_largePages >= m_pager.SpanPages(handle.page));
  --m_currentObjects;
  --m_largeObjects;
  m_largePages -= m_pager.SpanPages(handle.page);
  ++entry.generation;
  m_pager.EndSpan(handle.page);
  m_pager.CutFile();
}

}  // namespace tcmalloc