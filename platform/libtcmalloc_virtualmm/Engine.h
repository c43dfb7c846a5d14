#ifndef LIBTCMALLOC_VIRTUALMM_ENGINE_H
#define LIBTCMALLOC_VIRTUALMM_ENGINE_H

#include <cstdint>
#include <memory>
#include <string>

#include "libtcmalloc_virtualmm/BackingStore.h"
#include "libtcmalloc_virtualmm/DeferredPins.h"
#include "libtcmalloc_virtualmm/EngineOptions.h"
#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/ObjectHandle.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "libtcmalloc_virtualmm/Pager.h"
#include "libtcmalloc_virtualmm/PendingFrees.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"
#include "libtcmalloc_virtualmm/SlabDirectory.h"
#include "libtcmalloc_virtualmm/SlabPage.h"
#include "libtcmalloc_virtualmm/StoreError.h"
#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

namespace tcmalloc {

/// The engine behind VirtualMemoryPool: finds, makes, pins and ends objects. What is in memory is
/// handled here, in a few nanoseconds; the pager does the rest.
///
/// One class in several files, one idea a file: this one and Engine.cpp hold the parts together,
/// EnginePins.h and .cpp pin, EngineBulkPins.cpp pins many at once, EngineObjects.cpp allocates and
/// frees, EnginePendingFrees.cpp frees what is out, EngineReports.cpp reports. They are one class
/// because all of them work on all parts at once, and pins must not pay for a way from one to
/// another.
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
  void* GetUnpinned(std::uint64_t offset, bool forWriting) noexcept;
  void Prefetch(std::uint64_t offset) noexcept;
  std::uint32_t GetAddresses(const unsigned long long* offsets, void** addresses,
                             std::uint32_t count, bool forWriting) noexcept;
  void DismissAll(const unsigned long long* offsets, std::uint32_t count) noexcept;
  void Dirty(std::uint64_t offset) noexcept;
  std::uint32_t GetSize(std::uint64_t offset) noexcept;
  void Deallocate(std::uint64_t offset) noexcept;
  void ExtractStats(VirtualMemoryStats* stats, std::uint32_t size, std::uint32_t& needed) noexcept;
  std::uint32_t GetOutstandingReferences(VirtualMemoryReferenceInfo* list, std::uint32_t capacity,
                                         std::uint32_t* written) noexcept;
  bool SetMemorySize(std::uint64_t bytes) noexcept;
  std::uint64_t GetMemorySize() const { return m_pager.BudgetFrames() << FrameArena::kFrameShift; }
  void GetMemoryInUse(VirtualMemoryInUse& use) noexcept;
  const char* GetBudgetExcess() noexcept;
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

  // Finding objects: Engine.cpp, and what the hot path needs in EnginePins.h.
  Slot Locate(std::uint64_t offset) noexcept;
  static bool IsOf(Slot slot, std::uint64_t offset) noexcept;
  Slot FindInMemory(std::uint64_t offset) noexcept;
  bool FetchEntry(std::uint64_t offset) noexcept;
  bool IsLarge(ObjectHandle handle) const noexcept;
  PageEntry* FindLarge(ObjectHandle handle) noexcept;
  bool IsInPagedOutSlab(ObjectHandle handle) const noexcept;
  const SizeClass& ClassOf(const PageEntry& entry) const { return m_classes[entry.Kind()]; }

  // What fails: Engine.cpp.
  void* Fail(std::uint64_t askedBytes) noexcept;
  [[gnu::noinline, gnu::cold]] void* Refuse(std::uint64_t offset) noexcept;
  [[gnu::noinline, gnu::cold]] void* RefusePin(std::uint64_t offset, std::uint32_t pins) noexcept;

  // The hot path: EnginePins.h. From an object's beginning to the second line of it that a prefetch
  // fetches are kPrefetchAhead bytes: with the header before it, the object's first 64.
  static constexpr std::uint32_t kPrefetchAhead = 56;
  void* PinDeferred(std::uint32_t place, Slot slot, std::uint64_t offset) noexcept;
  void UnpinDeferred(std::uint32_t place, std::uint64_t offset) noexcept;
  void* MoveDeferredPin(std::uint32_t place, std::uint64_t from, std::uint64_t to) noexcept;
  bool IsTouched(const PageEntry& entry) const noexcept;
  bool IsTouchedFor(const PageEntry& entry, bool forWriting) const noexcept;
  static void PrefetchObject(const char* object) noexcept;
  void* GetUnpinnedLarge(std::uint64_t offset, bool forWriting) noexcept;
  void ShowObject(Slot slot) noexcept;

