#include "libtcmalloc_virtualmm/Engine.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

constexpr std::uint32_t kSmallPage = 4096;
constexpr std::uint32_t kLargePage = 16384;

// From this budget on a 32-bit process uses large pages: its page table has to fit into its
// address space together with everything else.
constexpr std::uint64_t kLargePageBudget = 64U << 20;

// From this budget on memory comes in huge pages: what a chunk takes too much is little beside it.
constexpr std::uint64_t kHugePageBudget = 64U << 20;

// The page table may take this share of the budget, which goes for stores 32 times the budget, and
// half a gigabyte's worth at least. A leaf is 1 KiB.
constexpr std::uint64_t kTableShare = 8;
constexpr std::uint64_t kLeastTableBytes = 2U << 20;

constexpr const char* kDamagedHeader =
    "its header is damaged: bytes were written past the end of the object before it";

std::uint32_t ChooseTableLeaves(const EngineOptions& options) {
  constexpr std::uint64_t kLeafBytes = PageTable::kLeafPages * sizeof(PageEntry);
  const std::uint64_t bytes = std::max(options.budgetBytes / kTableShare, kLeastTableBytes);
  return options.tableLeaves != 0 ? options.tableLeaves
                                  : static_cast<std::uint32_t>(bytes / kLeafBytes);
}

// The frees that wait for their pages may take this share of the budget, within these bounds: 8,192
// of them at the least, 131,072 at the most, for which a new one still finds its place quickly.
constexpr std::uint64_t kPendingFreesShare = 16;
constexpr std::uint64_t kLeastPendingFreesBytes = 64U << 10;
constexpr std::uint64_t kMostPendingFreesBytes = 1U << 20;

std::size_t MostPendingFrees(std::uint64_t budgetBytes) {
  return static_cast<std::size_t>(std::clamp(budgetBytes / kPendingFreesShare,
                                             kLeastPendingFreesBytes, kMostPendingFreesBytes) /
                                  PendingFrees::kBytes);
}

std::uint32_t ChoosePageSize(const EngineOptions& options) {
  if (options.pageSize != 0) {
    return options.pageSize;
  }
  return sizeof(void*) == 4 && options.budgetBytes >= kLargePageBudget ? kLargePage : kSmallPage;
}

/// Whether an object of `size` bytes may lie there: at a multiple of the largest power of two that
/// divides its size, up to 16.
[[maybe_unused]] bool IsAligned(const void* address, std::uint32_t size) {
  return reinterpret_cast<std::uintptr_t>(address) % std::min(size & (0U - size), 16U) == 0;
}

PagerOptions MakePagerOptions(const EngineOptions& options, std::uint32_t pageShift) {
  PagerOptions pager;
  pager.pageShift = pageShift;
  pager.budgetFrames = std::max<std::uint64_t>(
      {options.budgetBytes >> FrameArena::kFrameShift, options.minimumFrames, std::uint64_t{1}});
  pager.batch = options.batch;
  pager.readAhead = options.readAhead;
  pager.moveOnUnpin = options.moveOnUnpin;
  return pager;
}

}  // namespace

Engine::Engine(const EngineOptions& options, std::unique_ptr<PagingFile> file,
               std::unique_ptr<PagingFile> tableFile)
    : m_pageShift(static_cast<std::uint32_t>(std::countr_zero(ChoosePageSize(options)))),
      m_classes(ChoosePageSize(options)),
      m_tableStore(std::move(tableFile), m_error),
      m_table(m_tableStore, m_error, ChooseTableLeaves(options),
              options.firstGeneration ? *options.firstGeneration : DrawFirstGeneration()),
      m_arena(options.budgetBytes >= kHugePageBudget),
      m_slabs(m_classes, m_table, m_arena),
      m_store(std::move(file), m_error),
      m_pager(MakePagerOptions(options, m_pageShift), m_classes, m_table, m_arena, m_slabs,
              m_deferred, m_store, m_error),
      m_pendingFrees(MostPendingFrees(options.budgetBytes)) {}

void* Engine::Fail(std::uint64_t askedBytes) noexcept {
  m_error.Complete(askedBytes, m_arena.UsedFrames() << FrameArena::kFrameShift,
                   m_pager.BudgetFrames() << FrameArena::kFrameShift);
  return nullptr;
}

/// What comes of a handle that does not name an object: null, and the reason noted.
void* Engine::Refuse(std::uint64_t offset) noexcept {
  const Slot slot = Locate(offset);
  if (slot.entry != nullptr &&
      !SlabPage::IsIntact(std::bit_cast<ObjectHeader>(ObjectGuard::Peek(*slot.header)),
                          ObjectHandle::Decode(offset).byte)) {
    m_error.NoteObject(offset, kDamagedHeader);
    return nullptr;
  }
  ++m_staleHandles;
  m_error.NoteObject(offset, "it names no object: it was freed, or it is another store's");
  return nullptr;
}

