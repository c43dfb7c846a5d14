// Does one operation of the store or of an allocator a given number of times:
//   suite_hotpaths OPERATION OBJECTS COUNT
// and prints what one takes. Under a profiler that counts instructions, two runs that differ in
// COUNT alone give the instructions of one operation: their start is the same and falls out.
// It is built against earlier revisions of the library too; what those lack it does without.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "common/Figure.h"
#include "common/Meter.h"
#if __has_include("QRTFixedMemoryPool.h")
#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"
#define SUITE_HAS_ALLOCATORS
#endif

namespace {

constexpr unsigned kAmpleBudget = 2000U << 20;
constexpr unsigned kSmallBudget = 1U << 20;  // an engine's least
constexpr unsigned kSmallObject = 64;
constexpr unsigned kPagedObject = 256;

struct Work {
  const char* operation;
  std::uint64_t objects;
  std::uint64_t count;
};

/// Random numbers below a bound: xorshift64* scaled to the range.
class Random {
 public:
  std::size_t below(std::uint64_t bound) {
    m_state ^= m_state >> 12;
    m_state ^= m_state << 25;
    m_state ^= m_state >> 27;
    return ((m_state * 0x2545F4914F6CDD1DULL) >> 32) * bound >> 32;
  }

 private:
  std::uint64_t m_state = 88172645463325252ULL;
};

/// Times `step()`, which does so many operations, as often as wanted and prints what one took.
template <typename Step>
void measure(const Work& work, Step step, unsigned operations = 1) {
  const suite::Meter meter;
  for (std::uint64_t i = 0; i < work.count; i += operations) {
    step();
  }
  const double seconds = meter.wallSeconds();
  suite::print({"hotpaths", "store", work.operation, std::to_string(work.objects), "ns",
                seconds * 1e9 / static_cast<double>(work.count)});
}

/// Objects of a store that all exist while it is measured.
class Stored {
 public:
  Stored(const Work& work, unsigned budget, unsigned objectBytes)
      : m_manager(budget, 0, 0), m_objectBytes(objectBytes), m_items(work.objects) {
    for (QRTVirtualPageItem& item : m_items) {
      std::memset(add(item), 1, objectBytes);
      m_manager.dismiss(item);
    }
  }

  QRTVirtualMemoryMgr& manager() { return m_manager; }
  void* add(QRTVirtualPageItem& item) { return m_manager.alloc(m_objectBytes, item); }
  QRTVirtualPageItem& any() { return m_items[m_random.below(m_items.size())]; }
  unsigned long long anyOffset() { return any().getOffset(); }
  std::vector<QRTVirtualPageItem>& items() { return m_items; }

  void* pin(unsigned long long offset, int mode) {
    void* address = m_manager.getAddress(offset, mode);
    if (address == nullptr) {
      suite::fail("an object could not be pinned");
    }
    return address;
  }

