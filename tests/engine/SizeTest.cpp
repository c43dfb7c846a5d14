#include <cmath>
#include <limits>
#include <random>

#include "engine/EngineFixture.h"
#include "support/TestSeed.h"

// Objects of every size: their bytes, their alignment, and the memory they take.

namespace {

using tcmalloc::SizeClass;
using tcmalloc::SizeClasses;

constexpr std::uint32_t kPageSizes[] = {4096, 8192, 16384};

class SizeTest : public EngineFixture {
 protected:
  /// Bytes of all pages that hold objects.
  std::uint64_t BytesOfPages() {
    const Stats stats = GetStats();
    std::uint64_t pages = stats.largePages;
    for (const tcmalloc::FixedPoolStats& pool : stats.pools) {
      pages += pool.pages;
    }
    return pages * stats.pageSize;
  }
};

TEST_F(SizeTest, ObjectsOfAllSizesAreWholeAndAligned) {
  for (const std::uint32_t pageSize : kPageSizes) {
    Make(128, pageSize);
    std::vector<Object> objects;
    for (std::uint32_t size = 1; size <= 8192; ++size) {
      Object object{0, size, size};
      void* address = engine->Allocate(size, object.offset);
      ASSERT_NE(address, nullptr);
      const std::uint32_t alignment = std::min(size & -size, 16U);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(address) % alignment, 0U) << "size " << size;
      Fill(address, size, size);
      ASSERT_EQ(GetReferences(), References({{object.offset, size, 1}}));
      engine->Dismiss(object.offset);
      objects.push_back(object);
    }
    ExpectIntact(objects);
    for (const Object& object : objects) {
      const void* address = engine->GetAddress(object.offset, false);
      const std::uint32_t alignment = std::min(object.size & -object.size, 16U);
      ASSERT_EQ(reinterpret_cast<std::uintptr_t>(address) % alignment, 0U) << object.size;
      engine->Dismiss(object.offset);
    }
  }
}

TEST_F(SizeTest, EmptyObjectsAreObjects) {
  Make(8);
  std::uint64_t a = 0;
  std::uint64_t b = 0;
  void* address = engine->Allocate(0, a);
  ASSERT_NE(address, nullptr);
  EXPECT_NE(engine->Allocate(0, b), address);
  EXPECT_NE(a, b);
  engine->Dismiss(a);
  engine->Deallocate(a);
  EXPECT_EQ(GetReferences(), References({{b, 1, 1}}));
}

TEST_F(SizeTest, PowersOfTwoAndMultiplesOfPagesFillTheirPages) {
  for (const std::uint32_t pageSize : kPageSizes) {
    for (std::uint32_t size = 256; size <= 65536; size *= 2) {
      Make(64, pageSize);
      const std::uint32_t count = (4U << 20) / size;
      AddMany(count, size);
      // Where a page holds several, one slot may go to the headers: an eighth of the span.
      const double share = static_cast<double>(count) * size / static_cast<double>(BytesOfPages());
      EXPECT_GE(share, size < pageSize ? 0.86 : 1.0) << size << " in pages of " << pageSize;
    }
    for (std::uint32_t pages = 1; pages <= 9; ++pages) {
      Make(64, pageSize);
      AddMany(10, pages * pageSize);
      EXPECT_EQ(BytesOfPages(), std::uint64_t{10} * pages * pageSize);
    }
  }
}

// Budgets that hold everything, and an eighth of it.
TEST_F(SizeTest, FreedSlotsAreUsedAgainBeforeNewPages) {
  for (const std::uint32_t frames : {1024U, 64U}) {
    std::mt19937 random(testSeed());
    Make(frames);
    std::vector<Object> objects = AddMany(15000, 100);
    const std::uint64_t before = BytesOfPages();
    for (int round = 0; round < 10; ++round) {
      std::shuffle(objects.begin(), objects.end(), random);
      for (auto object = objects.begin(); object != objects.begin() + 7500; ++object) {
        engine->Deallocate(object->offset);
      }
      for (auto object = objects.begin(); object != objects.begin() + 7500; ++object) {
        *object = Add(100, static_cast<std::uint32_t>(round));
      }
      ASSERT_LE(BytesOfPages(), before + before / 8) << frames << " frames, round " << round;
    }
    ExpectIntact(objects);
  }
}

