#ifndef LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H
#define LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H

#include <cstdint>
#include <vector>

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
  /// One class's slabs and counts.
  struct ClassState {
    SlabPage* openSlab = nullptr;           // the open slab, in memory; null when there is none
    PageEntry* openEntry = nullptr;         // its page table entry
    std::uint32_t openPage = 0;             // its page; meaningful with an open slab
    std::uint32_t newestVacant = kNoFrame;  // list of slabs in memory with free slots
    std::vector<std::uint32_t> outVacant;   // pages that left with free slots; checked when taken
    std::size_t tidyAt = 0;                 // length of that list from which it is worth tidying
    std::uint64_t liveObjects = 0;          // objects allocated
    std::uint32_t spans = 0;                // slabs in all
  };

  /// @throws std::bad_alloc
  SlabDirectory(const SizeClasses& classes, PageTable& table, FrameArena& arena)
      : m_classes(classes), m_table(table), m_arena(arena), m_states(classes.Count()) {}

  ClassState& operator[](std::uint8_t sizeClass) { return m_states[sizeClass]; }

  /// Makes the slab at `frame` the one its class takes objects from.
  void Open(std::uint32_t frame);

  /// A slab in memory with free slots, or kNoFrame. It stays listed until it is opened.
  std::uint32_t FindInMemory(std::uint8_t sizeClass) const {
    return m_states[sizeClass].newestVacant;
  }

  /// Takes the page of a slab that is out and has free slots off the class's list; kNoPage when
  /// there is none.
  std::uint32_t TakeOut(std::uint8_t sizeClass);

  /// Notes that a slot of a slab that is not open became free.
  void OnSlotFreed(std::uint32_t frame);

  /// Notes that a slab came into memory, is about to leave it, is about to end, or moved from one
  /// frame to another (whose descriptor is already a copy of the old one's).
  void OnPageIn(std::uint32_t frame);
  void OnPageOut(std::uint32_t frame);
  void OnRelease(std::uint32_t frame);
  void OnMoved(std::uint32_t from, std::uint32_t to);

 private:
  void Link(std::uint32_t frame);
  void Unlink(std::uint32_t frame);
  void Withdraw(std::uint32_t frame);
  void CloseIfOpen(std::uint32_t page);
  void NoteOut(std::uint8_t sizeClass, std::uint32_t page);
  static bool IsUsableOut(std::uint8_t sizeClass, const PageEntry& entry);
  PageEntry& EntryAt(std::uint32_t frame) { return m_table[m_arena[frame].page]; }
  SlabPage* SlabAt(std::uint32_t frame) { return SlabPage::At(m_arena.Address(frame)); }

  const SizeClasses& m_classes;
  PageTable& m_table;
  FrameArena& m_arena;
  std::vector<ClassState> m_states;  // by size class
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SLABDIRECTORY_H
