#include "libtcmalloc_virtualmm/EngineChecker.h"

#include <functional>
#include <iterator>

#include "engine/EngineFixture.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"

// What the engine keeps in two places is broken in one of them, and the checker has to name it.

namespace tcmalloc {

/// Breaks an engine's parts one at a time, and mends them again.
class EngineChecker::Damage {
 public:
  struct Case {
    const char* finding;  ///< what the checker has to say
    std::function<void(Damage&)> breaks;
  };

  explicit Damage(Engine& engine)
      : e(engine), table(engine.m_table), arena(engine.m_arena), policy(engine.m_pager.m_policy) {}

  static std::vector<Case> Cases();

  void Mend() {
    for (; !m_mends.empty(); m_mends.pop_back()) {
      m_mends.back()();
    }
  }

 private:
  template <typename T>
  void Set(T& member, std::type_identity_t<T> value) {
    m_mends.push_back([&member, old = member] { member = old; });
    member = value;
  }
  template <typename T>
  void Add(T& member, int more) {
    Set(member, static_cast<T>(member + static_cast<T>(more)));
  }

  /// The lowest page whose entry fits.
  std::uint32_t Find(const std::function<bool(const PageEntry&)>& fits) const {
    std::uint32_t page = 0;
    while (!fits(table[page])) {
      ++page;
    }
    return page;
  }
  /// A slab in memory with objects, free slots and a place in its class's list.
  PageEntry& Slab() {
    return table[Find([](const PageEntry& entry) {
      return entry.Kind() < PageEntry::kLarge && entry.Resident() && entry.live.freeSlots > 2 &&
             (entry.flags & PageEntry::kListed) != 0;
    })];
  }
  ObjectHeader& HeaderAt(const PageEntry& entry, std::uint32_t byte) {
    return *SlabPage::At(arena.Address(entry.where))->HeaderAt(byte);
  }
  ObjectHeader& FirstFree(const PageEntry& slab) { return HeaderAt(slab, slab.live.firstFree); }
  /// The header of an object in a slab.
  ObjectHeader& AnyObject(const PageEntry& slab) {
    std::uint32_t byte = kFirstObjectByte;
    while (HeaderAt(slab, byte).pins == kFreePins) {
      byte += e.m_classes[slab.Kind()].stride;
    }
    return HeaderAt(slab, byte);
  }
  std::uint32_t OutPage() {
    return Find([](const PageEntry& entry) { return entry.IsSpanHead() && !entry.Resident(); });
  }
  /// The first page of a large object in memory, of more than one page.
  std::uint32_t LargePage() {
    return Find([this](const PageEntry& entry) {
      return entry.state == PageEntry::kLarge && arena[entry.where].count > 1;
    });
  }
  Frame& OldestFrame() { return arena[policy.m_small.oldest]; }
  FrameArena::Chunk& Chunk() { return *arena.m_chunks[0]; }
  PageMap::Group& Group() { return table.m_map.m_groups[0]; }
  SlabDirectory::ClassState& Class(const PageEntry& slab) { return e.m_slabs[slab.Kind()]; }
  void SetTaken(std::uint32_t page, bool taken) {
    auto bits = Group().free;
    bits.Mark(page, 1, !taken);
    Set(Group().free, bits);
  }

