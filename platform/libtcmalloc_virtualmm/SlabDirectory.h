#ifndef LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H
#define LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H

#include <cstdint>
#include <vector>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/FrameArena.h"
#include "libtcmalloc_virtualmm/PageTable.h"
#include "libtcmalloc_virtualmm/SizeClasses.h"
#include "libtcmalloc_virtualmm/SlabPage.h"

namespace tcmalloc {

/// Knows, for each size class, where its next objects go: the one open slab that objects are taken
/// from, the slabs in memory that have free slots, and the slabs that left memory with at least a
/// quarter of their slots free (for fewer, a new slab is cheaper than a read).
class SlabDirectory {
 public:
  /// One class's slabs and counts. What every allocation looks at comes first, in one cache line.
  struct alignas(64) ClassState {
    SlabPage* openSlab = nullptr;       // the open slab, in memory; null when there is none
    PageEntry* openEntry = nullptr;     // its page table entry
    std::uint32_t openPage = 0;         // its page; meaningful with an open slab
    std::uint32_t spans = 0;            // slabs in all
    std::uint64_t liveObjects = 0;      // objects allocated
    std::vector<std::uint32_t> vacant;  // pages in memory with free slots; checked when taken
    std::vector<std::uint32_t>
        pagedOutVacant;  // pages that left with free slots; checked when taken

    bool HasFreeSlot() const { return openSlab != nullptr && openEntry->live.freeSlots != 0; }
    bool IsOpen(const PageEntry& entry) const { return openEntry == &entry && openSlab != nullptr; }
  };

  /// @throws std::bad_alloc
  SlabDirectory(const SizeClasses& classes, PageTable& table, FrameArena& arena)
      : m_classes(classes), m_table(table), m_arena(arena), m_states(classes.Count()) {}

  ClassState& operator[](std::uint8_t sizeClass) { return m_states[sizeClass]; }

  /// Makes the slab at `page`, which is in memory, the one its class takes objects from.
  void Open(std::uint32_t page);

  /// Takes the page of a slab in memory with free slots off the class's list; kNoPage when there is
  /// none. Slots freed last are found first: they are in the processor's caches.
  std::uint32_t TakeResident(std::uint8_t sizeClass);

  /// Takes the page of a slab that is out and has free slots off the class's list; kNoPage when
  /// there is none.
  std::uint32_t TakePagedOut(std::uint8_t sizeClass);

  /// Lists a page again that TakePagedOut gave and that could not be brought in, so that the next
  /// ones to be taken are others.
  void ReturnPagedOut(std::uint8_t sizeClass, std::uint32_t page);

  /// Notes that a slot of a slab in memory that is not open became free: opens the slab if its
  /// class has no other free slot at hand, else lists it.
  void OnSlotFreed(std::uint32_t page, PageEntry& entry) {
    const ClassState& state = m_states[entry.Kind()];
    LIBTCMALLOC_ASSERT(entry.Resident() && entry.live.freeSlots > 0 && !state.IsOpen(entry));
    if (!state.HasFreeSlot()) {
      Open(page);
    } else if ((entry.flags & PageEntry::kListed) == 0) {
      NoteVacant(page, entry);
    }
  }

  /// Lets no more objects into a slab in memory whose generations are used up.
  void Retire(std::uint32_t page);

  /// Notes that the slab at a frame came into memory: takes over its free slots and lists it.
  void OnPageIn(std::uint32_t frame);
  /// Notes that the slab at a frame is about to leave. Its entry is marked as out already, and else
  /// as it was in memory: free slots and frame are read from it.
  void OnPageOut(std::uint32_t frame);
  /// Notes that the slab at a frame is about to end.
  void OnRelease(std::uint32_t frame);
  /// Notes that a slab moved to the frame `to`, whose descriptor is already a copy of the old
  /// one's.
  void OnMoved(std::uint32_t from, std::uint32_t to);

 private:
  friend class EngineChecker;
  void CloseIfOpen(std::uint32_t page);
  [[gnu::noinline]] void NoteVacant(std::uint32_t page, PageEntry& entry);
  bool IsUsable(std::uint8_t sizeClass, std::uint32_t page);
  static bool IsUsablePagedOut(std::uint8_t sizeClass, const PageEntry& entry);
  bool NotePagedOut(std::uint8_t sizeClass, std::uint32_t page);
  template <typename Predicate>
  bool Note(std::vector<std::uint32_t>& list, std::uint32_t page, std::uint32_t spans,
            Predicate isUsable);
  PageEntry& EntryAt(std::uint32_t frame) { return m_table[m_arena[frame].page]; }
  SlabPage* SlabAt(std::uint32_t frame) { return SlabPage::At(m_arena.Address(frame)); }

  const SizeClasses& m_classes;
  PageTable& m_table;
  FrameArena& m_arena;
  std::vector<ClassState> m_states;  // by size class
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H