  // Its second stages: EnginePins.cpp. They are never inlined, so that the hot path needs no stack.
  // The first three serve objects in memory with any number of pins; the others what has to be
  // touched or read, large objects, and handles that name nothing.
  [[gnu::noinline]] void* PinResident(std::uint64_t offset, bool forWriting) noexcept;
  [[gnu::noinline]] void UnpinResident(std::uint64_t offset) noexcept;
  [[gnu::noinline]] void* MoveResidentPin(std::uint64_t from, std::uint64_t to) noexcept;
  [[gnu::noinline, gnu::cold]] void* PinOnFault(std::uint64_t offset, bool forWriting) noexcept;
  [[gnu::noinline, gnu::cold]] void UnpinLarge(std::uint64_t offset) noexcept;
  void* PinLarge(ObjectHandle handle, PageEntry& entry, bool forWriting) noexcept;
  void* PinSlot(Slot slot, std::uint64_t offset) noexcept;
  void* CountPin(Slot slot, std::uint64_t offset) noexcept;
  void CountUnpin(Slot slot, std::uint64_t offset) noexcept;

  // Many pins in one call: EngineBulkPins.cpp. So many handles are worked on at a time.
  static constexpr std::uint32_t kBulkWindow = 256;
  std::uint32_t PinWindow(const unsigned long long* offsets, void** addresses, std::uint32_t count,
                          bool forWriting) noexcept;
  void PrefetchPages(const unsigned long long* offsets, const std::uint32_t* places,
                     std::uint32_t count) noexcept;

  // Allocation and freeing: EngineObjects.cpp.
  void* TakeSlot(std::uint8_t sizeClass, std::uint32_t size, std::uint64_t& offset) noexcept;
  [[gnu::noinline]] void* AllocateInOtherSpan(std::uint32_t size, std::uint8_t sizeClass,
                                              std::uint64_t& offset) noexcept;
  void* AllocateLarge(std::uint32_t size, std::uint64_t& offset) noexcept;
  void CountObject() noexcept;
  bool OpenSlab(std::uint8_t sizeClass) noexcept;
  std::uint32_t MakeSpan(std::uint32_t pages, std::uint8_t kind, std::uint32_t largeBytes) noexcept;
  void DeallocateSlot(std::uint64_t offset, Slot slot) noexcept;
  [[gnu::noinline]] void FinishFree(std::uint32_t page, PageEntry& entry, bool wasPinned) noexcept;
  void DeallocateLarge(ObjectHandle handle, PageEntry& entry) noexcept;

  // Frees of what is out, and reads, which make up for those that could not be done: in
  // EnginePendingFrees.cpp.
  [[gnu::noinline, gnu::cold]] void DeallocatePagedOut(std::uint64_t offset) noexcept;
  void DeallocateLater(std::uint64_t offset) noexcept;
  bool PageIn(std::uint32_t page) noexcept;
  void OnPagedInUnpinned(std::uint32_t page) noexcept;
  void RetryPendingFrees() noexcept;
  void ApplyPendingFrees(std::uint32_t page) noexcept;
  bool ApplyPendingFree(std::uint64_t offset) noexcept;

  DeferredPins m_deferred;  // first: what every pin and dismissal looks at

  std::int64_t m_currentObjects = 0;  // objects allocated; below 0 while the pending frees
                                      // hold more stale handles than there are objects
  std::int64_t m_maxObjects = 0;      // most objects at one time
  std::uint64_t m_allObjects = 0;     // objects allocated in all
  std::uint64_t m_staleHandles = 0;   // calls refused for a handle that names nothing
  std::uint64_t m_largeObjects = 0;   // large objects allocated
  std::uint64_t m_largePages = 0;     // pages of large objects
  std::uint32_t m_pageShift;          // log2 of the page size

  // In the order in which they use each other: each outlives those below it.
  StoreError m_error;           // the reason of the last failure
  SizeClasses m_classes;        // how slabs are cut into slots
  BackingStore m_tableStore;    // the file of the page table's leaves
  PageTable m_table;            // what is known of each page
  FrameArena m_arena;           // memory of the spans
  SlabDirectory m_slabs;        // where the next objects go
  BackingStore m_store;         // the paging file
  Pager m_pager;                // what is in memory
  PendingFrees m_pendingFrees;  // frees that wait for their page

  EngineOptions m_options;      // the set-up, with the budget as it is now
  char m_excessText[256] = "";  // what GetBudgetExcess gave last
};

}  // namespace tcmalloc

#include "libtcmalloc_virtualmm/EnginePins.h"

#endif  // LIBTCMALLOC_VIRTUALMM_ENGINE_H
