#include "libtcmalloc_virtualmm/PageTable.h"

#include <algorithm>
#include <new>

namespace tcmalloc {

namespace {

// Page numbers end where the offset's 32 bits end; the last leaf stays unused so that no count
// wraps around.
constexpr std::uint32_t kMaxLeaves = (1U << 22) - 1;

}  // namespace

PageTable::~PageTable() {
  for (std::uint32_t leaf = 0; leaf < m_leafCount; ++leaf) {
    delete m_leaves[leaf];
  }
}

std::uint32_t PageTable::Acquire(std::uint32_t count, std::uint8_t kind) noexcept {
  const bool inLeaf = count <= kLeafPages;
  std::uint32_t first = inLeaf ? FindInLeaf(count) : FindWholeLeaves(count);
  if (first == kNoPage) {
    // A long run starts on the free leaves that the table ends with, if there are any.
    std::uint32_t freeTail = 0;
    while (!inLeaf && freeTail < m_leafCount &&
           m_leaves[m_leafCount - 1 - freeTail]->free.NextTaken(0) == kLeafPages) {
      ++freeTail;
    }
    first = (m_leafCount - freeTail) * kLeafPages;
    const std::uint32_t leaves = (count + kLeafPages - 1) / kLeafPages;
    if (!AddLeaves(leaves - freeTail)) {
      return kNoPage;
    }
  }
  Take(first, count, kind);
  return first;
}

void PageTable::Release(std::uint32_t first, std::uint32_t count) noexcept {
  m_usedPages -= count;
  m_firstVacantLeaf = std::min(m_firstVacantLeaf, first / kLeafPages);
  const bool atEnd = first + count == m_usedEnd;
  for (std::uint32_t page = first, left = count; left > 0;) {
    const std::uint32_t here = std::min(left, kLeafPages - page % kLeafPages);
    Leaf& leaf = *m_leaves[page / kLeafPages];
    leaf.free.Mark(page % kLeafPages, here, true);
    m_longestRun[page / kLeafPages] = kLeafPages;
    for (std::uint32_t i = 0; i < here; ++i) {
      PageEntry& entry = leaf.entries[page % kLeafPages + i];
      entry.state = PageEntry::kFree | PageEntry::kOut;
      entry.flags = 0;
    }
    page += here;
    left -= here;
  }
  if (atEnd) {
    std::uint32_t leaf = (m_usedEnd - 1) / kLeafPages + 1;
    m_usedEnd = 0;
    while (leaf-- > 0) {
      const std::uint32_t last = m_leaves[leaf]->free.LastTaken();
      if (last != BitRuns<kLeafPages>::kNone) {
        m_usedEnd = leaf * kLeafPages + last + 1;
        break;
      }
    }
  }
}

bool PageTable::PrepareLargeBytes(std::uint32_t page) noexcept {
  Leaf& leaf = *m_leaves[page / kLeafPages];
  if (leaf.largeBytes == nullptr) {
    leaf.largeBytes.reset(new (std::nothrow) std::uint32_t[kLeafPages]);
  }
  return leaf.largeBytes != nullptr;
}

std::uint32_t PageTable::FindInLeaf(std::uint32_t count) {
  while (m_firstVacantLeaf < m_leafCount && m_longestRun[m_firstVacantLeaf] == 0) {
    ++m_firstVacantLeaf;
  }
  for (std::uint32_t leaf = m_firstVacantLeaf; leaf < m_leafCount; ++leaf) {
    if (m_longestRun[leaf] < count) {
      continue;
    }
    std::uint32_t longest = 0;
    const std::uint32_t at = m_leaves[leaf]->free.Find(count, longest);
    if (at != BitRuns<kLeafPages>::kNone) {
      return leaf * kLeafPages + at;
    }
    m_longestRun[leaf] = static_cast<std::uint16_t>(longest);
  }
  return kNoPage;
}

std::uint32_t PageTable::FindWholeLeaves(std::uint32_t count) {
  const std::uint32_t wanted = (count + kLeafPages - 1) / kLeafPages;
  std::uint32_t found = 0;
  for (std::uint32_t leaf = 0; leaf < m_leafCount; ++leaf) {
    const bool isFree =
        m_longestRun[leaf] == kLeafPages && m_leaves[leaf]->free.NextTaken(0) == kLeafPages;
    found = isFree ? found + 1 : 0;
    if (found == wanted) {
      return (leaf + 1 - wanted) * kLeafPages;
    }
  }
  return kNoPage;
}

bool PageTable::AddLeaves(std::uint32_t count) noexcept {
  if (count > kMaxLeaves - m_leafCount) {
    return false;
  }
  if (m_leafCount + count > m_leafCapacity) {
    const std::uint32_t capacity = std::max({m_leafCount + count, 2 * m_leafCapacity, 16U});
    std::unique_ptr<Leaf*[]> leaves(new (std::nothrow) Leaf*[capacity]);
    std::unique_ptr<std::uint16_t[]> longest(new (std::nothrow) std::uint16_t[capacity]);
    if (leaves == nullptr || longest == nullptr) {
      return false;
    }
    std::copy_n(m_leaves.get(), m_leafCount, leaves.get());
    std::copy_n(m_longestRun.get(), m_leafCount, longest.get());
    m_leaves = std::move(leaves);
    m_longestRun = std::move(longest);
    m_leafCapacity = capacity;
  }
  // Leaves made before one that cannot be had stay: they are free pages for later.
  for (; count > 0; --count) {
    auto* leaf = new (std::nothrow) Leaf();
    if (leaf == nullptr) {
      return false;
    }
    for (PageEntry& entry : leaf->entries) {
      entry.state = PageEntry::kFree | PageEntry::kOut;
    }
    leaf->free.Mark(0, kLeafPages, true);
    m_leaves[m_leafCount] = leaf;
    m_longestRun[m_leafCount] = kLeafPages;
    ++m_leafCount;
    m_pageCount += kLeafPages;
  }
  return true;
}

void PageTable::Take(std::uint32_t first, std::uint32_t count, std::uint8_t kind) {
  m_usedPages += count;
  m_usedEnd = std::max(m_usedEnd, first + count);
  for (std::uint32_t page = first, left = count; left > 0;) {
    const std::uint32_t here = std::min(left, kLeafPages - page % kLeafPages);
    Leaf& leaf = *m_leaves[page / kLeafPages];
    leaf.free.Mark(page % kLeafPages, here, false);
    if (leaf.free.NextFree(0) == kLeafPages) {
      m_longestRun[page / kLeafPages] = 0;
    }
    for (std::uint32_t i = 0; i < here; ++i) {
      PageEntry& entry = leaf.entries[page % kLeafPages + i];
      entry.state = PageEntry::kTail | PageEntry::kOut;
      entry.flags = 0;
    }
    page += here;
    left -= here;
  }
  (*this)[first].state = kind | PageEntry::kOut;
}

}  // namespace tcmalloc
