#ifndef QRTVIRTUALMEMORYMGR_H
#define QRTVIRTUALMEMORYMGR_H

#include <iosfwd>
#include <type_traits>

#include "QRTCore/QRTExport.h"
#include "QRTVirtualPageItem.h"

class QRTVirtualMapper;
class QRTVirtualPageItemPool;

namespace tcmalloc {
class VirtualMemoryPool;
}

/// The door to the store: allocates objects, pins them to get their addresses, unpins and frees
/// them, by page item or by bare offset. A manager owns its paging engine and its page item pool;
/// deleting it ends every object made through it.
///
/// Pins are counted per object. While an object has a pin its address stays the same; without one
/// it may leave memory for the paging file and come back elsewhere. Every `alloc` and every
/// `getAddress` that gave an address is matched by one `dismiss`. Offset 0 and
/// QRTVirtualPageItem::kInvalidOffset name nothing and are ignored by every operation; so are
/// offsets of objects that have been freed.
///
/// A manager takes no lock: it is used by one thread at a time, with everything that works in it.
class QRT_EXPORT QRTVirtualMemoryMgr {
 public:
  /// Ways to map stored objects into memory. There is one, so no value is ever looked at.
  enum mappertype { eMapperDefault = 0 };

  /// Sections of `dumpMapper`, to be combined with |.
  enum diagflags {
    eDumpStatistics = 1,  ///< the engine's statistics
    eDumpMapper = 2       ///< a notice that mapper records cannot be dumped
  };

  /// What a store takes of memory, in bytes; see `getMemoryInUse`.
  struct MemoryInUse {
    unsigned long long frames;      ///< memory that the system gave for stored objects
    unsigned long long pages;       ///< of it, what pages in memory take; the rest is free
    unsigned long long pinned;      ///< of those, pages with a pinned object, which cannot leave
    unsigned long long pageTable;   ///< what tells where each page is, in memory and out
    unsigned long long beyond;      ///< pages beyond the memory size, which pins keep there
    unsigned long long pinsBeyond;  ///< no bytes: how many pins so far brought a page into memory
                                    ///< beyond the memory size; see `getPinsBeyondMemorySize`
  };

  /// A memory size of more bits than `unsigned int` has, for the constructors: any integer type
  /// that is wider. Sizes of the other types convert as they always did.
  template <class Size>
  using WideSize =
      std::enable_if_t<std::is_integral<Size>::value && (sizeof(Size) > sizeof(unsigned int)), int>;

  /// Makes a store under the temp directory (see QRTFmDir). No file is made before the first page
  /// has to leave memory.
  /// @param memorySize  bytes of stored objects to hold in memory; 0 means 4,194,304
  /// The remaining arguments have no effect.
  /// @throws QRTOutOfMemoryError, or QRTStdExceptionError when the engine fails otherwise
  explicit QRTVirtualMemoryMgr(unsigned int memorySize, unsigned int = 0, int = 0);

  /// The same for a size that may exceed 4 GiB - 1, such as 8ULL << 30; see `setMemorySize`.
  template <class Size, WideSize<Size> = 0>
  explicit QRTVirtualMemoryMgr(Size memorySize, unsigned int = 0, int = 0)
      : m_pool(nullptr), m_pageItemPool(nullptr) {
    initialize(static_cast<unsigned long long>(memorySize));
  }

  /// The same; only `memorySize` has an effect.
  QRTVirtualMemoryMgr(unsigned int, unsigned int memorySize, unsigned int, int);

  template <class Size, WideSize<Size> = 0>
  QRTVirtualMemoryMgr(unsigned int, Size memorySize, unsigned int, int)
      : QRTVirtualMemoryMgr(memorySize) {}

  /// The same; only `memorySize` has an effect.
  QRTVirtualMemoryMgr(mappertype, unsigned int, unsigned int memorySize, unsigned int, int);

  template <class Size, WideSize<Size> = 0>
  QRTVirtualMemoryMgr(mappertype, unsigned int, Size memorySize, unsigned int, int)
      : QRTVirtualMemoryMgr(memorySize) {}

  /// Ends the page item pool, then the engine with every object in it and the paging file. Objects
  /// still pinned are not reported.
  virtual ~QRTVirtualMemoryMgr();

