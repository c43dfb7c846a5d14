#ifndef LIBTCMALLOC_VIRTUALMM_PAGETABLE_H
#define LIBTCMALLOC_VIRTUALMM_PAGETABLE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "libtcmalloc_virtualmm/BackingStore.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/PageEntry.h"
#include "libtcmalloc_virtualmm/PageMap.h"
#include "libtcmalloc_virtualmm/StoreError.h"

namespace tcmalloc {

/// The table of all pages: what the engine knows of them, whether they are in memory or not. Two
/// levels, leaves of 64 entries; an entry's generation outlives the page's free times.
///
/// The table is larger than memory, too: beyond a limit, leaves that describe nothing in memory
/// are paged out to a file of their own, so that 4 GiB of pages cost some 400 KiB and not 16 MiB. A
/// leaf with a span in memory stays, and its entries do not move. In the place of a leaf that is
/// out stands one shared leaf whose entries begin no span; so the hot path need not ask, and
/// everybody else calls Fetch first. Another one stands for all leaves of nothing but retired
/// pages, which need neither memory nor a place in the file.
class PageTable {
 public:
  static constexpr std::uint32_t kLeafPages = 64;
  static constexpr std::uint32_t kNoPage = PageMap::kNoPage;
  /// Bytes of a leaf in the file, whose place is its number times this.
  static constexpr std::size_t kImageBytes =
      kLeafPages * (sizeof(PageEntry) + sizeof(std::uint32_t));

  /// @param file       where leaves go; outlives the table
  /// @param error      receives failures; outlives the table
  /// @param leafLimit  leaves to stay under as long as they may leave, at least 1
  /// @param firstGeneration  the generation of new pages, not kNoGeneration
  PageTable(BackingStore& file, StoreError& error, std::uint32_t leafLimit,
            std::uint16_t firstGeneration);

  /// Takes another limit of leaves, and pages idle ones out down to it.
  void SetLeafLimit(std::uint32_t leafLimit) noexcept {
    m_leafLimit = leafLimit;
    PageOutDownTo(m_leafLimit);
  }

  /// Bytes of memory that the table takes. Cost: O(leaves of the table).
  std::uint64_t Bytes() const;

  /// Whether the table has the page.
  bool Has(std::uint32_t page) const { return page < m_pageCount; }
  /// The entry of a page that the table has; while its leaf is out, one that begins no span.
  PageEntry& operator[](std::uint32_t page) {
    LIBTCMALLOC_ASSERT(Has(page));
    return m_leaves[page / kLeafPages]->entries[page % kLeafPages];
  }
  const PageEntry& operator[](std::uint32_t page) const {
    LIBTCMALLOC_ASSERT(Has(page));
    return m_leaves[page / kLeafPages]->entries[page % kLeafPages];
  }
  /// The entry of a page, or null for a page beyond the table.
  PageEntry* Find(std::uint32_t page) { return Has(page) ? &(*this)[page] : nullptr; }
  /// Whether the page's leaf, which the table has, is in memory.
  bool IsIn(std::uint32_t page) const {
    LIBTCMALLOC_ASSERT(Has(page));
    return m_leaves[page / kLeafPages] != &m_absent;
  }

  /// The entry of a page, whose leaf is brought in if it is out. Another leaf may leave for it:
  /// entries of pages that are out are good until the next call.
  /// @return null for a page beyond the table, and when the leaf cannot be had, which is noted
  PageEntry* Fetch(std::uint32_t page) noexcept {
    return Has(page) && (IsIn(page) || PageInLeaf(page) == Outcome::kIn) ? &(*this)[page] : nullptr;
  }

  /// Tells the system that the leaf of a page that the table has will be read soon, if it is out.
  /// @return whether it is
  bool PrefetchLeaf(std::uint32_t page) noexcept;

  /// Takes the lowest run of `count` free pages (see PageMap) for a span of kind `kind` that is
  /// out. The first page's entry keeps its generation.
  /// @return the first page, or kNoPage when it cannot be had, which is noted
  std::uint32_t Acquire(std::uint32_t count, std::uint8_t kind) noexcept;

  /// Gives a span's pages back; the leaf of the first is in memory. Cannot fail. A first page whose
  /// generations are used up is retired: no run that Acquire takes has it again.
  void Release(std::uint32_t first, std::uint32_t count) noexcept;

