// The allocators under the standard library: memory resources and plain allocators.

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <list>
#include <map>
#include <memory_resource>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "AllocTestSupport.h"
#include "QRTAllocator.h"
#include "QRTAllocatorChecker.h"
#include "QRTFixedMemoryPool.h"
#include "QRTFixedMemoryPoolResource.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryArenaResource.h"
#include "QRTMemoryPool.h"
#include "QRTMemoryPoolResource.h"
#include "support/FailingNew.h"

namespace {

bool isAligned(const void* p, std::size_t alignment) {
  return reinterpret_cast<std::uintptr_t>(p) % alignment == 0;
}

/// Random blocks of all alignments through a resource: aligned, apart from each other, given back.
void useAtRandom(std::pmr::memory_resource& resource, std::size_t largest) {
  TestRandom random(testSeed());
  struct Live {
    unsigned char* p;
    std::size_t bytes, alignment;
    unsigned char fill;
  };
  std::vector<Live> live;
  for (int step = 0; step < 3000; ++step) {
    if (live.empty() || random() % 100 < 55) {
      Live block{nullptr, random() % largest + 1, std::size_t{1} << random() % 13,
                 static_cast<unsigned char>(random())};
      block.p = static_cast<unsigned char*>(resource.allocate(block.bytes, block.alignment));
      ASSERT_TRUE(isAligned(block.p, block.alignment)) << block.alignment;
      std::fill_n(block.p, block.bytes, block.fill);
      live.push_back(block);
    } else {
      std::swap(live[random() % live.size()], live.back());
      const Live gone = live.back();
      live.pop_back();
      ASSERT_EQ(std::count(gone.p, gone.p + gone.bytes, gone.fill),
                static_cast<std::ptrdiff_t>(gone.bytes));
      resource.deallocate(gone.p, gone.bytes, gone.alignment);
    }
  }
  for (const Live& block : live) {
    resource.deallocate(block.p, block.bytes, block.alignment);
  }
}

TEST(MemoryResources, ServeEveryAlignmentAndGiveEverythingBack) {
  QRTMemoryPool pool(1u << 26, 1u << 16);
  QRTMemoryPoolResource poolResource(pool);
  useAtRandom(poolResource, 500);
  EXPECT_EQ(faultsIn(pool), "");

  QRTMemoryArena arena(32, 1u << 26, 0);
  QRTMemoryArenaResource arenaResource(arena);
  useAtRandom(arenaResource, 500);
  EXPECT_EQ(faultsIn(arena), "");

  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool fixed(256, 1, headers);
    QRTFixedMemoryPoolResource fixedResource(fixed);
    useAtRandom(fixedResource, 500);
    EXPECT_EQ(faultsIn(fixed), "");
    if (headers != 0) {
      int chunks = 0;
      int inUse = 0;
      fixed.info(nullptr, &chunks, nullptr, &inUse);
      EXPECT_GT(chunks, 0);
      EXPECT_EQ(inUse, 0);
    }
  }
}