  QRTVirtualMemoryMgr(const QRTVirtualMemoryMgr&) = delete;
  QRTVirtualMemoryMgr& operator=(const QRTVirtualMemoryMgr&) = delete;

  /// Kept for hosts that call it; the engine decides by itself what leaves memory. Does nothing.
  virtual void pageOut(unsigned int);

  /// Makes an item name an object of `size` bytes.
  ///  - An empty item gets a new object; its bytes are unspecified.
  ///  - A `size` below the item's trims it in place: same object, same content, and the room beyond
  ///    `size` is given up for the item's lifetime.
  ///  - Otherwise, equal sizes included, the item moves to a new object that begins with the old
  ///    content (the item's old size in bytes); the old object is freed and its addresses die.
  /// @param size  bytes wanted, 0 to 4 GiB - 1
  /// @param item  receives the object
  /// @return the object's address, never null, pinned once more; the caller owes one `dismiss`
  /// @throws QRTOutOfMemoryError when no room can be had; see `getLastStoreError`. The item is as
  ///         it was, but a trim whose object cannot be read has already noted the lower size.
  /// @throws QRTAssertError when the object to be moved cannot be read; the item is as it was
  /// Cost: O(1), plus the copy of a move; may write pages to disk, and read one back.
  void* alloc(unsigned int size, QRTVirtualPageItem& item);

  /// Frees the object, pinned or not, and sets the item's offset to 0; its size is kept. Other
  /// copies of the item become stale. Does nothing for an item that names nothing. An object whose
  /// page cannot be read is freed as well: its room comes back once the page can be read. Of such
  /// frees 8,192 to 131,072 are remembered at a time, by budget (one for 128 bytes of it); beyond,
  /// the object stays allocated, and `getLastStoreError` tells.
  /// Cost: O(1); may read the object's page.
  void free(QRTVirtualPageItem& item);

  /// Marks the object as modified. Needed only for changes through a pin taken with `mode` 0, and
  /// counts only while the object is pinned: call it before the last `dismiss`, after which the
  /// object may leave memory, and a change that nobody was told of is lost.
  /// Cost: O(1)
  void dirty(QRTVirtualPageItem& item);

  /// Takes one pin away; with the last one the object's address dies.
  /// Cost: O(1), never touches the disk.
  void dismiss(QRTVirtualPageItem& item);

  /// Takes one pin away from the object at a bare offset.
  void dismiss(unsigned long long offset);

  /// Pins the object once more.
  /// @param mode  non-zero when the object may be changed through the address; with 0 a change is
  ///              kept only if `dirty` is called as well
  /// @return its address, valid until the matching `dismiss`, which the caller owes; null, with
  ///         nothing owed, when the item names nothing or the object cannot be read back intact,
  ///         and `getLastStoreError` tells why
  /// Cost: O(1), a few nanoseconds when the object is in memory; otherwise one read.
  void* getAddress(QRTVirtualPageItem& item, int mode);

  /// Pins the object at a bare offset, as above.
  void* getAddress(unsigned long long offset, int mode);

  /// Pins many objects in one call: as `getAddress` for each, but what lies apart is waited for
  /// together. The pages that are not in memory are all asked of the system before the first of
  /// them is waited for, 256 handles at a time; of objects in memory, the processor fetches the
  /// next ones while it pins. Pays from two objects on, most for 32 to 256 on a disk.
  ///
  ///     unsigned long long offsets[64] = ...;
  ///     void* objects[64];
  ///     if (store.getAddresses(offsets, objects, 64, 1) < 64) ... some of them are null
  ///     ...
  ///     store.dismiss(offsets, 64);
  ///
  /// @param offsets    `count` offsets in any order; one that stands there several times is pinned
  ///                   as often. With null, every place gets a null.
  /// @param addresses  `count` places, every one of which is written: the object's address, or null
  ///                   where `getAddress` would give null, with nothing owed for that one;
  ///                   `getLastStoreError` tells why, of one where there are several. With null,
  ///                   nothing is pinned.
  /// @param count      how many, 0 to 2^32 - 1. All are pinned at once: a call for more than the
  ///                   memory size holds takes memory beyond it until they are dismissed.
  /// @param mode       as for `getAddress`
  /// @return how many were pinned: `count` when all were
  /// Cost: O(count), a few nanoseconds for each object in memory; one read for each page that is
  /// not
  unsigned int getAddresses(const unsigned long long* offsets, void** addresses, unsigned int count,
                            int mode);

