#include "libtcmalloc_virtualmm/EngineChecker.h"

#include <algorithm>

namespace tcmalloc {

std::string Engine::Check(bool wasShortOfMemory) const {
  return EngineChecker(*this, wasShortOfMemory).Run();
}

EngineChecker::EngineChecker(const Engine& engine, bool wasShortOfMemory)
    : m_engine(engine),
      m_classes(engine.m_classes),
      m_table(engine.m_table),
      m_arena(engine.m_arena),
      m_pager(engine.m_pager),
      m_wasShortOfMemory(wasShortOfMemory),
      m_seen(engine.m_classes.Count()) {}

std::string EngineChecker::Run() {
  CheckArena();
  CheckLeaves();
  for (const std::uint32_t frame : m_runs) {
    CheckRun(frame);
  }
  CheckQueues();
  CheckSpans();
  CheckPageMap();
  CheckClasses();
  CheckDeferredPins();
  CheckPendingFrees();
  CheckCounts();
  CheckFiles();
  CheckBudget();
  return m_report.str();
}

const Frame& EngineChecker::FrameAt(std::uint32_t frame) const {
  return m_arena.m_chunks[frame / FrameArena::kChunkFrames]
      ->frames[frame % FrameArena::kChunkFrames];
}

/// Whether a page number of the table is in use.
bool EngineChecker::IsTaken(std::uint32_t page) const {
  const PageMap::Group& group = m_table.m_map.m_groups[page / PageMap::kGroupPages];
  return !group.free.IsFree(page % PageMap::kGroupPages) && !IsRetired(page);
}

/// Whether a page number of the table is never used again.
bool EngineChecker::IsRetired(std::uint32_t page) const {
  const PageMap::Group& group = m_table.m_map.m_groups[page / PageMap::kGroupPages];
  return group.retired != nullptr && group.retired->IsFree(page % PageMap::kGroupPages);
}

/// Whether a page of the table is described in memory: its leaf is there, or was never written and
/// is as a new one.
bool EngineChecker::IsSeen(std::uint32_t page) const {
  return m_table.IsIn(page) ||
         m_table.m_images[page / PageTable::kLeafPages] == PageTable::kNoImage;
}

/// Pages of a span whose leaf is in memory; 0 when its kind or size cannot be.
std::uint32_t EngineChecker::PagesOf(std::uint32_t page, const PageEntry& entry) const {
  if (entry.Kind() < m_classes.Count()) {
    return m_classes[entry.Kind()].pages;
  }
  const auto& sizes = m_table.m_leaves[page / PageTable::kLeafPages]->largeBytes;
  if (entry.Kind() != PageEntry::kLarge || sizes == nullptr) {
    return 0;
  }
  const std::uint64_t bytes = sizes[page % PageTable::kLeafPages];
  return static_cast<std::uint32_t>((bytes + (1U << m_engine.m_pageShift) - 1) >>
                                    m_engine.m_pageShift);
}

// ---- frames -------------------------------------------------------------------------------------

/// Each chunk's free frames against its runs, and its counts against both. Collects the runs.
void EngineChecker::CheckArena() {
  constexpr std::uint32_t kFrames = FrameArena::kChunkFrames;
  std::uint64_t used = 0;
  std::uint64_t mapped = 0;
  std::uint32_t emptyChunks = 0;
  for (std::uint32_t chunk = 0; chunk < m_arena.m_chunkEnd; ++chunk) {
    const FrameArena::Chunk* c = m_arena.m_chunks[chunk].get();
    const std::uint32_t noted = m_arena.m_freeCounts[chunk];
    Require(noted == 0 || chunk >= m_arena.m_firstVacant, "chunk ", chunk,
            " has free frames and is passed over by the search");
    if (c == nullptr) {
      Require(noted == 0, "chunk ", chunk, " is not there and has free frames");
      continue;
    }
    mapped += c->frameCount;
    Require(m_arena.Address(chunk * kFrames) == c->base, "chunk ", chunk,
            " is addressed elsewhere than it lies");
    if (!c->Shared()) {
      Require(c->frames[0].count == c->frameCount && c->freeCount == 0 && noted == 0, "chunk ",
              chunk, " of one run does not belong to it as a whole");
      used += c->frameCount;
      m_runs.push_back(chunk * kFrames);
      continue;
    }
    std::uint32_t taken = 0;
    std::uint32_t place = 0;
    while ((place = c->free.NextTaken(place)) < kFrames) {
      const std::uint32_t count = c->frames[place].count;
      if (!Require(count > 0 && count <= kFrames - place, "frame ", chunk * kFrames + place,
                   " is in use and starts no run")) {
        ++place;
        continue;
      }
      Require(c->free.AreAll(place, count, false), "frame ", chunk * kFrames + place, "'s run of ",
              count, " has free frames in it");
      m_runs.push_back(chunk * kFrames + place);
      taken += count;
      place += count;
    }
    used += taken;
    emptyChunks += taken == 0 ? 1 : 0;
    Require(c->freeCount == kFrames - taken && noted == c->freeCount, "chunk ", chunk, " counts ",
            c->freeCount, " and ", noted, " free frames and has ", kFrames - taken);
  }
  Require(m_arena.m_usedFrames == used, m_arena.m_usedFrames, " frames are counted, ", used,
          " are in use");
  Require(m_arena.m_mappedFrames == mapped, m_arena.m_mappedFrames,
          " frames are counted in chunks, ", mapped, " are there");
  Require(m_arena.m_emptyChunks == emptyChunks, m_arena.m_emptyChunks, " chunks count as empty, ",
          emptyChunks, " are");
}

/// A run of frames against the entry of the span it holds.
void EngineChecker::CheckRun(std::uint32_t frame) {
  const Frame& f = FrameAt(frame);
  if (!Require(m_table.Has(f.page) && m_table.IsIn(f.page), "frame ", frame, " holds page ", f.page,
               ", which the table does not have in memory")) {
    return;
  }
  const PageEntry& entry = m_table[f.page];
  if (!Require(entry.Resident() && entry.where == frame, "frame ", frame, " holds page ", f.page,
               ", whose entry does not say so")) {
    return;
  }
  const std::uint32_t pages = PagesOf(f.page, entry);
  if (!Require(pages > 0 && f.count == m_pager.FramesOf(pages), "page ", f.page,
               " begins a span of ", pages, " pages in ", std::uint32_t{f.count}, " frames")) {
    return;
  }
  const PageEntry::Live& live = entry.live;
  Require(entry.Modified() || (entry.flags & PageEntry::kHasCopy) != 0, "page ", f.page,
          " is not modified and has no copy in the file");
  Require(f.queue != Frame::Queue::kNone || (live.pinned > 0 && entry.Notifies()), "page ", f.page,
          " stands in no queue and waits for no unpin");
  if (entry.Kind() == PageEntry::kLarge) {
    Require(f.pins <= kMaxPins && live.pinned == (f.pins > 0 ? 1 : 0), "the large object at page ",
            f.page, " has ", f.pins, " pins, its entry counts ", live.pinned, " pinned objects");
  } else {
    CheckSlab(f.page, entry);
  }
}

/// A slab in memory: the chain of its free slots, its headers, and the counts in its entry.
void EngineChecker::CheckSlab(std::uint32_t page, const PageEntry& entry) {
  const SizeClass& c = m_classes[entry.Kind()];
  SlabPage* slab = SlabPage::At(m_arena.Address(entry.where));
  std::vector<bool> chained(c.slots);
  std::uint32_t freeSlots = 0;
  for (std::uint16_t byte = entry.live.firstFree; byte != 0;) {
    if (!Require(byte % 8 == 0 && m_classes.IsSlotStart(entry.state, byte), "page ", page,
                 " chains byte ", byte, ", where no slot starts")) {
      break;
    }
    const std::uint32_t slot = (byte - kFirstObjectByte) / c.stride;
    if (!Require(!chained[slot], "page ", page, " chains byte ", byte, " twice")) {
      break;
    }
    chained[slot] = true;
    ++freeSlots;
    byte = ObjectHandle::ByteOf(slab->HeaderAt(byte)->tag);
  }
  Require(freeSlots == entry.live.freeSlots, "page ", page, " counts ", entry.live.freeSlots,
          " free slots and chains ", freeSlots);
  std::uint32_t pinned = 0;
  for (std::uint32_t slot = 0; slot < c.slots; ++slot) {
    const std::uint32_t byte = kFirstObjectByte + slot * c.stride;
    const ObjectHeader& header = *slab->HeaderAt(byte);
    const bool isFree =
        header.pins == kFreePins && ObjectHandle::GenerationOf(header.tag) == kNoGeneration;
    const bool isObject = header.pins <= kMaxPins &&
                          ObjectHandle::GenerationOf(header.tag) != kNoGeneration &&
                          (ObjectHandle::ByteOf(header.tag) & ~7U) == byte;
    Require(isFree || isObject, "page ", page, " has at byte ", byte,
            " a header of neither an object nor a free slot");
    Require(isFree == chained[slot], "page ", page, " has at byte ", byte,
            isFree ? " a free slot that is not chained" : " an object in the chain of free slots");
    pinned += header.IsPinned() ? 1 : 0;
  }
  Require(pinned == entry.live.pinned, "page ", page, " counts ", entry.live.pinned,
          " pinned objects and has ", pinned);
}

/// The replacement queues against the frames that say they stand in them.
void EngineChecker::CheckQueues() {
  std::size_t queued = 0;
  for (const Frame::Queue queue : {Frame::Queue::kSmall, Frame::Queue::kMain}) {
    const bool isSmall = queue == Frame::Queue::kSmall;
    const char* name = isSmall ? "the small queue" : "the main queue";
    const ReplacementPolicy::List& list =
        isSmall ? m_pager.m_policy.m_small : m_pager.m_policy.m_main;
    std::uint64_t frames = 0;
    std::uint32_t older = kNoFrame;
    std::uint32_t frame = list.oldest;
    // A ring ends here at the latest.
    for (std::size_t left = m_runs.size(); frame != kNoFrame && left > 0; --left) {
      if (!Require(m_arena.IsMapped(frame) && FrameAt(frame).count > 0, name, " names frame ",
                   frame, ", which starts no run")) {
        return;
      }
      const Frame& f = FrameAt(frame);
      Require(f.queue == queue, "frame ", frame, " stands in ", name, " and says otherwise");
      Require(f.older == older, "frame ", frame, " in ", name, " is linked behind ", f.older,
              " in place of ", older);
      frames += f.count;
      ++queued;
      older = frame;
      frame = f.newer;
    }
    Require(frame == kNoFrame && list.newest == older, name, " does not end where it should");
    Require(list.frames == frames, name, " counts ", list.frames, " frames and holds ", frames);
  }
  const auto inQueue = static_cast<std::size_t>(std::count_if(
      m_runs.begin(), m_runs.end(),
      [&](std::uint32_t frame) { return FrameAt(frame).queue != Frame::Queue::kNone; }));
  Require(queued == inQueue, queued, " spans stand in the queues, ", inQueue, " say they do");
}

// ---- the page table -----------------------------------------------------------------------------

/// The leaves in memory, what they count, and the list of the idle ones.
void EngineChecker::CheckLeaves() {
  const std::uint32_t leaves = m_table.m_pageCount / PageTable::kLeafPages;
  std::uint32_t leavesIn = 0;
  std::uint32_t idle = 0;
  for (std::uint32_t number = 0; number < leaves; ++number) {
    const PageTable::Leaf* leaf = m_table.m_leaves[number];
    if (leaf == &m_table.m_absent) {
      m_seesAll = m_seesAll && IsSeen(number * PageTable::kLeafPages);
      continue;
    }
    if (leaf == &m_table.m_retired) {
      continue;
    }
    ++leavesIn;
    Require(leaf->number == number, "leaf ", number, " takes itself for ", leaf->number);
    const auto spansIn = static_cast<std::uint32_t>(
        std::count_if(std::begin(leaf->entries), std::end(leaf->entries),
                      [](const PageEntry& entry) { return entry.Resident(); }));
    Require(leaf->spansIn == spansIn, "leaf ", number, " counts ", leaf->spansIn,
            " spans in memory and has ", spansIn);
    idle += spansIn == 0 ? 1 : 0;
  }
  Require(m_table.m_leavesIn == leavesIn, m_table.m_leavesIn, " leaves are counted, ", leavesIn,
          " are in memory");
  Require(std::none_of(std::begin(m_table.m_absent.entries), std::end(m_table.m_absent.entries),
                       [](const PageEntry& entry) { return entry.IsSpanHead(); }),
          "the leaf that stands for those that are out begins a span");
  Require(std::all_of(std::begin(m_table.m_retired.entries), std::end(m_table.m_retired.entries),
                      [](const PageEntry& e) { return e.IsUsedUp() && !e.IsSpanHead(); }),
          "the leaf that stands for those of retired pages has a page that is not");

  std::uint32_t listed = 0;
  const PageTable::Leaf* older = nullptr;
  for (const PageTable::Leaf* leaf = m_table.m_oldestIdle; leaf != nullptr && listed <= leavesIn;
       leaf = leaf->newer) {
    ++listed;
    Require(leaf->older == older && leaf->spansIn == 0 && leaf->number < leaves &&
                m_table.m_leaves[leaf->number] == leaf,
            "leaf ", leaf->number, " does not belong where it is among the idle ones");
    older = leaf;
  }
  Require(listed == idle && m_table.m_newestIdle == older, listed, " leaves are listed as idle, ",
          idle, " are");
}

/// The spans that the leaves in memory describe against the page numbers in use.
void EngineChecker::CheckSpans() {
  std::size_t resident = 0;
  std::uint64_t spanEnd = 0;  // end of the last span
  bool isKnown = true;        // whether the page before was described: no span reaches over unseen
  for (std::uint32_t page = 0; page < m_table.m_pageCount; ++page) {
    if (!IsSeen(page)) {
      isKnown = false;
      continue;
    }
    const PageEntry& entry = m_table[page];
    if (page < spanEnd) {
      Require(!entry.IsSpanHead(), "page ", page, " begins a span within another");
      Require(IsTaken(page), "page ", page, " of a span is not in use");
      isKnown = true;
    } else if (entry.IsSpanHead()) {
      const std::uint32_t pages = PagesOf(page, entry);
      Require(IsTaken(page), "page ", page, " begins a span and is not in use");
      if (Require(pages > 0, "page ", page, " begins a span of unknown size")) {
        CheckSpan(page, entry, pages);
        resident += entry.Resident() ? 1 : 0;
        spanEnd = std::uint64_t{page} + pages;
      }
      isKnown = true;
    } else if (IsTaken(page)) {
      Require(!isKnown || (entry.IsUsedUp() && m_wasShortOfMemory), "page ", page,
              " is in use and belongs to no span");
    } else {
      Require(entry.IsUsedUp() == IsRetired(page), "page ", page,
              IsRetired(page) ? " is retired and has generations left"
                              : " has no generation left and can be used again");
      isKnown = true;
    }
  }
  Require(resident == m_runs.size(), resident, " spans are in memory by the table, ", m_runs.size(),
          " by the frames");
}

/// One span against the paging file, and what it adds to the counts.
void EngineChecker::CheckSpan(std::uint32_t page, const PageEntry& entry, std::uint32_t pages) {
  const bool hasCopy = (entry.flags & PageEntry::kHasCopy) != 0;
  Require(entry.Resident() || hasCopy, "page ", page, " is out and has no copy in the file");
  Require(!hasCopy || m_pager.m_file.Offset(page) + m_pager.m_file.Bytes(pages) <=
                          m_engine.m_store.FileBytes(),
          "page ", page, "'s copy lies past the end of the file");
  Require(entry.Resident() || (entry.flags & PageEntry::kListed) == 0, "page ", page,
          " is out and listed as in memory");
  if (entry.Kind() == PageEntry::kLarge) {
    ++m_largeObjects;
    m_largePages += pages;
    return;
  }
  const std::uint32_t slots = m_classes[entry.Kind()].slots;
  ClassSeen& seen = m_seen[entry.Kind()];
  ++seen.spans;
  if (entry.Resident()) {
    seen.leastObjects += slots - entry.live.freeSlots;
    seen.mostObjects += slots - entry.live.freeSlots;
  } else {
    seen.leastObjects += 1;  // without objects it would have ended
    seen.mostObjects += (entry.flags & PageEntry::kVacant) != 0 ? slots - (slots + 3) / 4 : slots;
  }
}

/// The numbers in use against what the map counts and skips.
void EngineChecker::CheckPageMap() {
  const PageMap& map = m_table.m_map;
  std::uint64_t used = 0;
  std::uint64_t retired = 0;
  std::uint32_t usedEnd = 0;
  for (std::uint32_t i = 0; i < map.m_groups.size(); ++i) {
    const PageMap::Group& group = map.m_groups[i];
    std::uint32_t longest = 0;
    group.free.Find(PageMap::kGroupPages + 1, longest);
    Require(longest <= group.longestRun, "group ", i, " of page numbers has ", longest,
            " free ones in a row and counts on ", group.longestRun, " at most");
    Require(longest == 0 || i >= map.m_firstVacant, "group ", i,
            " has free page numbers and is passed over by the search");
    for (std::uint32_t page = 0; page < PageMap::kGroupPages; ++page) {
      const std::uint32_t number = i * PageMap::kGroupPages + page;
      retired += IsRetired(number) ? 1 : 0;
      Require(!IsRetired(number) || !group.free.IsFree(page), "page ", number,
              " is retired and free");
      if (IsTaken(number)) {
        ++used;
        usedEnd = number + 1;
      }
    }
  }
  Require(map.m_retiredPages == retired, map.m_retiredPages,
          " page numbers are counted as retired, ", retired, " are");
  Require(map.m_usedPages == used, map.m_usedPages, " page numbers are counted, ", used,
          " are in use");
  Require(map.m_usedEnd == usedEnd, "page numbers end at ", map.m_usedEnd, " by the count, at ",
          usedEnd, " by what is in use");
  Require(m_table.m_pageCount <= map.PageCount(), "the table knows ", m_table.m_pageCount,
          " pages, the map ", map.PageCount());
}

}  // namespace tcmalloc