 private:
  QRTVirtualMemoryMgr m_manager;
  unsigned m_objectBytes;
  std::vector<QRTVirtualPageItem> m_items;
  Random m_random;
};

std::uint64_t word(const void* address) {
  std::uint64_t value = 0;
  std::memcpy(&value, address, sizeof value);
  return value;
}

/// Pins a random object, reads it and dismisses it. The reads are summed up so that they stay.
std::uint64_t pinAny(const Work& work, unsigned budget, unsigned objectBytes) {
  Stored stored(work, budget, objectBytes);
  std::uint64_t sum = 0;
  measure(work, [&] {
    const unsigned long long offset = stored.anyOffset();
    sum += word(stored.pin(offset, 0));
    stored.manager().dismiss(offset);
  });
  return sum;
}

/// Pins random objects in groups, reads and dismisses them; one operation is one object's part.
/// @return false when this revision of the library has no such call
template <typename Manager>
bool pinGroups(const Work& work, Stored& stored, Manager& manager, unsigned group) {
  if constexpr (requires { manager.dismiss(static_cast<unsigned long long*>(nullptr), group); }) {
    std::vector<unsigned long long> offsets(group);
    std::vector<void*> objects(group);
    std::uint64_t sum = 0;
    const auto step = [&] {
      for (unsigned long long& offset : offsets) {
        offset = stored.anyOffset();
      }
      if (manager.getAddresses(offsets.data(), objects.data(), group, 0) != group) {
        suite::fail("an object could not be pinned");
      }
      for (const void* object : objects) {
        sum += word(object);
      }
      manager.dismiss(offsets.data(), group);
    };
    measure(work, step, group);
    return sum != 0;
  }
  return false;
}

/// Changes a random object of a store larger than its budget, so that pages go out and come back.
void changeAny(const Work& work) {
  Stored stored(work, kSmallBudget, kPagedObject);
  std::uint64_t value = 0;
  measure(work, [&] {
    const unsigned long long offset = stored.anyOffset();
    ++value;
    std::memcpy(stored.pin(offset, 1), &value, sizeof value);
    stored.manager().dismiss(offset);
  });
}

/// Every object names the next in one ring through all; each pin waits for the one before.
void follow(const Work& work) {
  Stored stored(work, kAmpleBudget, kSmallObject);
  std::vector<QRTVirtualPageItem>& items = stored.items();
  Random random;
  for (std::size_t i = items.size() - 1; i > 0; --i) {
    std::swap(items[i], items[random.below(i)]);
  }
  for (std::size_t i = 0; i < items.size(); ++i) {
    const std::uint64_t next = items[(i + 1) % items.size()].getOffset();
    std::memcpy(stored.pin(items[i].getOffset(), 1), &next, sizeof next);
    stored.manager().dismiss(items[i]);
  }
  std::uint64_t at = items[0].getOffset();
  measure(work, [&] {
    const std::uint64_t next = word(stored.pin(at, 0));
    stored.manager().dismiss(at);
    at = next;
  });
}

/// Moves one pin along all objects in the order in which they were made.
template <typename Manager>
void walk(const Work& work, Manager& manager, const std::vector<QRTVirtualPageItem>& items) {
  std::size_t index = 0;
  unsigned long long at = items[0].getOffset();
  if (manager.getAddress(at, 1) == nullptr) {
    suite::fail("an object could not be pinned");
  }
  measure(work, [&] {
    index = index + 1 == items.size() ? 0 : index + 1;
    const unsigned long long next = items[index].getOffset();
    if constexpr (requires { manager.movePin(at, next); }) {
      manager.movePin(at, next);
    } else {
      manager.dismiss(at);
      manager.getAddress(next, 1);
    }
    at = next;
  });
  manager.dismiss(at);
}

void allocateAndFree(const Work& work) {
  Stored stored(work, kAmpleBudget, kSmallObject);
  measure(work, [&] {
    QRTVirtualPageItem item;
    stored.add(item);
    stored.manager().dismiss(item);
    stored.manager().free(item);
  });
}

void replaceAny(const Work& work) {
  Stored stored(work, kAmpleBudget, kSmallObject);
  measure(work, [&] {
    QRTVirtualPageItem& item = stored.any();
    stored.manager().free(item);
    item.clear();
    stored.add(item);
    stored.manager().dismiss(item);
  });
}

#ifdef SUITE_HAS_ALLOCATORS
/// Replaces random blocks of an allocator.
template <typename Allocate, typename Free>
void replaceBlocks(const Work& work, Allocate allocate, Free free) {
  std::vector<void*> blocks(work.objects);
  Random random;
  for (void*& block : blocks) {
    block = allocate(random);
  }
  measure(work, [&] {
    void*& block = blocks[random.below(blocks.size())];
    free(block);
    block = allocate(random);
  });
  for (void* block : blocks) {
    free(block);
  }
}

void fixedPool(const Work& work) {
  QRTFixedMemoryPool pool(kSmallObject, 1, 0);
  replaceBlocks(
      work, [&](Random&) { return pool.alloc(); }, [&](void* p) { pool.free(p); });
}

unsigned mixedSize(Random& random) {
  return 8 + static_cast<unsigned>(random.below(249));
}

void memoryPool(const Work& work) {
  QRTMemoryPool pool(kAmpleBudget, 1U << 20);
  replaceBlocks(
      work, [&](Random& random) { return pool.alloc(mixedSize(random)); },
      [&](void* p) { pool.free(p); });
}

void arena(const Work& work) {
  QRTMemoryArena memory(32, kAmpleBudget, 0);
  replaceBlocks(
      work, [&](Random& random) { return memory.alloc(mixedSize(random)); },
      [&](void* p) { memory.free(p); });
}
#endif

/// Runs the operation. @return false for one that is not there
bool run(const Work& work) {
  const std::string operation = work.operation;
  if (operation == "pin") {
    return pinAny(work, kAmpleBudget, kSmallObject) != 0;
  }
  if (operation.rfind("pin in groups of ", 0) == 0) {
    const auto group = static_cast<unsigned>(std::strtoul(work.operation + 17, nullptr, 10));
    Stored stored(work, kAmpleBudget, kSmallObject);
    return group > 0 && pinGroups(work, stored, stored.manager(), group);
  }
  if (operation == "page in") {
    return pinAny(work, kSmallBudget, kPagedObject) != 0;
  }
  if (operation == "page out and in") {
    changeAny(work);
  } else if (operation == "follow") {
    follow(work);
  } else if (operation == "walk") {
    Stored stored(work, kAmpleBudget, kSmallObject);
    walk(work, stored.manager(), stored.items());
  } else if (operation == "allocate and free") {
    allocateAndFree(work);
  } else if (operation == "replace") {
    replaceAny(work);
#ifdef SUITE_HAS_ALLOCATORS
  } else if (operation == "fixed pool") {
    fixedPool(work);
  } else if (operation == "memory pool") {
    memoryPool(work);
  } else if (operation == "arena") {
    arena(work);
#endif
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    suite::fail("usage: suite_hotpaths OPERATION OBJECTS COUNT");
  }
  const Work work{argv[1], std::strtoull(argv[2], nullptr, 10),
                  std::strtoull(argv[3], nullptr, 10)};
  if (work.objects == 0 || work.count == 0) {
    suite::fail("OBJECTS and COUNT are numbers above 0");
  }
  if (!run(work)) {
    suite::fail("no operation '" + std::string(work.operation) + "' in this revision");
  }
  return 0;
}
