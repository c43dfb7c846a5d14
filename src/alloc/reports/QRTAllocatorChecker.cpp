#include "QRTAllocatorChecker.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "QRTAllocatorView.h"
#include "QRTOverWriteReport.h"

namespace {

using Block = QRTAllocatorView::Block;

constexpr unsigned kChunkBytes = 32760;

/// Counts and writes violations.
class Findings {
 public:
  explicit Findings(std::ostream& os) : m_os(os) {}

  template <class... Parts>
  void expect(bool holds, const Parts&... what) {
    if (!holds) {
      ++m_count;
      (m_os << ... << what) << '\n';
    }
  }
  unsigned count() const { return m_count; }

 private:
  std::ostream& m_os;
  unsigned m_count = 0;
};

bool isBelow(const Block& a, const Block& b) {
  return std::less<>()(a.start, b.start);
}

/// Whether a free list that was entered anywhere ascends but for one wrap.
bool ascendsWithOneWrap(const std::vector<Block>& list) {
  unsigned wraps = 0;
  for (std::size_t i = 0; i < list.size(); ++i) {
    wraps += isBelow(list[i], list[(i + 1) % list.size()]) ? 0 : 1;
  }
  return list.empty() || wraps == 1;
}

}  // namespace

unsigned QRTAllocatorChecker::check(const QRTMemoryPool& pool, std::ostream& os) {
  Findings findings(os);
  std::vector<Block> freeBlocks;
  for (const QRTAllocatorView::Extent& extent : QRTAllocatorView::extents(pool)) {
    const void* const start = extent.start;
    findings.expect(extent.isIntact, "Heap memory at ", start, ": the block sizes break off after ",
                    extent.blocks.size(), " blocks.");
    bool wasFree = false;
    for (const Block& block : extent.blocks) {
      const void* const at = block.start;
      findings.expect(!(wasFree && block.isFree), "Free block at ", at,
                      ": touches the one in front.");
      wasFree = block.isFree;
      if (block.isFree) {
        freeBlocks.push_back(block);
      }
    }
  }
  bool isCircular = false;
  std::vector<Block> list = QRTAllocatorView::freeList(pool, isCircular);
  findings.expect(isCircular, "Free list: leads out of the pool after ", list.size(), " blocks.");
  findings.expect(ascendsWithOneWrap(list), "Free list: not ascending by address.");
  std::sort(list.begin(), list.end(), isBelow);
  findings.expect(std::equal(list.begin(), list.end(), freeBlocks.begin(), freeBlocks.end(),
                             [](const Block& a, const Block& b) {
                               return a.start == b.start && a.bytes == b.bytes;
                             }),
                  "Free list: ", list.size(), " blocks on it, ", freeBlocks.size(),
                  " free blocks in the heap memory.");
  return findings.count();
}

unsigned QRTAllocatorChecker::check(const QRTFixedMemoryPool& pool, std::ostream& os) {
  Findings findings(os);
  const void* const current = QRTAllocatorView::figures(pool).current;
  bool isCurrentOurs = current == nullptr;
  for (const QRTAllocatorView::Chunk& chunk : QRTAllocatorView::chunks(pool)) {
    const void* const start = chunk.start;
    findings.expect(chunk.isListIntact, "Chunk at ", start,
                    ": a free list leads out of its slots.");
    isCurrentOurs = isCurrentOurs || start == current;
  }
  findings.expect(isCurrentOurs, "Current chunk at ", current, ": not a chunk of the pool.");
  const QRTOverWriteReport headers(pool);
  for (unsigned i = 0; i < headers.getCount(); ++i) {
    const QRTOverWriteReport::Finding& finding = headers.get(i);
    findings.expect(false, "Chunk ", finding.chunk, ", slot ", finding.slot, ": damaged header.");
  }
  return findings.count();
}

unsigned QRTAllocatorChecker::check(const QRTMemoryArena& arena, std::ostream& os) {
  Findings findings(os);
  unsigned inBins = 0;
  std::uint64_t used = 0;
  for (const QRTFixedMemoryPool* pool : QRTAllocatorView::bins(arena)) {
    inBins += check(*pool, os);
    used += QRTAllocatorView::chunks(*pool).size() * std::uint64_t{kChunkBytes};
  }
  for (const QRTAllocatorView::Large& large : QRTAllocatorView::largeBlocks(arena)) {
    const void* const start = large.start;
    findings.expect(
        large.header.m_filler3 == 0x0E && large.header.m_inUse == 1 && large.header.m_offset == 0,
        "Large block at ", start, ": damaged header.");
    used += std::uint64_t{large.header.m_size} + sizeof large.header;
  }
  const QRTAllocatorView::Budget budget = QRTAllocatorView::budget(arena);
  findings.expect(used == std::uint64_t{budget.allowed} - budget.remaining, "Budget: ", used,
                  " bytes in chunks and large blocks, ", budget.allowed - budget.remaining,
                  " bytes charged.");
  return inBins + findings.count();
}