// Too few for a read of their own, they are used when their slabs are in memory anyway.
TEST_F(SizeTest, TheFewFreeSlotsOfSlabsThatCameBackAreUsed) {
  Make(64);
  std::vector<Object> objects = AddMany(1500, 100);
  for (std::size_t i = 0; i < objects.size(); i += 30) {
    engine->Deallocate(objects[i].offset);
    objects[i] = objects[1];
  }
  PushOut();
  ExpectIntact(objects);
  const std::uint64_t before = BytesOfPages();
  AddMany(45, 100);
  EXPECT_EQ(BytesOfPages(), before);
}

TEST_F(SizeTest, TheLargestObjectIsMadeOrRefusedWithItsSize) {
  Make(8);
  const std::vector<Object> objects = AddMany(50, 1000);
  constexpr std::uint32_t kSize = std::numeric_limits<std::uint32_t>::max();
  std::uint64_t offset = 0;
  if (auto* address = static_cast<char*>(engine->Allocate(kSize, offset))) {
    address[0] = 1;
    address[kSize - 1] = 2;
    EXPECT_EQ(GetReferences(), References({{offset, kSize, 1}}));
    EXPECT_EQ(GetStats().largePages, 1U << 20);
    engine->Deallocate(offset);  // still pinned, so that it never goes to the file
  } else {
    EXPECT_THAT(engine->GetLastError(), testing::HasSubstr("4294967295 bytes asked for"));
    EXPECT_EQ(offset, 0U);
  }
  EXPECT_EQ(GetStats().largePages, 0U);
  EXPECT_LE(GetStats().residentBytes, 9U * 4096);
  ExpectIntact(objects);
  AddMany(50, 1000);
  EXPECT_LE(GetStats().residentBytes, 8U * 4096);
}

TEST(SizeClassesTest, EverySizeFitsItsClassAndLittleIsWasted) {
  for (const std::uint32_t pageSize : kPageSizes) {
    SCOPED_TRACE(pageSize);
    const SizeClasses classes(pageSize);
    ASSERT_LT(classes.Count(), 128U);
    for (std::uint32_t i = 0; i < classes.Count(); ++i) {
      const SizeClass& c = classes[static_cast<std::uint8_t>(i)];
      ASSERT_LE(tcmalloc::kFirstObjectByte + (c.slots - 1U) * c.stride + c.capacity,
                c.pages * pageSize);
      ASSERT_LE(c.capacity + 8U, c.stride);
      ASSERT_EQ(c.stride % 8, 0);
      // What starts a slot and what does not, for all bytes that a handle can name.
      for (std::uint32_t byte = 0; byte < 65536; byte += 8) {
        const bool isStart =
            byte >= 16 && (byte - 16) % c.stride == 0 && (byte - 16) / c.stride < c.slots;
        ASSERT_EQ(
            classes.IsSlotStart(static_cast<std::uint8_t>(i), static_cast<std::uint16_t>(byte)),
            isStart)
            << "class " << i << ", byte " << byte;
      }
    }
    const auto cost = [&](std::uint32_t size) {  // bytes of pages for one object
      const std::uint8_t sizeClass = classes.ClassFor(size);
      if (sizeClass == SizeClasses::kLarge) {
        const std::uint32_t pages = (size + pageSize - 1) / pageSize;
        return static_cast<double>(pages * pageSize);
      }
      const SizeClass& c = classes[sizeClass];
      return static_cast<double>(c.pages * pageSize) / c.slots;
    };
    for (std::uint32_t size = 1; size < 4 * pageSize; ++size) {
      const std::uint8_t sizeClass = classes.ClassFor(size);
      ASSERT_TRUE(sizeClass == SizeClasses::kLarge || classes[sizeClass].capacity >= size) << size;
      ASSERT_TRUE(size < 16 || cost(size) <= 24 + 1.6 * size) << size << " costs " << cost(size);
    }
    // A mixture as programs have it: log-normal around 80 bytes.
    std::mt19937 random(testSeed());
    std::lognormal_distribution<double> sizes(std::log(80.0), 0.8);
    double asked = 0;
    double taken = 0;
    for (int i = 0; i < 100000; ++i) {
      const auto size = static_cast<std::uint32_t>(std::clamp(sizes(random), 16.0, 512.0));
      asked += size;
      taken += cost(size);
    }
    EXPECT_LE(taken / asked, 1.15);
  }
}

}  // namespace