  Engine& e;
  PageTable& table;
  FrameArena& arena;
  ReplacementPolicy& policy;
  std::vector<std::function<void()>> m_mends;  // last one first
};

std::vector<EngineChecker::Damage::Case> EngineChecker::Damage::Cases() {
  return {
      // Frames.
      {"frames are counted,", [](Damage& d) { d.Add(d.arena.m_usedFrames, 1); }},
      {"frames are counted in chunks", [](Damage& d) { d.Add(d.arena.m_mappedFrames, 1); }},
      {"chunks count as empty", [](Damage& d) { d.Add(d.arena.m_emptyChunks, 1); }},
      {"passed over by the search", [](Damage& d) { d.Set(d.arena.m_firstVacant, 9); }},
      {"free frames and has", [](Damage& d) { d.Add(d.arena.m_freeCounts[0], 1); }},
      {"free frames and has", [](Damage& d) { d.Add(d.Chunk().freeCount, -1); }},
      {"starts no run",
       [](Damage& d) {
         auto bits = d.Chunk().free;
         bits.Mark(bits.NextFree(0), 1, false);
         d.Set(d.Chunk().free, bits);
       }},
      {"whose entry does not say so", [](Damage& d) { d.Add(d.OldestFrame().page, 1); }},
      {"does not have in memory", [](Damage& d) { d.Set(d.OldestFrame().page, 1U << 30); }},
      {"whose entry does not say so", [](Damage& d) { d.Add(d.table[d.LargePage()].where, 1); }},
      {"starts no run",
       [](Damage& d) {
         Frame frame = d.OldestFrame();
         frame.count = 0;
         d.Set(d.OldestFrame(), frame);
       }},
      {"is not modified and has no copy",
       [](Damage& d) {
         PageEntry& entry = d.table[d.Find(
             [](const PageEntry& any) { return any.Resident() && !any.Modified(); })];
         d.Set(entry.flags, 0);
       }},
      // Slabs.
      {"where no slot starts", [](Damage& d) { d.Add(d.Slab().live.firstFree, 8); }},
      {"free slots and chains", [](Damage& d) { d.Add(d.Slab().live.freeSlots, 1); }},
      {"twice",
       [](Damage& d) {
         const PageEntry& slab = d.Slab();
         d.Set(d.FirstFree(slab).tag, std::uint32_t{slab.live.firstFree} << 16 | kNoGeneration);
       }},
      {"neither an object nor", [](Damage& d) { d.Set(d.FirstFree(d.Slab()).pins, 0); }},
      {"neither an object nor", [](Damage& d) { d.Set(d.AnyObject(d.Slab()).pins, kFreePins); }},
      {"neither an object nor", [](Damage& d) { d.Add(d.AnyObject(d.Slab()).tag, 8 << 16); }},
      {"is not chained",
       [](Damage& d) {
         const PageEntry& slab = d.Slab();
         d.Set(d.FirstFree(slab).tag, std::uint32_t{kNoGeneration});
       }},
      {"pinned objects and has", [](Damage& d) { d.Add(d.Slab().live.pinned, 1); }},
      {"pinned objects and has", [](Damage& d) { d.Add(d.AnyObject(d.Slab()).pins, 1); }},
      {"the large object at page", [](Damage& d) { d.Add(d.table[d.LargePage()].live.pinned, 1); }},
      // Queues.
      {"stands in no queue",
       [](Damage& d) {
         Frame frame = d.OldestFrame();
         frame.queue = Frame::Queue::kNone;
         d.Set(d.OldestFrame(), frame);
       }},
      {"is linked behind", [](Damage& d) { d.Add(d.OldestFrame().older, 1); }},
      {"does not end where", [](Damage& d) { d.Set(d.policy.m_small.newest, kNoFrame); }},
      {"does not end where",
       [](Damage& d) { d.Set(d.arena[d.policy.m_small.newest].newer, d.policy.m_small.oldest); }},
      {"the small queue counts", [](Damage& d) { d.Add(d.policy.m_small.frames, 1); }},
      {"spans stand in the queues",
       [](Damage& d) { d.Set(d.policy.m_small.oldest, d.OldestFrame().newer); }},
      // The page table.
      {"spans in memory and has", [](Damage& d) { d.Add(d.table.m_leaves[0]->spansIn, 1); }},
      {"takes itself for", [](Damage& d) { d.Add(d.table.m_leaves[0]->number, 1); }},
      {"leaves are counted", [](Damage& d) { d.Add(d.table.m_leavesIn, 1); }},
      {"stands for those that are out",
       [](Damage& d) { d.Set(d.table.m_absent.entries[0].state, PageEntry::kLarge); }},
      {"are listed as idle",
       [](Damage& d) { d.Set(d.table.m_oldestIdle, d.table.m_oldestIdle->newer); }},
      {"among the idle ones",
       [](Damage& d) { d.Set(d.table.m_newestIdle->older, d.table.m_newestIdle); }},
      {"within another",
       [](Damage& d) { d.Set(d.table[d.LargePage() + 1].state, std::uint8_t{0x80}); }},
      {"spans are in memory by the table",
       [](Damage& d) {
         d.Set(d.table[d.LargePage()].state,
               static_cast<std::uint8_t>(PageEntry::kLarge | PageEntry::kPagedOut));
       }},
      {"of a span is not in use", [](Damage& d) { d.SetTaken(d.LargePage() + 1, false); }},
      {"begins a span and is not in use", [](Damage& d) { d.SetTaken(d.LargePage(), false); }},
      {"belongs to no span", [](Damage& d) { d.SetTaken(d.Group().free.NextFree(0), true); }},
      {"page numbers are counted", [](Damage& d) { d.Add(d.table.m_map.m_usedPages, 1); }},
      {"page numbers end at", [](Damage& d) { d.Add(d.table.m_map.m_usedEnd, -1); }},
      {"in a row and counts on", [](Damage& d) { d.Set(d.Group().longestRun, 1); }},
      {"page numbers and is passed over", [](Damage& d) { d.Add(d.table.m_map.m_firstVacant, 1); }},
      // The file.
      {"is out and has no copy", [](Damage& d) { d.Set(d.table[d.OutPage()].flags, 0); }},
      {"past the end of the file", [](Damage& d) { d.Set(d.e.m_store.m_fileBytes, 4096); }},
      {"are reserved for pages", [](Damage& d) { d.Set(d.e.m_store.m_reservedEnd, 4096); }},
      {"are reserved of a file", [](Damage& d) { d.Add(d.e.m_store.m_reservedEnd, 1 << 30); }},
      {"a file that is not open", [](Damage& d) { d.Set(d.e.m_tableStore.m_fileBytes, 1); }},
      // Objects and classes.
      {"slabs,", [](Damage& d) { d.Add(d.Class(d.Slab()).spans, 1); }},
      {"its slabs hold", [](Damage& d) { d.Set(d.Class(d.Slab()).liveObjects, 1); }},
      {"open slab at page", [](Damage& d) { d.Add(d.Class(d.Slab()).openPage, 1); }},
      {"in no list", [](Damage& d) { d.Set(d.Class(d.Slab()).vacant, {}); }},
      {"that its class cannot find",
       [](Damage& d) {
         d.Set(d.Slab().flags, static_cast<std::uint8_t>(d.Slab().flags & ~PageEntry::kListed));
       }},
      {"of no object in memory",
       [](Damage& d) {
         ++d.e.m_deferred.m_slots[0].header;
         d.m_mends.push_back([&d] { --d.e.m_deferred.m_slots[0].header; });
       }},
      {"of another object", [](Damage& d) { d.Add(d.e.m_deferred.m_slots[0].header->tag, 1); }},
      {"one of its pins is deferred",
       [](Damage& d) {
         PageEntry& entry = *d.e.m_deferred.m_slots[0].entry;
         d.Set(entry.live.touched,
               static_cast<std::uint16_t>(entry.live.touched | PageEntry::kNotify));
       }},
      {"is in memory",
       [](Damage& d) {
         const std::uint64_t offset = d.e.m_deferred.m_offsets[0];
         d.Set(d.e.m_pendingFrees.m_keys, {PendingFrees::KeyOf(offset)});
       }},
      {"are not in order",
       [](Damage& d) {
         d.Set(d.e.m_pendingFrees.m_keys, {2, 1});
       }},
      {"objects are counted in all", [](Damage& d) { d.Add(d.e.m_currentObjects, 1); }},
      {"were there at a time", [](Damage& d) { d.Set(d.e.m_maxObjects, 1); }},
      {"large objects are counted", [](Damage& d) { d.Add(d.e.m_largeObjects, 1); }},
      {"pages of large objects are counted", [](Damage& d) { d.Add(d.e.m_largePages, 1); }},
      {"the pager's epoch", [](Damage& d) { d.Add(d.e.m_pager.m_clock.m_modified, 1); }},
      // Shares of the budget.
      {"the budget is", [](Damage& d) { d.Add(d.e.m_options.budgetBytes, 8192); }},
      {"an epoch has", [](Damage& d) { d.Add(d.e.m_pager.m_clock.m_length, 1); }},
      {"the queues' shares", [](Damage& d) { d.Add(d.policy.m_smallTarget, 1); }},
      {"the queues' shares", [](Damage& d) { d.Add(d.policy.m_ghostReach, 1); }},
      {"in one go", [](Damage& d) { d.Set(d.e.m_pager.m_options.batch, 16); }},
      {"in one go", [](Damage& d) { d.Set(d.e.m_pager.m_options.readAhead, 16); }},
      {"the page table's limit", [](Damage& d) { d.Add(d.table.m_leafLimit, 1); }},
      {"frees to remember", [](Damage& d) { d.Set(d.e.m_pendingFrees.m_most, 8191); }},
  };
}

}  // namespace tcmalloc