/// What comes of a pin that an object's count cannot take.
void* Engine::RefusePin(std::uint64_t offset, std::uint32_t pins) noexcept {
  m_error.NoteObject(offset,
                     pins == kMaxPins ? "it has as many pins as can be counted" : kDamagedHeader);
  return nullptr;
}

// ---- allocate -----------------------------------------------------------------------------------

void* Engine::Allocate(std::uint32_t size, std::uint64_t& offset) noexcept {
  size = std::max(size, 1U);
  const std::uint8_t sizeClass = m_classes.ClassFor(size);
  if (sizeClass == SizeClasses::kLarge || !m_slabs[sizeClass].HasFreeSlot()) [[unlikely]] {
    return AllocateInOtherSpan(size, sizeClass, offset);
  }
  return TakeSlot(sizeClass, size, offset);
}

/// A large object, or an object of a class whose open slab is full.
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

/// Makes an object, pinned, in a free slot of the class's open slab.
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

/// Finds the slab that the class's next objects come from: one in memory with free slots, one that
/// is out, or a new one.
bool Engine::OpenSlab(std::uint8_t sizeClass) noexcept {
  if (m_slabs[sizeClass].HasFreeSlot()) {
    return true;  // thanks to pending frees
  }
  std::uint32_t page = m_slabs.TakeResident(sizeClass);
  bool found = page != PageTable::kNoPage;
  while (!found && (page = m_slabs.TakePagedOut(sizeClass)) != PageTable::kNoPage) {
    if (!PageIn(page)) {
      m_slabs.ReturnPagedOut(sizeClass, page);
      break;  // one failed read is enough
    }
    // Pending frees may have ended the slab, or used up its generations.
    found = m_table[page].state == sizeClass && !m_table[page].IsUsedUp();
    if (m_slabs[sizeClass].HasFreeSlot()) {
      return true;
    }
  }
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
///  3. Take frames, making room.
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

// ---- pin and unpin ------------------------------------------------------------------------------

/// Makes sure that the entry of a handle's page can be looked at.
bool Engine::FetchEntry(std::uint64_t offset) noexcept {
  const std::uint32_t page = ObjectHandle::Decode(offset).page;
  if (m_table.Fetch(page) != nullptr) {
    return true;
  }
  if (m_table.Has(page)) {
    Fail(std::uint64_t{1} << m_pageShift);  // what was asked for cannot be told
  } else {
    Refuse(offset);
  }
  return false;
}

/// Whether a handle names a large object, freed or not, of a page that the table has.
bool Engine::IsLarge(ObjectHandle handle) const noexcept {
  const PageEntry& entry = m_table[handle.page];
  return entry.Kind() == PageEntry::kLarge && handle.byte == kLargeByte &&
         handle.generation == entry.generation;
}

PageEntry* Engine::FindLarge(ObjectHandle handle) noexcept {
  const bool found =
      m_table.Has(handle.page) && IsLarge(handle) && !m_pendingFrees.Has(handle.Encode());
  return found ? &m_table[handle.page] : nullptr;
}

void* Engine::PinResident(std::uint64_t offset, bool forWriting) noexcept {
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr ||
      (!IsTouched(*slot.entry) && (forWriting || slot.entry->TouchedEpoch() != m_pager.Epoch())))
      [[unlikely]] {
    return PinOnFault(offset, forWriting);
  }
  return PinSlot(slot, offset);
}

/// Pins an object in memory: deferred if that is possible, or counted.
void* Engine::PinSlot(Slot slot, std::uint64_t offset) noexcept {
  LIBTCMALLOC_ASSERT(slot.entry->Resident() && slot.header->pins != kFreePins);
  if (slot.header->pins == 0 && !slot.entry->Notifies()) {
    if (const std::uint32_t place = m_deferred.FindFree(); place != DeferredPins::kPlaces) {
      return PinDeferred(place, slot, offset);
    }
    m_deferred.Flush();
  }
  if (slot.header->pins == 0) {
    ++slot.entry->live.pinned;
    ShowObject(slot);
  } else if (slot.header->pins >= kMaxPins || slot.entry->live.pinned == 0) [[unlikely]] {
    return RefusePin(offset, slot.header->pins);
  }
  ++slot.header->pins;
  return slot.header + 1;
}

