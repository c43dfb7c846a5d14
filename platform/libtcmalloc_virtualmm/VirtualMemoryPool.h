#ifndef LIBTCMALLOC_VIRTUALMM_VIRTUALMEMORYPOOL_H
#define LIBTCMALLOC_VIRTUALMM_VIRTUALMEMORYPOOL_H

#include <cstddef>
#include <cstdint>

/// @file
/// The paging engine's only public face. An engine keeps objects of 0 bytes to 4 GiB - 1 behind
/// 64-bit offsets, holds as many of them in memory as its budget allows and the rest in a private
/// paging file. It knows nothing of the classes built on it and never throws after construction.

namespace tcmalloc {

class Engine;

/// The handle of one object, as exchanged with the engine.
struct PageItem {
  std::uint64_t offset;  ///< the object's offset; 0 and all-ones never name an object, and no
                         ///< offset names a second one of its engine after the first was freed
};

/// The figures of one size class ("fixed-size pool") in VirtualMemoryStats.
struct FixedPoolStats {
  std::uint64_t allocBytes;  ///< bytes 0..7    bytes of the objects allocated from the pool
  std::uint64_t freeBytes;   ///< bytes 8..15   bytes of its free slots
  std::uint32_t spans;       ///< bytes 16..19  spans of the pool
  std::uint32_t pages;       ///< bytes 20..23  pages of the pool
  std::uint32_t objectSize;  ///< bytes 24..27  largest object the pool serves, in bytes
  std::uint32_t reserved;    ///< bytes 28..31  zero
};

/// The statistics record that ExtractStats fills; `poolCount` records of FixedPoolStats follow at
/// byte 368. Every figure is a real count since the engine was made.
struct VirtualMemoryStats {
  std::uint32_t pageSize;        ///< bytes 0..3      engine page size in bytes
  std::uint32_t reserved0;       ///< bytes 4..7      zero
  std::uint64_t budgetBytes;     ///< bytes 8..15     resident bytes the engine aims to stay under
  std::uint64_t residentBytes;   ///< bytes 16..23    bytes of pages in memory now
  std::uint64_t currentObjects;  ///< bytes 24..31    objects allocated now
  std::uint64_t maxObjects;      ///< bytes 32..39    most objects allocated at one time
  std::uint64_t cumulativeObjects;  ///< bytes 40..47    objects allocated in all
  std::uint64_t staleHandles;       ///< bytes 48..55    calls refused for a stale or foreign offset
  std::uint64_t pageFileSize;       ///< bytes 56..63    size of the paging file; 0 without one
  std::uint64_t pageReads;          ///< bytes 64..71    pages read from the paging file
  std::uint64_t pageOuts;    ///< bytes 72..79    pages that left memory with their content kept
  std::uint64_t pageWrites;  ///< bytes 80..87    pages written to the paging file
  std::uint64_t largePages;  ///< bytes 88..95    pages held by large objects
  std::uint64_t largeSpans;  ///< bytes 96..103   large objects, one span each
  std::uint32_t poolCount;   ///< bytes 104..107  FixedPoolStats records behind this one
  char pagingFileName[260];  ///< bytes 108..367  path of the paging file, NUL-terminated
};

static_assert(sizeof(FixedPoolStats) == 32);
static_assert(sizeof(VirtualMemoryStats) == 368);
static_assert(offsetof(VirtualMemoryStats, currentObjects) == 24);
static_assert(offsetof(VirtualMemoryStats, pageFileSize) == 56);
static_assert(offsetof(VirtualMemoryStats, poolCount) == 104);
static_assert(offsetof(VirtualMemoryStats, pagingFileName) == 108);

/// One pinned object, as GetOutstandingReferences lists it.
struct VirtualMemoryReferenceInfo {
  std::uint64_t offset;  ///< the object's offset
  std::uint32_t size;    ///< its size in bytes
  std::uint32_t pins;    ///< its pin count, above zero
};

/// What an engine takes of memory, in bytes.
struct VirtualMemoryInUse {
  std::uint64_t budgetBytes;    ///< resident bytes the engine aims to stay under
  std::uint64_t frameBytes;     ///< memory that the system gave for pages
  std::uint64_t residentBytes;  ///< of it, pages in memory; the rest is free
  std::uint64_t pinnedBytes;    ///< of those, pages with a pinned object
  std::uint64_t tableBytes;     ///< the page table and what describes frames
  std::uint64_t excessBytes;    ///< resident bytes beyond the budget
  std::uint64_t excessPins;     ///< pins so far, those of new objects among them, that brought a
                                ///< page into memory beyond the budget since all else was pinned
};

/// A pageable object store under a memory budget. One engine is used by one thread at a time; it
/// has no locks, threads or global state. In a child made by fork the engine keeps serving what is
/// in memory but neither reads nor writes the parent's paging file.
class VirtualMemoryPool {
 public:
  /// Makes an engine. No file is made before the first page has to leave memory.
  /// @param memorySize  bytes of objects to hold in memory, at least 1; small values are raised to
  ///                    256 pages
  /// @param directory   directory for the paging file, UTF-8, on POSIX systems any bytes; null
  ///                    means the current directory
  /// @param encrypted   whether what is written to disk is encrypted, with keys that are drawn when
  ///                    the first page leaves; where CanEncrypt is false, no page can leave then
  /// @throws std::bad_alloc when the engine's own structures cannot be allocated
  VirtualMemoryPool(unsigned int memorySize, const char* directory, bool encrypted = false);