TEST(MemoryResources, ASpentBudgetThrowsBadAllocAndEverythingStaysUsable) {
  QRTMemoryArena arena(8, 100000, 0);
  QRTMemoryArenaResource resource(arena);
  std::pmr::vector<std::pmr::string> words(&resource);
  EXPECT_THROW(
      for (;;) { words.emplace_back("a string that is too long to be kept in place"); },
      std::bad_alloc);
  EXPECT_GT(words.size(), 100u);
  EXPECT_EQ(words.front(), words.back());
  EXPECT_EQ(faultsIn(arena), "");
  words.clear();
  words.emplace_back("a string that is too long to be kept in place");
  words = std::pmr::vector<std::pmr::string>(&resource);
  EXPECT_NO_THROW(resource.deallocate(resource.allocate(50000), 50000));

  // Each bin keeps a free chunk to itself; before it fails the resource asks for all of them.
  QRTMemoryArena spent(3, 2 * kChunkBytes, 0);
  QRTMemoryArenaResource trims(spent);
  for (const std::size_t size : {std::size_t{8}, std::size_t{16}}) {
    trims.deallocate(trims.allocate(size, 8), size, 8);
  }
  EXPECT_EQ(spent.alloc(24), nullptr);
  EXPECT_NO_THROW(trims.deallocate(trims.allocate(24, 8), 24, 8));
  EXPECT_EQ(usedBy(spent), kChunkBytes);
  trims.deallocate(trims.allocate(2 * kChunkBytes - 8, 8), 2 * kChunkBytes - 8, 8);
  EXPECT_THROW(static_cast<void>(trims.allocate(2 * kChunkBytes, 8)), std::bad_alloc);
  EXPECT_EQ(faultsIn(spent), "");

  QRTMemoryPool pool(1000, 1000);
  QRTMemoryPoolResource small(pool);
  EXPECT_THROW(
      for (;;) { static_cast<void>(small.allocate(100)); }, std::bad_alloc);
  QRTFixedMemoryPool fixed(8000, 0, 1);
  QRTFixedMemoryPoolResource none(fixed, std::pmr::null_memory_resource());
  EXPECT_THROW(static_cast<void>(none.allocate(8)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(none.allocate(8001)), std::bad_alloc);
}

TEST(MemoryResources, RefuseWhatNoAllocatorCanBeAskedFor) {
  QRTMemoryArena arena(8, 0xFFFFFFFF, 0);
  QRTMemoryArenaResource resource(arena);
  const volatile std::size_t top = static_cast<std::size_t>(-1);  // or the compiler objects
  EXPECT_THROW(static_cast<void>(resource.allocate(top - 7, 8)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(resource.allocate(top - 2000, 4096)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(resource.allocate(top / 2 + 1, top / 2 + 1)), std::bad_alloc);
  EXPECT_EQ(usedBy(arena), 0u);
  {
    const FailingNew fails(1, FailingNew::eFromThenOn);
    EXPECT_THROW(static_cast<void>(resource.allocate(8)), std::bad_alloc);
  }
  void* const empty = resource.allocate(0);
  EXPECT_NE(empty, nullptr);
  resource.deallocate(empty, 0);

  QRTMemoryPool pool(1u << 20, 4096);
  QRTMemoryPoolResource poolResource(pool);
  EXPECT_THROW(static_cast<void>(poolResource.allocate(top - 7, 8)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(poolResource.allocate(top - 2000, 4096)), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(poolResource.allocate(top / 2 + 1, top / 2 + 1)), std::bad_alloc);
  {
    const FailingNew fails(1, FailingNew::eFromThenOn);
    EXPECT_THROW(static_cast<void>(poolResource.allocate(8)), std::bad_alloc);
  }
  unsigned blocks = 1;
  unsigned increment = 0;
  unsigned remaining = 0;
  pool.getStats(blocks, increment, remaining);
  EXPECT_EQ(blocks, 0u);
  EXPECT_EQ(remaining, 1u << 20);
  void* const none = poolResource.allocate(0, 64);
  EXPECT_TRUE(isAligned(none, 64));
  poolResource.deallocate(none, 0, 64);
  EXPECT_EQ(faultsIn(pool), "");
}

TEST(MemoryResources, AreEqualWhenTheyShareTheirMemory) {
  QRTMemoryPool poolA(0, 0);
  QRTMemoryPool poolB(0, 0);
  EXPECT_EQ(QRTMemoryPoolResource(poolA), QRTMemoryPoolResource(poolA));
  EXPECT_NE(QRTMemoryPoolResource(poolA), QRTMemoryPoolResource(poolB));
  QRTMemoryArena arena(0, 0, 0);
  EXPECT_EQ(QRTMemoryArenaResource(arena), QRTMemoryArenaResource(arena));
  EXPECT_NE(static_cast<const std::pmr::memory_resource&>(QRTMemoryArenaResource(arena)),
            QRTMemoryPoolResource(poolA));
  QRTFixedMemoryPool fixed(8, 1, 1);
  EXPECT_EQ(QRTFixedMemoryPoolResource(fixed), QRTFixedMemoryPoolResource(fixed));
  EXPECT_NE(QRTFixedMemoryPoolResource(fixed),
            QRTFixedMemoryPoolResource(fixed, std::pmr::null_memory_resource()));
}

TEST(MemoryResources, AFixedPoolServesNodesAndItsUpstreamTheRest) {
  QRTFixedMemoryPool pool(64, 1, 1);
  QRTMemoryArena arena(0, 1u << 20, 0);
  QRTMemoryArenaResource upstream(arena);
  QRTFixedMemoryPoolResource resource(pool, &upstream);
  {
    std::pmr::unordered_map<int, int> map(&resource);
    for (int i = 0; i < 2000; ++i) {
      map[i] = -i;
    }
    EXPECT_GT(usedBy(arena), 0u) << "buckets";
    EXPECT_EQ(map.at(1999), -1999);
    int inUse = 0;
    int chunks = 0;
    pool.info(nullptr, &chunks, nullptr, &inUse);
    EXPECT_GE(inUse, 4) << "2,000 nodes, 454 to a chunk";
  }
  EXPECT_EQ(usedBy(arena), 0u);
}

TEST(PlainAllocators, ServeStandardContainers) {
  struct alignas(64) Wide {
    char bytes[64];
  };
  QRTMemoryArena arena(16, 1u << 22, 0);
  QRTMemoryPool pool(1u << 22, 0);
  QRTFixedMemoryPool nodes(64, 1, 1);
  {
    std::vector<Wide, QRTAllocator<Wide, QRTMemoryArena>> wide{
        QRTAllocator<Wide, QRTMemoryArena>(arena)};
    std::map<int, std::string, std::less<>,
             QRTAllocator<std::pair<const int, std::string>, QRTMemoryPool>>
        map{QRTAllocator<std::pair<const int, std::string>, QRTMemoryPool>(pool)};
    std::list<int, QRTAllocator<int, QRTFixedMemoryPool>> list{
        QRTAllocator<int, QRTFixedMemoryPool>(nodes)};
    for (int i = 0; i < 500; ++i) {
      wide.emplace_back();
      ASSERT_TRUE(isAligned(&wide.back(), 64));
      map[i * 37 % 500] = std::to_string(i);
      list.push_front(i);
    }
    EXPECT_EQ(map.at(37), "1");
    EXPECT_EQ(list.back(), 0);
    const auto other = wide;
    EXPECT_EQ(other.get_allocator(), wide.get_allocator());
    EXPECT_EQ(faultsIn(arena) + faultsIn(pool) + faultsIn(nodes), "");
  }
  int inUse = -1;
  int chunks = 0;
  nodes.info(nullptr, &chunks, nullptr, &inUse);
  EXPECT_EQ(inUse, 0);
  QRTAllocator<int, QRTFixedMemoryPool> ints(nodes);
  EXPECT_THROW(ints.allocate(17), std::bad_alloc) << "68 bytes";
  EXPECT_THROW(ints.allocate(static_cast<std::size_t>(-1) / 2), std::bad_alloc);
}

}  // namespace