namespace {

using testing::HasSubstr;

class EngineCheckerTest : public EngineFixture {};

TEST_F(EngineCheckerTest, WhateverIsBrokenIsNamed) {
  Make(64);
  std::vector<Object> objects = AddMany(400, 100);
  AddMany(200, 4096);
  AddMany(20, 9000);
  PushOut();
  for (std::size_t i = 0; i < objects.size(); i += 2) {  // comes in, clean but for these
    engine->Deallocate(objects[i].offset);
  }
  const Object large = AddMany(1, 9000)[0];
  ASSERT_EQ(Look(large), Read::kIntact);
  const Object counted = objects[1];
  ASSERT_NE(engine->GetAddress(counted.offset, true), nullptr);
  ASSERT_EQ(GetReferences().size(), 1U);
  const Object deferred = objects[3];
  ASSERT_NE(engine->GetAddress(deferred.offset, true), nullptr);
  ASSERT_EQ(engine->Check(), "");

  tcmalloc::EngineChecker::Damage damage(*engine);
  for (const auto& [finding, breaks] : tcmalloc::EngineChecker::Damage::Cases()) {
    breaks(damage);
    EXPECT_THAT(engine->Check(), HasSubstr(finding));
    damage.Mend();
    ASSERT_EQ(engine->Check(), "") << "mended: " << finding;
  }
}

TEST(EngineAssertDeathTest, ABrokenRuleEndsTheProcessWithItsPlace) {
  if (!tcmalloc::kAssertions) {
    GTEST_SKIP() << "assertions are not checked in this build";
  }
  tcmalloc::FrameArena arena(false);
  const std::uint32_t frame = arena.AllocateInNewChunk(1);
  arena.Release(frame);
  EXPECT_DEATH(arena.Release(frame), "FrameArena.cpp:[0-9]+: .*count > 0");
}

}  // namespace