  /// Ends every object and removes the paging file.
  ~VirtualMemoryPool();

  VirtualMemoryPool(const VirtualMemoryPool&) = delete;
  VirtualMemoryPool& operator=(const VirtualMemoryPool&) = delete;

  /// Makes an object of `size` bytes (0 is served as 1), pinned once; its bytes are unspecified.
  /// @param item  receives the new offset; unchanged on failure
  /// @return the object's address, aligned to the largest power of two dividing `size`, up to 16;
  ///         null when memory or disk space cannot be had (nothing already stored is affected).
  ///         The caller owes one Dismiss.
  /// Cost: O(1); may write pages to disk to make room.
  void* Allocate(unsigned int size, PageItem& item);

  /// Pins an object once more.
  /// @param forWriting  true when the caller may change the object; with false a change is kept
  ///                    only if Dirty is called as well
  /// @return its address, the same while any pin lasts; null for a stale or foreign offset, when
  ///         the object cannot be read back intact, or when its header was overwritten, and
  ///         GetLastError tells which. The caller owes one Dismiss for a non-null.
  /// Cost: O(1), a few nanoseconds when the object is in memory; otherwise one read.
  void* GetAddress(PageItem& item, bool forWriting);

  /// Pins many objects, each once more for every place where its offset stands. Pages that are out
  /// are all asked of the system before the first of them is waited for, within every 256 offsets;
  /// of what is in memory, entries and headers are fetched ahead.
  /// @param offsets     `count` offsets; 0 and all-ones get a null and are not looked at
  /// @param addresses   `count` places, all of which are written: the address as GetAddress gives
  ///                    it, or null where it would; GetLastError tells of one of those
  /// @param forWriting  as for GetAddress
  /// @return how many were pinned. The caller owes one Dismiss for each non-null.
  /// Cost: O(count); one read for each page that is out.
  unsigned int GetAddresses(const unsigned long long* offsets, void** addresses, unsigned int count,
                            bool forWriting);

  /// Takes one pin away from each of `count` objects, as Dismiss; 0 and all-ones are passed over.
  void DismissAll(const unsigned long long* offsets, unsigned int count);

  /// Takes one pin away; ignored for an unpinned object and for a stale or foreign offset.
  void Dismiss(PageItem& item);

  /// Takes one pin of `from` away, then pins `to` for writing: Dismiss and GetAddress in one, at
  /// half their cost when both objects lie in one page and `from` was pinned last.
  /// @return as GetAddress
  void* MovePin(PageItem& from, PageItem& to);