  /// To be called when a span comes into memory and when it leaves or ends there.
  void OnSpanIn(std::uint32_t page) noexcept;
  void OnSpanOut(std::uint32_t page) noexcept;

  /// The size in bytes of the large object at `page`, whose leaf is in memory.
  std::uint32_t& LargeBytes(std::uint32_t page) {
    LIBTCMALLOC_ASSERT((*this)[page].Kind() == PageEntry::kLarge);
    LIBTCMALLOC_ASSERT(m_leaves[page / kLeafPages]->largeBytes != nullptr);
    return m_leaves[page / kLeafPages]->largeBytes[page % kLeafPages];
  }
  /// Makes room to note that size. @return false without memory, which is noted
  bool PrepareLargeBytes(std::uint32_t page) noexcept;

  /// Pages that belong to spans, and one past the highest of them.
  std::uint64_t UsedPages() const { return m_map.UsedPages(); }
  std::uint32_t UsedEnd() const { return m_map.UsedEnd(); }

  /// Pages that are retired, and one past the run of pages from `from` on that all are, or all not.
  std::uint64_t RetiredPages() const { return m_map.RetiredPages(); }
  std::uint32_t EndOfRun(std::uint32_t from, bool retired) const {
    return m_map.EndOfRun(from, retired);
  }

  /// Leaves that did not come back as they were written.
  std::uint64_t DamagedReads() const { return m_damaged; }

 private:
  friend class EngineChecker;
  enum class Outcome { kIn, kUnreadable, kDamaged };

  struct Leaf {
    PageEntry entries[kLeafPages];
    std::unique_ptr<std::uint32_t[]> largeBytes;  // sizes of large objects, made when one comes
    std::uint32_t number = 0;                     // the leaf's place in the table
    std::uint32_t spansIn = 0;                    // spans in memory
    Leaf* older = nullptr;                        // next idle leaf, towards leaving
    Leaf* newer = nullptr;                        // next idle leaf, away from it; next unused one
  };

  /// A leaf in the file. No eviction numbers: whose leaf leaves has been out for long, and without
  /// them most leaves leave as they came.
  struct Image {
    PageEntry entries[kLeafPages];
    std::uint32_t largeBytes[kLeafPages];
  };
  static_assert(sizeof(Image) == kImageBytes);

  // What m_images says of a leaf that was never written; it is as a new one.
  static constexpr std::uint64_t kNoImage = 0;
  static constexpr std::uint32_t kBlockLeaves = 64;  // taken from the heap in one; any number does

  bool Grow() noexcept;
  Outcome PageInLeaf(std::uint32_t page) noexcept;
  Outcome Read(Leaf& leaf) noexcept;
  void PageOutDownTo(std::uint32_t count) noexcept;
  bool PageOutOldestLeaf() noexcept;
  Leaf* TakeUnused() noexcept;
  void GiveUnused(Leaf* leaf) noexcept;
  void DropIfRetired(std::uint32_t number);
  void AppendIdle(Leaf* leaf);
  void RemoveIdle(Leaf* leaf);
  static void MakeNew(Leaf& leaf, std::uint16_t generation);
  static std::uint64_t HashOf(const Image& image, std::uint32_t number);
  bool NoteNoMemory() noexcept;

  PageMap m_map;
  std::unique_ptr<Leaf*[]> m_leaves;          // by number; or one of the shared ones below
  std::unique_ptr<std::uint64_t[]> m_images;  // by number: hash of the image in the file
  std::uint32_t m_leafCapacity = 0;           // room in the two arrays
  std::uint32_t m_pageCount = 0;              // pages of the leaves that the arrays know
  std::uint32_t m_leavesIn = 0;               // leaves in memory
  std::uint32_t m_leafLimit;                  // leaves to stay under in memory
  std::uint16_t m_firstGeneration;            // of new pages
  std::uint64_t m_damaged = 0;                // leaves that did not come back as they were written
  Leaf* m_oldestIdle = nullptr;  // list of the leaves in memory without a span in memory
  Leaf* m_newestIdle = nullptr;
  Leaf* m_unused = nullptr;                       // list of memory for leaves
  std::vector<std::unique_ptr<Leaf[]>> m_blocks;  // memory of all leaves
  BackingStore& m_file;
  StoreError& m_error;
  Leaf m_absent;   // stands for every leaf that is out; never written to
  Leaf m_retired;  // stands for every leaf whose pages are all retired; never written to
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGETABLE_H
