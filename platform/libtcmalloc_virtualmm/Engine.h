#ifndef LIBTCMALLOC_VIRTUALMM_ENGINE_H
#define LIBTCMALLOC_VIRTUALMM_ENGINE_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "libtcmalloc_virtualmm/BackingStore.h"
#include "libtcmalloc_virtualmm/DeferredPins.h"
#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/ObjectGuard.h"
#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "libtcmalloc_virtualmm/Pager.h"
#include "libtcmalloc_virtualmm/PendingFrees.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"
#include "libtcmalloc_virtualmm/SlabDirectory.h"
#include "libtcmalloc_virtualmm/StoreError.h"
#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

namespace tcmalloc {

/// How an engine is set up. Hosts give the budget and the directory; the rest is for tests and
/// measurements.
struct EngineOptions {
  std::uint64_t budgetBytes = 0;      ///< bytes of pages to keep in memory
  std::uint32_t pageSize = 0;         ///< 4,096, 8,192 or 16,384; 0 chooses by budget and system
  std::uint32_t minimumFrames = 256;  ///< the budget is raised to this many pages
  std::uint32_t batch = 8;            ///< see PagerOptions
  std::uint32_t readAhead = 16;       ///< see PagerOptions
  std::uint32_t tableLeaves = 0;      ///< see PageTable; 0 chooses by budget
  bool moveOnUnpin = false;           ///< see PagerOptions
  std::optional<std::uint16_t> firstGeneration;  ///< below kFirstGenerations; none draws one
};

/// The engine behind VirtualMemoryPool: finds, makes, pins and ends objects. What is in memory is
/// handled here, in a few nanoseconds; the pager does the rest.
class Engine {
 public:
  /// @param options    the set-up
  /// @param file       the paging file, not open yet
  /// @param tableFile  the page table's own, not open yet
  /// @throws std::bad_alloc
  Engine(const EngineOptions& options, std::unique_ptr<PagingFile> file,
         std::unique_ptr<PagingFile> tableFile);
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  /// These serve the operations of VirtualMemoryPool of the same names.
  void* Allocate(std::uint32_t size, std::uint64_t& offset) noexcept;
  void* GetAddress(std::uint64_t offset, bool forWriting) noexcept;
  void Dismiss(std::uint64_t offset) noexcept;
  void* MovePin(std::uint64_t from, std::uint64_t to) noexcept;
  void* GetUnpinned(std::uint64_t offset) noexcept;
  void Prefetch(std::uint64_t offset) noexcept;
  void Dirty(std::uint64_t offset) noexcept;
  std::uint32_t GetSize(std::uint64_t offset) noexcept;
  void Deallocate(std::uint64_t offset) noexcept;
  void ExtractStats(VirtualMemoryStats* stats, std::uint32_t size, std::uint32_t& needed) noexcept;
  std::uint32_t GetOutstandingReferences(VirtualMemoryReferenceInfo* list, std::uint32_t capacity,
                                         std::uint32_t* written) noexcept;
  const char* GetLastError() const { return m_error.Text(); }

  /// Bytes of memory that the system gave for pages, the free frames among them.
  std::uint64_t MappedBytes() const { return m_arena.MappedFrames() << FrameArena::kFrameShift; }

  /// Spans and leaves of the page table that did not come back as they were written.
  std::uint64_t DamagedReads() const { return m_pager.Counts().damaged + m_table.DamagedReads(); }

  /// Compares all that the engine keeps in two places (see EngineChecker). For debugging: it
  /// changes nothing and takes time in proportion to the store.
  /// @param wasShortOfMemory  whether an allocation of the engine's own may have failed before
  /// @return what does not agree, a line each; empty when all does
  /// @throws std::bad_alloc
  std::string Check(bool wasShortOfMemory = false) const;

 private:
  friend class EngineChecker;
  // How far behind an object's beginning the second line lies that is fetched with the first.
  static constexpr std::uint32_t kPrefetchAhead = 56;

  Slot Locate(std::uint64_t offset) noexcept;
  Slot FindInMemory(std::uint64_t offset) noexcept;
  bool FetchEntry(std::uint64_t offset) noexcept;
  bool IsLarge(ObjectHandle handle) const noexcept;
  PageEntry* FindLarge(ObjectHandle handle) noexcept;
  bool PageIn(std::uint32_t page) noexcept;
  void OnPagedInUnpinned(std::uint32_t page) noexcept;
  void* PinSlot(Slot slot, std::uint64_t offset) noexcept;
  void* PinDeferred(std::uint32_t place, Slot slot, std::uint64_t offset) noexcept;
  void UnpinDeferred(std::uint32_t place, std::uint64_t offset) noexcept;
  void* MoveDeferredPin(std::uint32_t place, std::uint64_t from, std::uint64_t to) noexcept;
  bool IsTouched(const PageEntry& entry) const noexcept;
  void ShowObject(Slot slot) noexcept;
  const SizeClass& ClassOf(const PageEntry& entry) const { return m_classes[entry.Kind()]; }

