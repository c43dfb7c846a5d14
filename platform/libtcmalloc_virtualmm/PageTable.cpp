// The page table: page numbers from the PageMap, and an entry for each in leaves of 64, which are
// paged in and out by themselves. By a leaf's number the table has a pointer (m_leaves) and the
// hash of its image in the file (m_images). A leaf is one of these:
//
//     new       m_absent, kNoImage   all entries as MakeNew makes them; takes no memory
//     out       m_absent, a hash     read from the file when it is needed
//     idle      a leaf of its own    spansIn is 0; in the idle list; may leave
//     busy      a leaf of its own    spansIn is above 0; in no list; stays, as the pager and the
//                                    pins have references to its entries
//     retired   m_retired            no generation is left in any entry; final
//
// The image of a leaf in memory may be out of date: only its hash tells. m_leavesIn counts the idle
// and the busy ones.

#include "libtcmalloc_virtualmm/PageTable.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>

#include "libtcmalloc_virtualmm/PageHash.h"

namespace tcmalloc {

PageTable::PageTable(BackingStore& file, StoreError& error, std::uint32_t leafLimit,
                     std::uint16_t firstGeneration)
    : m_leafLimit(leafLimit), m_firstGeneration(firstGeneration), m_file(file), m_error(error) {
  LIBTCMALLOC_ASSERT(firstGeneration != kNoGeneration);
  MakeNew(m_absent, firstGeneration);
  MakeNew(m_retired, kNoGeneration);
}

std::uint64_t PageTable::Bytes() const {
  std::uint64_t bytes = m_map.Bytes() + m_blocks.size() * kBlockLeaves * sizeof(Leaf) +
                        std::uint64_t{m_leafCapacity} * (sizeof(void*) + sizeof(std::uint64_t));
  for (std::uint32_t i = 0; i < m_pageCount / kLeafPages; ++i) {
    bytes += m_leaves[i]->largeBytes != nullptr ? kLeafPages * sizeof(std::uint32_t) : 0;
  }
  return bytes;
}

// ---- pages --------------------------------------------------------------------------------------

/// A page that was used before goes on with the generation that its leaf holds, so the leaf has to
/// be in memory before the number is given out:
///  1. Keep to the limit of leaves: idle ones leave.
///  2. Take the lowest free page numbers.
///  3. Bring the first one's leaf in. If that fails, the numbers are given back. Of a damaged leaf
///     they stay unused, as without their generations handles of objects that ended there would fit
///     new ones: those behind the leaf are tried. That ends, since a new leaf needs no read.
///  4. Begin a span there, out of memory and without a copy.
///
/// Step 1 is not left to PageInLeaf, which need not be called here: leaves that were busy when the
/// limit was passed became idle since, and OnSpanOut lets none leave, as a caller of it goes on
/// using the entry. One leaf is enough for a run of any length: the entries of its further pages
/// are not written, and begin no span whether their leaves are in or out.
std::uint32_t PageTable::Acquire(std::uint32_t count, std::uint8_t kind) noexcept {
  PageOutDownTo(m_leafLimit);  // step 1
  std::uint32_t from = 0;      // behind the leaves that turned out damaged
  for (;;) {
    // Steps 2 and 3.
    const std::uint32_t first = m_map.Acquire(count, from);
    if (first == kNoPage) {
      NoteNoMemory();
      return kNoPage;
    }
    const Outcome outcome = !Grow()       ? Outcome::kUnreadable
                            : IsIn(first) ? Outcome::kIn
                                          : PageInLeaf(first);
    // Step 4.
    if (outcome == Outcome::kIn) {
      PageEntry& entry = (*this)[first];
      LIBTCMALLOC_ASSERT(kind <= PageEntry::kLarge && !entry.IsSpanHead());
      entry.state = kind | PageEntry::kPagedOut;
      entry.flags = 0;
      return first;
    }
    m_map.Release(first, count);
    if (outcome == Outcome::kUnreadable) {
      return kNoPage;
    }
    from = (first / kLeafPages + 1) * kLeafPages;
  }
}

/// Only the first page of a span has a generation of its own at work, so only it can be used up;
/// the others go back into circulation with theirs. DropIfRetired comes last, since it may give
/// back the leaf, and `entry` with it. It relies on OnSpanOut having been called before: a leaf
/// without a span is idle then.
void PageTable::Release(std::uint32_t first, std::uint32_t count) noexcept {
  PageEntry& entry = (*this)[first];
  LIBTCMALLOC_ASSERT(IsIn(first) && entry.IsSpanHead());
  entry.state = PageEntry::kNoHead | PageEntry::kPagedOut;
  entry.flags = 0;
  if (!entry.IsUsedUp()) {
    m_map.Release(first, count);
    return;
  }
  if (count > 1) {
    m_map.Release(first + 1, count - 1);
  }
  m_map.Retire(first);
  DropIfRetired(first / kLeafPages);
}

/// A leaf keeps this array until it leaves. Sizes of large objects that ended stay in it and are
/// not written to the image, so a leaf that has no large object any more comes back without one.
bool PageTable::PrepareLargeBytes(std::uint32_t page) noexcept {
  LIBTCMALLOC_ASSERT(IsIn(page));
  Leaf& leaf = *m_leaves[page / kLeafPages];
  if (leaf.largeBytes == nullptr) {
    leaf.largeBytes.reset(new (std::nothrow) std::uint32_t[kLeafPages]());
  }
  return leaf.largeBytes != nullptr || NoteNoMemory();
}

/// Makes the arrays know all pages that the map knows. New leaves take no memory yet: they stand as
/// absent and without an image, which PageInLeaf makes a new leaf of. Without memory for both
/// arrays nothing changes: the map is ahead of the table, Acquire gives its pages back, and the
/// next one tries again. Half as many leaves again each time make the copies O(1) a leaf.
bool PageTable::Grow() noexcept {
  const std::uint32_t leaves = m_map.PageCount() / kLeafPages;
  const std::uint32_t known = m_pageCount / kLeafPages;
  if (leaves > m_leafCapacity) {
    const std::uint32_t capacity = std::max(leaves, m_leafCapacity + m_leafCapacity / 2);
    std::unique_ptr<Leaf*[]> grown(new (std::nothrow) Leaf*[capacity]);
    std::unique_ptr<std::uint64_t[]> images(new (std::nothrow) std::uint64_t[capacity]);
    if (grown == nullptr || images == nullptr) {
      return NoteNoMemory();
    }
    // Both are there: from here on nothing fails.
    std::copy_n(m_leaves.get(), known, grown.get());
    std::copy_n(m_images.get(), known, images.get());
    m_leaves = std::move(grown);
    m_images = std::move(images);
    m_leafCapacity = capacity;
  }
  LIBTCMALLOC_ASSERT(known <= leaves && leaves <= m_leafCapacity);
  std::fill_n(m_leaves.get() + known, leaves - known, &m_absent);
  std::fill_n(m_images.get() + known, leaves - known, kNoImage);
  m_pageCount = m_map.PageCount();
  return true;
}

bool PageTable::NoteNoMemory() noexcept {
  m_error.NoteReason("extend the page table", nullptr, "the system has no memory left");
  return false;
}

// ---- leaves -------------------------------------------------------------------------------------

// A leaf in memory is either idle, in the list by the time it became so, or holds spans in memory
// (spansIn > 0), to whose entries others have references. Only idle leaves leave.

void PageTable::OnSpanIn(std::uint32_t page) noexcept {
  Leaf* leaf = m_leaves[page / kLeafPages];
  LIBTCMALLOC_ASSERT(IsIn(page) && (*this)[page].IsSpanHead() && (*this)[page].Resident());
  LIBTCMALLOC_ASSERT(leaf->spansIn < kLeafPages);
  if (leaf->spansIn++ == 0) {
    RemoveIdle(leaf);
  }
}

void PageTable::OnSpanOut(std::uint32_t page) noexcept {
  Leaf* leaf = m_leaves[page / kLeafPages];
  LIBTCMALLOC_ASSERT(IsIn(page) && leaf->spansIn > 0);
  if (--leaf->spansIn == 0) {
    AppendIdle(leaf);
  }
}

/// Pages idle leaves out until at most `count` leaves are in memory. One that cannot be written
/// stays: the table grows beyond its limit rather than that something is lost. It stays the oldest
/// as well, so no other one leaves before it does; a disk that is full fails once a call and not
/// once a leaf.
void PageTable::PageOutDownTo(std::uint32_t count) noexcept {
  while (m_leavesIn > count && PageOutOldestLeaf()) {
  }
}

/// Brings a leaf in:
///  1. Page others out, so that it fits under the limit.
///  2. Take memory.
///  3. Read it and compare it with its hash; one that was never written is made as new.
///  4. Put it in its place, as the newest of the idle ones: the others leave before it.
/// On failure its image is as it was, and the next Fetch tries again; what left stays out.
PageTable::Outcome PageTable::PageInLeaf(std::uint32_t page) noexcept {
  LIBTCMALLOC_ASSERT(!IsIn(page));
  PageOutDownTo(m_leafLimit - 1);  // step 1
  Leaf* leaf = TakeUnused();       // step 2
  if (leaf == nullptr) {
    NoteNoMemory();
    return Outcome::kUnreadable;
  }
  // Step 3.
  leaf->number = page / kLeafPages;
  if (const Outcome outcome = Read(*leaf); outcome != Outcome::kIn) {
    GiveUnused(leaf);
    return outcome;
  }
  // Step 4.
  LIBTCMALLOC_ASSERT(leaf->spansIn == 0);
  m_leaves[leaf->number] = leaf;
  ++m_leavesIn;
  AppendIdle(leaf);
  return Outcome::kIn;
}

bool PageTable::PrefetchLeaf(std::uint32_t page) noexcept {
  const bool isOut = !IsIn(page) && m_images[page / kLeafPages] != kNoImage;
  if (isOut) {
    m_file.Prefetch(std::uint64_t{page / kLeafPages} * sizeof(Image), sizeof(Image));
  }
  return isOut;
}

/// Fills a leaf from its image, or as a new one if it has none. Nothing of an image is used before
/// its hash fits: a wrong entry could give out a generation twice. Of a damaged one the hash is
/// kept: a later read may find it whole, and it is never taken for a new leaf.
/// @return whether that was possible; after a failure what the leaf holds is of no use
PageTable::Outcome PageTable::Read(Leaf& leaf) noexcept {
  MakeNew(leaf, m_firstGeneration);
  if (m_images[leaf.number] == kNoImage) {
    return Outcome::kIn;
  }
  Image image;
  const IoSlice slice{reinterpret_cast<char*>(&image), sizeof image, m_images[leaf.number]};
  if (!m_file.Read(std::uint64_t{leaf.number} * sizeof image, &slice, 1)) {
    return Outcome::kUnreadable;
  }
  if (HashOf(image, leaf.number) != m_images[leaf.number]) {
    ++m_damaged;
    m_error.NoteReason("read the page table's file", m_file.Path(),
                       "the entries are not what was written to it");
    return Outcome::kDamaged;
  }
  std::copy_n(image.entries, kLeafPages, leaf.entries);
  if (std::any_of(std::begin(image.largeBytes), std::end(image.largeBytes),
                  [](std::uint32_t bytes) { return bytes != 0; })) {
    leaf.largeBytes.reset(new (std::nothrow) std::uint32_t[kLeafPages]);
    if (leaf.largeBytes == nullptr) {
      NoteNoMemory();
      return Outcome::kUnreadable;
    }
    std::copy_n(image.largeBytes, kLeafPages, leaf.largeBytes.get());
  }
  return Outcome::kIn;
}

/// Pages out the leaf that has been idle for longest:
///  1. Make its image. Eviction numbers are left out, or hardly a leaf would be as it was: their
///     place holds 0, ReplacementPolicy::kNeverEvicted, so that spans of a leaf that was out are
///     new ones to the policy. What is not set stays 0, for the hash goes over all bytes.
///  2. Write it, unless the hash says that the file has it as it is.
///  3. Take the leaf out of its place.
/// Cost: a hash of 1,280 bytes, and at most one write of as many.
/// @return false, with the leaf in its place, when there is none or it cannot be written
bool PageTable::PageOutOldestLeaf() noexcept {
  Leaf* leaf = m_oldestIdle;
  if (leaf == nullptr) {
    return false;
  }
  LIBTCMALLOC_ASSERT(m_leaves[leaf->number] == leaf && leaf->spansIn == 0);
  // Step 1.
  Image image{};
  for (std::uint32_t i = 0; i < kLeafPages; ++i) {
    LIBTCMALLOC_ASSERT(!leaf->entries[i].Resident());
    image.entries[i] = leaf->entries[i];
    image.entries[i].where = 0;
    if (leaf->largeBytes != nullptr && image.entries[i].Kind() == PageEntry::kLarge) {
      image.largeBytes[i] = leaf->largeBytes[i];
    }
  }
  // Step 2.
  const std::uint64_t hash = HashOf(image, leaf->number);
  if (hash != m_images[leaf->number]) {
    const IoSlice slice{reinterpret_cast<char*>(&image), sizeof image, hash};
    if (!m_file.Write(std::uint64_t{leaf->number} * sizeof image, &slice, 1)) {
      m_images[leaf->number] = kNoImage;  // it may be torn; nobody reads it while the leaf is here
      return false;
    }
    m_images[leaf->number] = hash;
  }
  // Step 3.
  m_leaves[leaf->number] = &m_absent;
  --m_leavesIn;
  RemoveIdle(leaf);
  GiveUnused(leaf);
  return true;
}

/// Gives a leaf's memory back if all of its pages are retired. No page in it is taken again, so
/// what the shared leaf answers, "no span and no generation", stays true, and the image in the file
/// is never read again.
void PageTable::DropIfRetired(std::uint32_t number) {
  Leaf* leaf = m_leaves[number];
  if (std::all_of(std::begin(leaf->entries), std::end(leaf->entries),
                  [](const PageEntry& entry) { return entry.IsUsedUp() && !entry.IsSpanHead(); })) {
    m_leaves[number] = &m_retired;
    --m_leavesIn;
    RemoveIdle(leaf);
    GiveUnused(leaf);
  }
}

void PageTable::MakeNew(Leaf& leaf, std::uint16_t generation) {
  for (PageEntry& entry : leaf.entries) {
    entry = {};
    entry.generation = generation;
    entry.state = PageEntry::kNoHead | PageEntry::kPagedOut;
  }
}

/// Never kNoImage, so that a leaf with an image is not taken for a new one: the one hash that is
/// equal to it gives way to the next.
std::uint64_t PageTable::HashOf(const Image& image, std::uint32_t number) {
  static_assert(std::has_unique_object_representations_v<PageEntry::Live>);
  // The number is the seed: an image that ends up at another leaf's place does not fit.
  const std::uint64_t hash = PageHash(&image, sizeof image, number);
  return hash == kNoImage ? kNoImage + 1 : hash;
}

// Leaves are made in blocks and used again rather than freed: they would break the heap up.

PageTable::Leaf* PageTable::TakeUnused() noexcept {
  if (m_unused == nullptr) {
    try {
      m_blocks.push_back(std::make_unique<Leaf[]>(kBlockLeaves));
    } catch (const std::exception&) {
      return nullptr;
    }
    for (std::uint32_t i = kBlockLeaves; i-- > 0;) {
      GiveUnused(&m_blocks.back()[i]);
    }
  }
  Leaf* leaf = m_unused;
  m_unused = leaf->newer;
  return leaf;
}

void PageTable::GiveUnused(Leaf* leaf) noexcept {
  leaf->largeBytes.reset();
  leaf->newer = m_unused;
  m_unused = leaf;
}

void PageTable::AppendIdle(Leaf* leaf) {
  LIBTCMALLOC_ASSERT(leaf != &m_absent && m_leaves[leaf->number] == leaf);
  LIBTCMALLOC_ASSERT((m_oldestIdle == nullptr) == (m_newestIdle == nullptr));
  leaf->older = m_newestIdle;
  leaf->newer = nullptr;
  (m_newestIdle == nullptr ? m_oldestIdle : m_newestIdle->newer) = leaf;
  m_newestIdle = leaf;
}

void PageTable::RemoveIdle(Leaf* leaf) {
  LIBTCMALLOC_ASSERT((leaf->older == nullptr ? m_oldestIdle : leaf->older->newer) == leaf);
  LIBTCMALLOC_ASSERT((leaf->newer == nullptr ? m_newestIdle : leaf->newer->older) == leaf);
  (leaf->older == nullptr ? m_oldestIdle : leaf->older->newer) = leaf->newer;
  (leaf->newer == nullptr ? m_newestIdle : leaf->newer->older) = leaf->older;
}

}  // namespace tcmalloc