void* Engine::PinOnFault(std::uint64_t offset, bool forWriting) noexcept {
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    slot.entry->Touch(m_pager.Epoch(), forWriting);
    return PinSlot(slot, offset);
  }
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (m_pendingFrees.Has(offset)) {
    return Refuse(offset);
  }
  if (!FetchEntry(offset)) {
    return nullptr;
  }
  if (PageEntry* entry = FindLarge(handle)) {
    if (!entry->Resident() && !PageIn(handle.page)) {
      return Fail(m_table.LargeBytes(handle.page));
    }
    Frame& frame = m_arena[entry->where];
    LIBTCMALLOC_ASSERT(frame.page == handle.page && (frame.pins > 0) == (entry->live.pinned > 0));
    if (frame.pins == kMaxPins) {
      return RefusePin(offset, kMaxPins);
    }
    entry->Touch(m_pager.Epoch(), forWriting);
    char* address = m_arena.Address(entry->where);
    if (frame.pins++ == 0) {
      entry->live.pinned = 1;
      ObjectGuard::Show(address, m_table.LargeBytes(handle.page));
    }
    return address;
  }
  if (IsInPagedOutSlab(handle)) {
    if (!PageIn(handle.page)) {
      return Fail(ClassOf(m_table[handle.page]).capacity);
    }
    if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
      slot.entry->Touch(m_pager.Epoch(), forWriting);
      return PinSlot(slot, offset);
    }
    void* none = Refuse(offset);
    OnPagedInUnpinned(handle.page);
    return none;
  }
  return Refuse(offset);
}

void Engine::UnpinResident(std::uint64_t offset) noexcept {
  if (const std::uint32_t place = m_deferred.Find(offset); place != DeferredPins::kPlaces) {
    UnpinDeferred(place, offset);
    return;
  }
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr || !slot.header->IsPinned()) {
    UnpinLarge(offset);
    return;
  }
  if (--slot.header->pins == 0) {
    ObjectGuard::Hide(slot.header + 1, ClassOf(*slot.entry).capacity);
    LIBTCMALLOC_ASSERT(slot.entry->live.pinned > 0);
    if (--slot.entry->live.pinned == 0 && slot.entry->Notifies()) {
      m_pager.OnLastUnpin(ObjectHandle::Decode(offset).page);
    }
  }
}

void* Engine::MoveResidentPin(std::uint64_t from, std::uint64_t to) noexcept {
  if (const std::uint32_t place = m_deferred.Find(from); place != DeferredPins::kPlaces) {
    return MoveDeferredPin(place, from, to);
  }
  Dismiss(from);
  return GetAddress(to, true);
}

void Engine::UnpinLarge(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  PageEntry* entry = FindLarge(handle);
  if (entry == nullptr || !entry->Resident() || m_arena[entry->where].pins == 0) {
    ++m_staleHandles;
    return;
  }
  if (--m_arena[entry->where].pins == 0) {
    entry->live.pinned = 0;
    ObjectGuard::Hide(m_arena.Address(entry->where), m_table.LargeBytes(handle.page));
    if (entry->Notifies()) {
      m_pager.OnLastUnpin(handle.page);
    }
  }
}

void Engine::Dirty(std::uint64_t offset) noexcept {
  // What is out cannot have been modified, so only what is in memory needs the mark.
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  PageEntry* entry = FindInMemory(offset).entry;
  entry = entry != nullptr ? entry : FindLarge(handle);
  if (entry == nullptr) {
    const PageEntry* page = m_table.Find(handle.page);
    m_staleHandles += page == nullptr || page->Resident() ? 1 : 0;
  } else if (entry->Resident()) {
    entry->live.touched |= PageEntry::kModified;
  }
}

std::uint32_t Engine::GetSize(std::uint64_t offset) noexcept {
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    return SlabPage::SizeOf(slot.header, ClassOf(*slot.entry));
  }
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  m_table.Fetch(handle.page);
  return FindLarge(handle) != nullptr ? m_table.LargeBytes(handle.page) : 0;
}

// ---- deallocate ---------------------------------------------------------------------------------

void Engine::Deallocate(std::uint64_t offset) noexcept {
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) [[likely]] {
    DeallocateSlot(offset, slot);
    return;
  }
  DeallocatePagedOut(offset);
}

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

/// What follows when the object of a freed slot was pinned or its slab's last one, or when there is
/// no generation left for further objects in the slab.
void Engine::FinishFree(std::uint32_t page, PageEntry& entry, bool wasPinned) noexcept {
  LIBTCMALLOC_ASSERT(entry.live.pinned >= (wasPinned ? 1 : 0));
  entry.live.pinned = static_cast<std::uint16_t>(entry.live.pinned - (wasPinned ? 1 : 0));
  if (IsPastLastGeneration(entry.generation)) {
    entry.generation = kNoGeneration;
    m_slabs.Retire(page);
  }
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
  if (empty) {
    m_pager.CutFile();
  }
}

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