  // The second stages of the operations, kept out of the way of the first, which then needs no
  // stack: second and further pins at a time; first touches of an epoch, large objects, spans that
  // are out, and handles that name nothing.
  [[gnu::noinline]] void* PinResident(std::uint64_t offset, bool forWriting) noexcept;
  [[gnu::noinline]] void UnpinResident(std::uint64_t offset) noexcept;
  [[gnu::noinline]] void* MoveResidentPin(std::uint64_t from, std::uint64_t to) noexcept;
  [[gnu::noinline, gnu::cold]] void* PinOnFault(std::uint64_t offset, bool forWriting) noexcept;
  [[gnu::noinline, gnu::cold]] void UnpinLarge(std::uint64_t offset) noexcept;

  void* TakeSlot(std::uint8_t sizeClass, std::uint32_t size, std::uint64_t& offset) noexcept;
  [[gnu::noinline]] void* AllocateInOtherSpan(std::uint32_t size, std::uint8_t sizeClass,
                                              std::uint64_t& offset) noexcept;
  void CountObject() noexcept;
  void* AllocateLarge(std::uint32_t size, std::uint64_t& offset) noexcept;
  bool OpenSlab(std::uint8_t sizeClass) noexcept;
  std::uint32_t MakeSpan(std::uint32_t pages, std::uint8_t kind, std::uint32_t largeBytes) noexcept;
  void DeallocateSlot(std::uint64_t offset, Slot slot) noexcept;
  [[gnu::noinline]] void FinishFree(std::uint32_t page, PageEntry& entry, bool wasPinned) noexcept;
  void DeallocateLarge(ObjectHandle handle, PageEntry& entry) noexcept;
  [[gnu::noinline, gnu::cold]] void DeallocatePagedOut(std::uint64_t offset) noexcept;
  void DeallocateLater(std::uint64_t offset) noexcept;
  bool IsInPagedOutSlab(ObjectHandle handle) const noexcept;
  void RetryPendingFrees() noexcept;
  void ApplyPendingFrees(std::uint32_t page) noexcept;
  bool ApplyPendingFree(std::uint64_t offset) noexcept;
  void* Fail(std::uint64_t askedBytes) noexcept;
  [[gnu::noinline, gnu::cold]] void* Refuse(std::uint64_t offset) noexcept;
  [[gnu::noinline, gnu::cold]] void* RefusePin(std::uint64_t offset, std::uint32_t pins) noexcept;

  DeferredPins m_deferred;  // first: what every pin and dismissal looks at

  std::int64_t m_currentObjects = 0;  // objects allocated; below 0 while the pending frees
                                      // hold more stale handles than there are objects
  std::int64_t m_maxObjects = 0;      // most objects at one time
  std::uint64_t m_allObjects = 0;     // objects allocated in all
  std::uint64_t m_staleHandles = 0;   // calls refused for a handle that names nothing
  std::uint64_t m_largeObjects = 0;   // large objects allocated
  std::uint64_t m_largePages = 0;     // their pages
  std::uint32_t m_pageShift;          // log2 of the page size
  StoreError m_error;
  SizeClasses m_classes;
  BackingStore m_tableStore;
  PageTable m_table;
  FrameArena m_arena;
  SlabDirectory m_slabs;
  BackingStore m_store;
  Pager m_pager;
  PendingFrees m_pendingFrees;
};

// ---- the hot path -------------------------------------------------------------------------------
//
// Pin and unpin of an object in memory read its page table entry and the line of its header, write
// neither, and touch nothing else that is not always in the first cache level. The fewer
// instructions they take, the more objects a program that goes through many has on their way from
// memory at a time.

/// Where the object at `offset` is if there is one: its header is not looked at.
inline Slot Engine::Locate(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.Has(handle.page)) [[unlikely]] {
    return {};
  }
  PageEntry& entry = m_table[handle.page];
  if (!m_classes.IsSlotStart(entry.state, handle.byte)) [[unlikely]] {
    return {};
  }
  return {&entry, SlabPage::At(m_arena.Address(entry.where))->HeaderAt(handle.byte)};
}

inline Slot Engine::FindInMemory(std::uint64_t offset) noexcept {
  const Slot slot = Locate(offset);
  if (slot.entry == nullptr || std::bit_cast<ObjectHeader>(ObjectGuard::Peek(*slot.header)).tag !=
                                   ObjectHandle::TagOf(offset)) [[unlikely]] {
    return {};
  }
  return slot;
}