  /// Takes one pin away from each of many objects, as `dismiss` does for one. May be handed the
  /// offsets of `getAddresses` as they are: for those that could not be pinned it does nothing, as
  /// long as nobody else has pinned them meanwhile.
  /// @param offsets  `count` offsets; with null, nothing is done
  /// @param count    how many, 0 to 2^32 - 1
  /// Cost: O(count), as `dismiss`
  void dismiss(const unsigned long long* offsets, unsigned int count);

  /// Looks an object up without pinning it. For short work on several objects at once, such as
  /// linking one between two others, where pins would take longer than the work.
  /// @param offset  offset of the object
  /// @return its address, for reading and writing, valid until anything but `getUnpinned` is asked
  ///         of the manager; null, which says nothing about the object, when the address cannot be
  ///         had without a pin: pin it then
  /// Cost: O(1), a few instructions; never touches the disk
  void* getUnpinned(unsigned long long offset);

  /// The same, and what it is for.
  /// @param mode  as for `getAddress`: with 0, which finds also objects that were pinned for
  /// reading
  ///              only, nothing may be changed through the address
  void* getUnpinned(unsigned long long offset, int mode);

  /// Tells how large an object is that is pinned, whatever an item says.
  /// @param offset  offset of a pinned object
  /// @return bytes, as it was allocated; 0 when the offset names nothing
  /// Cost: O(1)
  unsigned int getObjectSize(unsigned long long offset) const;

  /// Takes one pin away from an object and pins another: `dismiss(from)`, then `getAddress(to, 1)`,
  /// in one step that costs half as much between neighbours. For walks from object to object.
  /// @param from  the object that is done with; ignored when it names nothing
  /// @param to    the object to pin
  /// @return as `getAddress`
  void* movePin(unsigned long long from, unsigned long long to);

  /// Tells that an object will be pinned soon. If it is in memory, the processor begins to load its
  /// first bytes meanwhile; if it is not, the system begins to read it from the paging file, where
  /// that can be asked for. For programs that work through many handles: called for the handle that
  /// is eight places ahead, it takes most of the waiting out of pins of objects far apart.
  /// @param offset  offset of the object; anything else than an object is ignored
  /// Changes nothing, owes nothing and does not wait. Cost: O(1), a few instructions for an object
  /// in memory, else one call of the system.
  void prefetch(unsigned long long offset) const;

  /// Sets how many bytes of stored objects to hold in memory, at any time. When it is lowered, what
  /// is not pinned and exceeds it leaves memory before the call returns, and its memory goes back
  /// to the system, up to 4 MiB; what is pinned follows at its last `dismiss`.
  /// @param bytes  as for the constructors: 0 means 4,194,304, less than 1 MiB means 1 MiB. More
  ///               than the process can address counts as that: 4 GiB - 4096 in a 32-bit process,
  ///               16 TiB - 4096 otherwise.
  /// @return 1; 0 when not all that has to leave could be written, and `getLastStoreError` tells
  ///         why. Where disk space for it could not be set aside, the memory size is then as it
  ///         was. Where writing failed, the new one holds, what could not be written is still in
  ///         memory, whole, and is tried again whenever room is needed. `getMemorySize` tells
  ///         which.
  /// Cost: O(pages that leave), each of which may be written; O(1) when raised
  int setMemorySize(unsigned long long bytes);

  /// @return how many bytes of stored objects the store holds in memory: as set or given to the
  ///         constructor, within the bounds above and rounded down to 4 KiB
  /// Cost: O(1)
  unsigned long long getMemorySize() const;

  /// Tells what the store takes of memory now.
  /// Cost: O(pages in memory + size of the page table)
  MemoryInUse getMemoryInUse() const;

  /// Makes an item name an object that holds the given bytes, shared with every other caller that
  /// gave equal bytes while the pool remembers them; see QRTVirtualPageItemPool::set. The object is
  /// left unpinned and is neither changed nor freed by its holders.
  /// @param data  the bytes; null does nothing
  /// @param size  how many; 0 does nothing
  /// @param item  an empty item, or one whose object nobody else holds; receives the object
  /// @throws what QRTVirtualPageItemPool::set throws
  void allocUsingPool(const void* data, unsigned int size, QRTVirtualPageItem& item);