  /// Looks an object up that is in memory, to be read or changed before anything else is asked of
  /// the pool: a pin and its Dismiss at half their cost.
  /// @param forWriting  true when the caller may change the object; with false it must not
  /// @return its address, valid until the next call of any operation but this one; null when the
  ///         object has to be pinned instead, or for a stale or foreign offset. Nothing is owed.
  /// Cost: O(1), a few nanoseconds, never touches the disk.
  void* GetUnpinned(PageItem& item, bool forWriting);

  /// Begins to load an object, for a pin that is to come: into the processor's caches if it is in
  /// memory, else from the paging file into the system's memory, where the system can be asked to.
  /// Changes nothing and does not wait; ignored for a stale or foreign offset.
  void Prefetch(PageItem& item) const;

  /// Marks a pinned object as modified, before its last Dismiss; ignored for a stale or foreign
  /// offset.
  void Dirty(PageItem& item);

  /// @return the size in bytes of an object that is pinned, as it was allocated; 0 for a stale or
  ///         foreign offset
  unsigned int GetSize(PageItem& item);

  /// Frees an object, pinned or not; its address and offset name nothing afterwards. Ignored for a
  /// stale or foreign offset. May read the object's page. When that fails, the free is remembered,
  /// the object counts as freed, and its room is given back once the page can be read. At most a
  /// sixteenth of the budget serves to remember, 64 KiB at least and 1 MiB at most, 8 bytes a free;
  /// beyond that, or without memory, the object stays allocated and its offset good, which
  /// GetLastError tells.
  void Deallocate(PageItem& item);

  /// Reports the statistics record.
  /// @param stats   null to learn the length, or a buffer of `size` bytes
  /// @param size    bytes at `stats`; nothing is written when they are too few
  /// @param needed  receives the record's length in bytes
  void ExtractStats(VirtualMemoryStats* stats, unsigned int size, unsigned int& needed);

  /// Counts the pinned objects and lists them on request.
  /// @param list      null, or room for `capacity` records
  /// @param capacity  records at `list`
  /// @param written   null, or receives how many records were written
  /// @return the number of objects whose pin count is above zero
  /// Cost: O(pages in memory).
  unsigned int GetOutstandingReferences(VirtualMemoryReferenceInfo* list, unsigned int capacity,
                                        unsigned int* written);

  /// Sets the bytes of objects to hold in memory, as the constructor's `memorySize`, cut to what
  /// the process can address (16 TiB in a 64-bit one). When it is lowered, what is not pinned
  /// leaves memory now. Pages keep their size.
  /// @return false, and GetLastError tells why, when disk space could not be set aside for what has
  ///         to leave, and then nothing has changed; or when some of it could not be written: it
  ///         stays in memory and is tried again at the next need, under the new budget
  /// Cost: O(what leaves).
  bool SetMemorySize(unsigned long long bytes);

  /// @return the bytes of objects to hold in memory: as set, but 256 pages at the least, and whole
  ///         frames of 4 KiB
  unsigned long long GetMemorySize() const;

  /// Reports what the engine takes of memory. Cost: O(pages in memory + leaves of the page table).
  void GetMemoryInUse(VirtualMemoryInUse& use);

  /// Tells how often pins took memory beyond the budget, of the last time that they did, and how
  /// much is beyond it now.
  /// @return UTF-8 text, never null, empty when none did; valid until the next call
  const char* GetBudgetExcess();

  /// Tells why the engine last failed: the operation, the file, the system's message, the bytes
  /// asked for and the budget in use; or the offset and why there is no address for it.
  /// @return UTF-8 text, never null, empty when nothing ever failed; valid until the next call
  const char* GetLastError() const;

  /// @return whether this build of the library can encrypt what it writes; to be asked before an
  ///         engine is made that does
  static bool CanEncrypt() noexcept;

 private:
  Engine* m_engine;  // owned
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_VIRTUALMEMORYPOOL_H
