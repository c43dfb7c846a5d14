// Pins of many objects in one call. What single pins wait for one after the other, table entries,
// object headers, and pages from the file, is asked for before the first of it is waited for.

#include <algorithm>
#include <array>

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

// Handles whose entries and headers are fetched before the first is pinned: about as many lines as
// a core has on their way from memory at a time, and few enough to be in its first cache still when
// they are used.
constexpr std::uint32_t kGroup = 32;

/// Whether an offset names nothing in any store: 0 or all-ones.
bool IsNull(std::uint64_t offset) {
  return offset + 1 <= 1;
}

}  // namespace

/// In windows of kBulkWindow handles, so that the stack is enough whatever the count, and what is
/// read ahead is not pushed out of the system's memory again before it is used.
std::uint32_t Engine::GetAddresses(const unsigned long long* offsets, void** addresses,
                                   std::uint32_t count, bool forWriting) noexcept {
  if (count == 1) {  // which has nothing to be asked for beside it
    addresses[0] = IsNull(offsets[0]) ? nullptr : GetAddress(offsets[0], forWriting);
    return addresses[0] != nullptr ? 1 : 0;
  }
  std::uint32_t pinned = 0;
  for (std::uint32_t done = 0; done < count;) {
    const std::uint32_t here = std::min(count - done, kBulkWindow);
    pinned += PinWindow(offsets + done, addresses + done, here, forWriting);
    done += here;
  }
  return pinned;
}

/// Pins the objects of a window:
///  1. What is in memory is pinned first, so that no page read for one handle pushes out another's.
///     In groups, and each group stage by stage: entries, headers, pins. These are counted at once:
///     there would not be places enough to defer them, and the flush before allows it (see
///     PinSlot).
///  2. The rest is put in the order of the pages, and all pages are asked of the system, once each.
///  3. Then it is pinned in the same order: what was asked for first is likely there first, so that
///     the work on it goes on while the disk reads the others, and a scan is seen to be one. What
///     names nothing gets its null and its reason here.
std::uint32_t Engine::PinWindow(const unsigned long long* offsets, void** addresses,
                                std::uint32_t count, bool forWriting) noexcept {
  std::array<std::uint32_t, kBulkWindow> absent;  // places of the handles for steps 2 and 3
  std::uint32_t absentCount = 0;
  std::uint32_t pinned = 0;
  // Step 1.
  m_deferred.Flush();
  std::array<Slot, kGroup> slots;
  for (std::uint32_t first = 0; first < count; first += kGroup) {
    const std::uint32_t end = std::min(first + kGroup, count);
    for (std::uint32_t i = first; i < end; ++i) {
      const std::uint32_t page = ObjectHandle::Decode(offsets[i]).page;
      if (m_table.Has(page)) {
        __builtin_prefetch(&m_table[page], 1);
      }
    }
    for (std::uint32_t i = first; i < end; ++i) {
      const Slot slot = slots[i - first] = Locate(offsets[i]);
      if (slot.entry != nullptr) {
        PrefetchObject(reinterpret_cast<const char*>(slot.header + 1));
      }
    }
    for (std::uint32_t i = first; i < end; ++i) {
      const Slot slot = slots[i - first];
      if (slot.entry == nullptr || !IsOf(slot, offsets[i])) {
        addresses[i] = nullptr;
        absent[absentCount++] = i;
        continue;
      }
      if (!IsTouchedFor(*slot.entry, forWriting)) {
        slot.entry->Touch(m_pager.Epoch(), forWriting);
      }
      addresses[i] = CountPin(slot, offsets[i]);
      pinned += addresses[i] != nullptr ? 1 : 0;
    }
  }
  if (absentCount == 0) {
    return pinned;
  }
  // Step 2. Places of one page keep their order: the first of them reads it.
  std::sort(absent.data(), absent.data() + absentCount, [&](std::uint32_t a, std::uint32_t b) {
    const std::uint32_t pageA = ObjectHandle::Decode(offsets[a]).page;
    const std::uint32_t pageB = ObjectHandle::Decode(offsets[b]).page;
    return pageA != pageB ? pageA < pageB : a < b;
  });
  PrefetchPages(offsets, absent.data(), absentCount);
  // Step 3.
  for (std::uint32_t i = 0; i < absentCount; ++i) {
    const std::uint64_t offset = offsets[absent[i]];
    if (!IsNull(offset)) {
      addresses[absent[i]] = GetAddress(offset, forWriting);
      pinned += addresses[absent[i]] != nullptr ? 1 : 0;
    }
  }
  return pinned;
}

/// Asks the system for the pages of handles at the given places, in the order of pages, that are
/// out:
///  1. Collect the pages, each once.
///  2. Where the table's own leaf is out, ask for that, and then bring it in: only it knows which
///     pages to ask for.
///  3. Ask for the pages.
/// One page alone is not worth it: whoever wants it reads it next.
void Engine::PrefetchPages(const unsigned long long* offsets, const std::uint32_t* places,
                           std::uint32_t count) noexcept {
  // Step 1.
  std::array<std::uint32_t, kBulkWindow> pages;
  std::uint32_t found = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const ObjectHandle handle = ObjectHandle::Decode(offsets[places[i]]);
    const bool isNew = found == 0 || pages[found - 1] != handle.page;
    if (isNew && m_table.Has(handle.page) && !m_table[handle.page].Resident()) {
      pages[found++] = handle.page;
    }
  }
  if (found < 2) {
    return;
  }
  // Step 2.
  bool leavesOut = false;
  for (std::uint32_t i = 0; i < found; ++i) {
    if (i == 0 || pages[i] / PageTable::kLeafPages != pages[i - 1] / PageTable::kLeafPages) {
      leavesOut |= m_table.PrefetchLeaf(pages[i]);
    }
  }
  for (std::uint32_t i = 0; leavesOut && i < found; ++i) {
    m_table.Fetch(pages[i]);
  }
  // Step 3.
  m_pager.Prefetch(pages.data(), found);
}

/// Counted pins first, which most are. An object with a deferred pin has no counted one, so it is
/// left to Dismiss, as are large ones. A pin taken alone is mostly a deferred one.
void Engine::DismissAll(const unsigned long long* offsets, std::uint32_t count) noexcept {
  if (count == 1 && !IsNull(offsets[0])) {
    Dismiss(offsets[0]);
    return;
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    const Slot slot = FindInMemory(offsets[i]);
    if (slot.entry != nullptr && slot.header->IsPinned()) {
      LIBTCMALLOC_ASSERT(m_deferred.Find(offsets[i]) == DeferredPins::kPlaces);
      CountUnpin(slot, offsets[i]);
    } else if (!IsNull(offsets[i])) {
      Dismiss(offsets[i]);
    }
  }
}

}  // namespace tcmalloc
