// What the engine tells about itself: the statistics record and the list of pinned objects.

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "libtcmalloc_virtualmm/Engine.h"

namespace tcmalloc {

void Engine::ExtractStats(VirtualMemoryStats* stats, std::uint32_t size,
                          std::uint32_t& needed) noexcept {
  std::uint32_t pools = 0;
  for (std::uint32_t i = 0; i < m_classes.Count(); ++i) {
    pools += m_slabs[static_cast<std::uint8_t>(i)].spans > 0 ? 1 : 0;
  }
  needed = static_cast<std::uint32_t>(sizeof(VirtualMemoryStats) + pools * sizeof(FixedPoolStats));
  if (stats == nullptr || size < needed) {
    return;
  }
  const PagerCounts& counts = m_pager.Counts();
  VirtualMemoryStats record{};
  record.pageSize = 1U << m_pageShift;
  record.budgetBytes = m_pager.BudgetFrames() << FrameArena::kFrameShift;
  record.residentBytes = m_arena.UsedFrames() << FrameArena::kFrameShift;
  record.currentObjects = static_cast<std::uint64_t>(std::max<std::int64_t>(m_currentObjects, 0));
  record.maxObjects = static_cast<std::uint64_t>(m_maxObjects);
  record.cumulativeObjects = m_allObjects;
  record.staleHandles = m_staleHandles;
  record.pageFileSize = m_store.FileBytes();
  record.pageReads = counts.reads;
  record.pageOuts = counts.outs;
  record.pageWrites = counts.writes;
  // Pending frees are told as done; of handles among them that were stale nobody knows yet. A class
  // is known once the page table's part is in memory, so what cannot be read counts there as it
  // did.
  std::array<std::uint64_t, PageEntry::kLarge> freed{};  // by size class
  record.largePages = m_largePages;
  record.largeSpans = m_largeObjects;
  m_pendingFrees.ForEach([&](std::uint64_t offset) {
    const ObjectHandle handle = ObjectHandle::Decode(offset);
    const PageEntry* entry = m_table.Fetch(handle.page);
    if (entry != nullptr && IsLarge(handle)) {
      record.largePages -= m_pager.SpanPages(handle.page);
      --record.largeSpans;
    } else if (entry != nullptr && IsInPagedOutSlab(handle)) {
      std::uint64_t& count = freed[entry->Kind()];
      count = std::min(count + 1, m_slabs[entry->Kind()].liveObjects);
    }
  });
  record.poolCount = pools;
  if (record.pageFileSize != 0) {
    std::snprintf(record.pagingFileName, sizeof record.pagingFileName, "%s", m_store.Path());
  }
  // The host's buffer is bytes; it need not be aligned for the record.
  auto* out = reinterpret_cast<char*>(stats);
  std::memcpy(out, &record, sizeof record);
  out += sizeof record;
  for (std::uint32_t i = 0; i < m_classes.Count(); ++i) {
    const auto sizeClass = static_cast<std::uint8_t>(i);
    const SlabDirectory::ClassState& state = m_slabs[sizeClass];
    if (state.spans == 0) {
      continue;
    }
    const SizeClass& c = m_classes[sizeClass];
    FixedPoolStats pool{};
    const std::uint64_t live = state.liveObjects - freed[i];
    pool.allocBytes = live * c.capacity;
    pool.freeBytes = (std::uint64_t{state.spans} * c.slots - live) * c.capacity;
    pool.spans = state.spans;
    pool.pages = state.spans * c.pages;
    pool.objectSize = c.capacity;
    std::memcpy(out, &pool, sizeof pool);
    out += sizeof pool;
  }
}

void Engine::GetMemoryInUse(VirtualMemoryInUse& use) noexcept {
  const auto bytes = [](std::uint64_t frames) { return frames << FrameArena::kFrameShift; };
  const std::uint64_t used = m_arena.UsedFrames();
  const std::uint64_t budget = m_pager.BudgetFrames();
  m_deferred.Flush();
  std::uint64_t pinned = 0;
  m_arena.ForEachRun([&](std::uint32_t frame) {
    pinned += m_table[m_arena[frame].page].live.pinned > 0 ? m_arena[frame].count : 0;
  });
  use.budgetBytes = bytes(budget);
  use.frameBytes = MappedBytes();
  use.residentBytes = bytes(used);
  use.pinnedBytes = bytes(pinned);
  use.tableBytes = m_table.Bytes() + m_arena.RecordBytes();
  use.excessBytes = bytes(used - std::min(used, budget));
  use.excessPins = m_pager.Excess().times;
}

const char* Engine::GetBudgetExcess() noexcept {
  const BudgetExcess& excess = m_pager.Excess();
  if (excess.times != 0) {
    const auto bytes = [](std::uint64_t frames) { return frames << FrameArena::kFrameShift; };
    const std::uint64_t used = m_arena.UsedFrames();
    std::snprintf(
        m_excessText, sizeof m_excessText,
        "pins that took memory beyond the budget: %" PRIu64 ", the last one %" PRIu64
        " bytes when %" PRIu64 " of %" PRIu64 " bytes were pinned; beyond it now: %" PRIu64
        " bytes, at most: %" PRIu64 " bytes",
        excess.times, bytes(excess.lastFrames), bytes(excess.lastUsed), bytes(excess.lastBudget),
        bytes(used - std::min(used, m_pager.BudgetFrames())), bytes(excess.mostFrames));
  }
  return m_excessText;
}

std::uint32_t Engine::GetOutstandingReferences(VirtualMemoryReferenceInfo* list,
                                               std::uint32_t capacity,
                                               std::uint32_t* written) noexcept {
  // No total is kept while objects are pinned and unpinned: it would make every pin wait for the
  // one before it.
  m_deferred.Flush();
  std::uint64_t pinned = 0;
  std::uint32_t count = 0;
  const auto add = [&](ObjectHandle handle, std::uint32_t size, std::uint32_t pins) {
    if (count < capacity) {
      list[count++] = {handle.Encode(), size, pins};
    }
  };
  if (list == nullptr) {
    capacity = 0;
  }
  m_arena.ForEachRun([&](std::uint32_t frame) {
    const std::uint32_t page = m_arena[frame].page;
    const PageEntry& entry = m_table[page];
    pinned += entry.live.pinned;
    if (entry.live.pinned == 0 || count == capacity) {
      return;
    }
    if (entry.Kind() == PageEntry::kLarge) {
      add({page, kLargeByte, entry.generation}, m_table.LargeBytes(page), m_arena[frame].pins);
      return;
    }
    const SizeClass& c = ClassOf(entry);
    SlabPage* slab = SlabPage::At(m_arena.Address(frame));
    for (std::uint32_t slot = 0; slot < c.slots; ++slot) {
      const std::uint32_t byte = kFirstObjectByte + slot * c.stride;
      ObjectHeader* header = slab->HeaderAt(byte);
      if (header->IsPinned()) {
        add({page, ObjectHandle::ByteOf(header->tag), ObjectHandle::GenerationOf(header->tag)},
            SlabPage::SizeOf(header, c), header->pins);
      }
    }
  });
  if (written != nullptr) {
    *written = count;
  }
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(pinned, UINT32_MAX));
}

}  // namespace tcmalloc