  /// Sets how many byte strings the page item pool remembers, 1,000 at first.
  /// @param poolSize  entries to keep; a pool above that stops growing but does not shrink
  void setVirtualPageItemPoolSize(unsigned int poolSize);

  /// @return null: the engine keeps its records to itself
  QRTVirtualMapper* getMapper(unsigned long long offset) const;

  /// Kept for hosts that call it. Does nothing.
  void setDiagnosticMode(diagflags mode);

  /// Writes the state of the store as text. Changes nothing in the store and leaves the stream's
  /// format as it was.
  /// @param os     receives the text; every line is flushed
  /// @param flags  the sections to write: `eDumpStatistics`, `eDumpMapper`, both or 0
  /// @throws QRTOutOfMemoryError before anything is written
  /// Cost: O(size classes of the engine)
  void dumpMapper(std::ostream& os, int flags);

  /// Lists the objects that are pinned, most pins first: offset, size, pins, and the first bytes as
  /// hex and as text. The first hundred are listed, the rest is counted. Pin counts are afterwards
  /// what they were, the stream's format is not touched, and when memory is short the list is made
  /// from as many objects as fit. A last line tells of pins beyond the memory size, if there were
  /// any; see `getPinsBeyondMemorySize`.
  /// @param os  receives the text
  /// Cost: O(pages in memory + pinned objects)
  void dumpReferences(std::ostream& os);

  /// Tells why the store last failed to give room or an address: the operation, the file, the
  /// system's message, the bytes asked for and the budget in use; or the offset, and that it names
  /// no object or that the object's header was overwritten. Of offsets 0 and kInvalidOffset the
  /// store never hears, so the text stays what it was.
  /// @return UTF-8 text, never null, empty while nothing has failed; valid until the next call of
  ///         an operation of this manager
  const char* getLastStoreError() const;

  /// Tells of pins beyond the memory size. A pin is granted while the system has memory, also when
  /// everything that the store may hold in memory is pinned already: how many were granted so, of
  /// the last one, and how many bytes are beyond it now and were at most.
  /// @return UTF-8 text, never null, empty while there were none; valid until the next call of an
  ///         operation of this manager. The figures alone are in `getMemoryInUse`.
  /// Cost: O(1)
  const char* getPinsBeyondMemorySize() const;

  /// @return whether the leak check is on, for every manager of the process; 0 at first
  static int getExceptionOnReferenceLeak();

  /// Switches the leak check on or off for every manager of the process. Not guarded: set it before
  /// managers are in use.
  /// @param on  0 for off, anything else for on
  static void setExceptionOnReferenceLeak(int on);

  /// @return whether managers made from now on encrypt their paging files; 0 at first
  static int getPagingFileEncryption();

  /// Switches the encryption of paging files on or off for every manager made from now on, by
  /// whoever makes it; one that is there keeps what it was made with. With it nobody who can read
  /// the disk learns what was stored: each file has a random key of its own, which never leaves
  /// memory and ends with the manager (docs/promises.md has the whole of it). Not guarded: set it
  /// before managers are made.
  /// @param on  0 for off, anything else for on
  /// @throws QRTIllegalStateError when it is to be on and this build of the library has no cipher,
  /// or
  ///         the cipher's library does not work in this process; the switch is as it was
  /// Cost: none here; each page that leaves memory is encrypted, and decrypted when it comes back.
  static void setPagingFileEncryption(int on);

  /// The leak check: does nothing while the switch is off. Otherwise empties the page item pool and
  /// raises an error when objects are pinned, whose pins stay.
  /// @throws QRTIllegalStateError with the number of pinned objects in its text
  void throwExceptionOnReferenceLeak();

 private:
  void initialize(unsigned int memorySize);
  void initialize(unsigned long long memorySize);
  [[gnu::noinline]] void* allocAgain(unsigned int size, QRTVirtualPageItem& item);
  [[noreturn, gnu::noinline, gnu::cold]] static void throwNoRoom();

  tcmalloc::VirtualMemoryPool* m_pool;     // the paging engine, owned
  QRTVirtualPageItemPool* m_pageItemPool;  // shares equal byte strings, owned

  static int m_exceptionOnReferenceLeak;  // whether the leak check is on
  static int m_pagingFileEncryption;      // whether new managers encrypt
};

#endif  // QRTVIRTUALMEMORYMGR_H
