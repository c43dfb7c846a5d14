#include "libtcmalloc_virtualmm/Engine.h"

namespace tcmalloc {

namespace {

constexpr const char* kDamagedHeader =
    "its header is damaged: bytes were written past the end of the object before it";

}  // namespace

Engine::Engine(const EngineOptions& options, std::unique_ptr<PagingFile> file,
               std::unique_ptr<PagingFile> tableFile)
    : m_pageShift(options.PageShift()),
      m_classes(1U << m_pageShift),
      m_tableStore(std::move(tableFile), m_error),
      m_table(m_tableStore, m_error, options.TableLeaves(), options.FirstGeneration()),
      m_arena(options.HugePages()),
      m_slabs(m_classes, m_table, m_arena),
      m_store(std::move(file), m_error),
      m_pager(options.ForPager(), m_classes, m_table, m_arena, m_slabs, m_deferred, m_store,
              m_error),
      m_pendingFrees(options.MostPendingFrees()),
      m_options(options) {}

/// Pages keep their size, and chunks that there are stay as they are; all else that follows from
/// the budget follows it.
bool Engine::SetMemorySize(std::uint64_t bytes) noexcept {
  const EngineOptions options = m_options.WithBudget(bytes);
  const Pager::Change change = m_pager.SetBudget(options.ForPager());
  if (change != Pager::Change::kRefused) {
    m_options.budgetBytes = options.budgetBytes;
    m_table.SetLeafLimit(options.TableLeaves());
    m_arena.SetHugePages(options.HugePages());
    m_pendingFrees.SetMost(options.MostPendingFrees());
  }
  if (change != Pager::Change::kDone) {
    Fail(0);
  }
  return change == Pager::Change::kDone;
}

/// Marks what holds an object as modified. A handle that names nothing is counted as stale; one of
/// a slab that is out cannot be told from that without a read, and gets the benefit of the doubt.
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

/// The size of an object without a read of its page: that of one in memory, or of a large object,
/// which the page table has. @return 0 for any other handle
std::uint32_t Engine::GetSize(std::uint64_t offset) noexcept {
  if (const Slot slot = FindInMemory(offset); slot.entry != nullptr) {
    return SlabPage::SizeOf(slot.header, ClassOf(*slot.entry));
  }
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  m_table.Fetch(handle.page);
  return FindLarge(handle) != nullptr ? m_table.LargeBytes(handle.page) : 0;
}

// ---- finding objects ----------------------------------------------------------------------------

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

/// The entry of the large object that a handle names; null if it names none, or one whose free is
/// pending. The entry's leaf is in memory.
PageEntry* Engine::FindLarge(ObjectHandle handle) noexcept {
  const bool found =
      m_table.Has(handle.page) && IsLarge(handle) && !m_pendingFrees.Has(handle.Encode());
  return found ? &m_table[handle.page] : nullptr;
}

/// Whether a handle may name an object of a slab that is out, whose leaf of the page table is in.
bool Engine::IsInPagedOutSlab(ObjectHandle handle) const noexcept {
  const PageEntry& entry = m_table[handle.page];
  return !entry.Resident() && m_classes.IsSlotStart(entry.Kind(), handle.byte) &&
         handle.generation != kNoGeneration;
}

// ---- what fails ---------------------------------------------------------------------------------

/// Adds the figures to the reason that was noted: what was asked for, used and allowed. @return
/// null
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

}  // namespace tcmalloc