/// Whether a pin, for writing or for reading, has nothing to note in the entry, and its unpin
/// neither. Nearly all pins are for writing, of spans that count as modified since their first one.
inline bool Engine::IsTouched(const PageEntry& entry) const noexcept {
  return entry.live.touched == m_pager.ModifiedEpoch();
}

inline void* Engine::PinDeferred(std::uint32_t place, Slot slot, std::uint64_t offset) noexcept {
  ShowObject(slot);
  m_deferred.Put(place, slot, offset);
  return slot.header + 1;
}

inline void Engine::UnpinDeferred(std::uint32_t place,
                                  [[maybe_unused]] std::uint64_t offset) noexcept {
  m_deferred.Remove(place);
  if constexpr (ObjectGuard::kActive) {
    if (m_deferred.Find(offset) == DeferredPins::kPlaces) {
      const Slot slot = m_deferred.At(place);
      ObjectGuard::Hide(slot.header + 1, ClassOf(*slot.entry).capacity);
    }
  }
}

inline void* Engine::GetAddress(std::uint64_t offset, bool forWriting) noexcept {
  if (!m_deferred.IsFree(0)) {
    return PinResident(offset, forWriting);
  }
  const Slot slot = Locate(offset);
  // One comparison tells that the handle names the object and that no pin of it is counted.
  if (slot.entry == nullptr ||
      ObjectGuard::Peek(*slot.header) != ObjectHeader{0, ObjectHandle::TagOf(offset)}.Word() ||
      !IsTouched(*slot.entry)) [[unlikely]] {
    return PinResident(offset, forWriting);
  }
  return PinDeferred(0, slot, offset);
}

inline void Engine::Dismiss(std::uint64_t offset) noexcept {
  if (!m_deferred.Holds(0, offset)) {
    UnpinResident(offset);
    return;
  }
  UnpinDeferred(0, offset);
}

inline void* Engine::MovePin(std::uint64_t from, std::uint64_t to) noexcept {
  if (!m_deferred.Holds(0, from)) {
    return MoveResidentPin(from, to);
  }
  return MoveDeferredPin(0, from, to);
}

/// Between neighbours of one page nothing has to be found, and what let the one pin be deferred
/// holds for the other.
inline void* Engine::MoveDeferredPin(std::uint32_t place, std::uint64_t from,
                                     std::uint64_t to) noexcept {
  const Slot old = m_deferred.At(place);
  const ObjectHandle handle = ObjectHandle::Decode(to);
  UnpinDeferred(place, from);
  if (ObjectHandle::Decode(from ^ to).page == 0 &&
      m_classes.IsSlotStart(old.entry->state, handle.byte) && IsTouched(*old.entry)) {
    ObjectHeader* header =
        SlabPage::NeighbourOf(old.header, ObjectHandle::Decode(from).byte, handle.byte);
    if (ObjectGuard::Peek(*header) == ObjectHeader{0, ObjectHandle::TagOf(to)}.Word()) {
      return PinDeferred(place, {old.entry, header}, to);
    }
  }
  return GetAddress(to, true);
}

inline void* Engine::GetUnpinned(std::uint64_t offset) noexcept {
  if constexpr (ObjectGuard::kActive) {
    return nullptr;  // only pinned objects are to be seen
  }
  const Slot slot = FindInMemory(offset);
  if (slot.entry == nullptr || !IsTouched(*slot.entry)) [[unlikely]] {
    return nullptr;
  }
  return slot.header + 1;
}

inline void Engine::Prefetch(std::uint64_t offset) noexcept {
  const ObjectHandle handle = ObjectHandle::Decode(offset);
  if (!m_table.Has(handle.page) || !m_table[handle.page].Resident()) [[unlikely]] {
    m_pager.Prefetch(handle.page);
    return;
  }
  // A forged handle may name any place near the span: a prefetch harms nowhere.
  const char* object = m_arena.Address(m_table[handle.page].where) + (handle.byte & ~7U);
  __builtin_prefetch(object - kObjectHeaderBytes, 1);
  __builtin_prefetch(object + kPrefetchAhead, 1);
  // To compilers a function that only prefetches has no effect, and they leave calls of it out.
  asm volatile("" : : "r"(object));
}

inline void Engine::ShowObject([[maybe_unused]] Slot slot) noexcept {
  if constexpr (ObjectGuard::kActive) {
    ObjectGuard::Show(slot.header + 1, SlabPage::SizeOf(slot.header, ClassOf(*slot.entry)));
  }
}

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINE_H
