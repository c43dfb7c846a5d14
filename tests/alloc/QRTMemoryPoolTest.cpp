#include "QRTMemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <map>
#include <numeric>
#include <sstream>
#include <vector>

#include "AllocTestSupport.h"
#include "QRTAllocatorChecker.h"
#include "QRTFragmentationReport.h"
#include "support/FailingNew.h"

namespace {

constexpr unsigned kUnit = 8;

struct Stats {
  unsigned blocks, increment, remaining;
  bool operator==(const Stats& o) const {
    return blocks == o.blocks && increment == o.increment && remaining == o.remaining;
  }
};

std::ostream& operator<<(std::ostream& os, const Stats& s) {
  return os << "(" << s.blocks << ", " << s.increment << ", " << s.remaining << ")";
}

Stats statsOf(QRTMemoryPool& pool) {
  Stats s{};
  pool.getStats(s.blocks, s.increment, s.remaining);
  return s;
}

/// The pool's placement, written down independently: an ordered map of free blocks, in which the
/// sentinel stands at the pool object's own address with size 0.
class PoolModel {
 public:
  PoolModel(const void* pool, unsigned maxBytes, unsigned increment)
      : m_rover(address(pool)), m_remaining(maxBytes), m_increment(increment) {
    m_free[m_rover] = 0;
  }

  /// Plays an allocation that gave `result` and says what it should have given. A result out of a
  /// new heap block tells where that block lies.
  std::uintptr_t alloc(unsigned size, std::uintptr_t result) {
    const std::size_t units = (size + 7) / 8 + 1;
    for (;;) {
      std::uintptr_t prev = m_rover;
      do {
        const std::uintptr_t p = after(prev);
        std::size_t& have = m_free[p];
        if (have >= units) {
          have -= units;
          const std::uintptr_t block = p + have * kUnit;
          if (have == 0) {
            m_free.erase(p);
          }
          m_rover = prev;
          m_used[block + kUnit] = units;
          return block + kUnit;
        }
        prev = p;
      } while (prev != m_rover);
      if (m_remaining == 0) {
        return 0;
      }
      const std::size_t step = (std::size_t{std::min(m_remaining, m_increment)} + 7) / 8 + 1;
      const std::size_t count = (units + step - 1) / step * step;
      m_remaining -= static_cast<unsigned>(std::min<std::size_t>(m_remaining, count * kUnit));
      insert(result - kUnit + units * kUnit - count * kUnit, count);
    }
  }

  void free(std::uintptr_t result) {
    insert(result - kUnit, m_used.at(result));
    m_used.erase(result);
  }

  /// Plays a reallocation of a block that gave `result` and says what it should have given.
  std::uintptr_t realloc(std::uintptr_t block, unsigned size, std::uintptr_t result) {
    const std::size_t units = (size + 7) / 8 + 1;
    const std::size_t had = m_used.at(block);
    const std::uintptr_t end = block - kUnit + had * kUnit;
    const auto next = m_free.find(end);
    if (units < had) {
      m_used[block] = units;
      insert(block - kUnit + units * kUnit, had - units);
    } else if (units > had && next != m_free.end() && had + next->second >= units) {
      const std::size_t rest = had + next->second - units;
      const auto below = next != m_free.begin() ? std::prev(next) : std::prev(m_free.end());
      m_rover = below->first;
      m_free.erase(next);
      if (rest != 0) {
        m_free[block - kUnit + units * kUnit] = rest;
      }
      m_used[block] = units;
    } else if (units > had) {
      const std::uintptr_t moved = alloc(size, result);
      if (moved != 0) {
        free(block);
      }
      return moved;
    }
    return block;
  }

  /// What is free and in use, block for block, as the pool's own report counts it.
  std::string difference(const QRTFragmentationReport& seen) const {
    std::uint64_t freeUnits = 0;
    std::uint64_t usedUnits = 0;
    std::size_t largest = 0;
    for (const auto& [at, units] : m_free) {
      freeUnits += units;
      largest = std::max(largest, units);
    }
    for (const auto& [at, units] : m_used) {
      usedUnits += units;
    }
    std::ostringstream os;
    if (seen.getFreeBlocks() != freeBlocks() || seen.getFreeBytes() != freeUnits * kUnit ||
        seen.getLargestFree() != largest * kUnit || seen.getUsedBlocks() != m_used.size() ||
        seen.getUsedBytes() != usedUnits * kUnit) {
      os << freeBlocks() << " blocks of " << freeUnits << " units free, " << m_used.size() << " of "
         << usedUnits << " in use, but the pool has\n";
      seen.write(os);
    }
    return os.str();
  }

  std::size_t freeBlocks() const { return m_free.size() - 1; }
  unsigned remaining() const { return m_remaining; }

 private:
  static std::uintptr_t address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

  std::uintptr_t after(std::uintptr_t p) const {
    const auto next = m_free.upper_bound(p);
    return next != m_free.end() ? next->first : m_free.begin()->first;
  }

  void insert(std::uintptr_t block, std::size_t units) {
    auto above = m_free.lower_bound(block);
    const auto below = above != m_free.begin() ? std::prev(above) : std::prev(m_free.end());
    if (above != m_free.end() && block + units * kUnit == above->first) {
      units += above->second;
      m_free.erase(above);
    }
    m_rover = below->first;
    if (below->first + below->second * kUnit == block) {
      below->second += units;
    } else {
      m_free[block] = units;
    }
  }

  std::map<std::uintptr_t, std::size_t> m_free;
  std::map<std::uintptr_t, std::size_t> m_used;
  std::uintptr_t m_rover;
  unsigned m_remaining;
  unsigned m_increment;
};

TEST(QRTMemoryPool, GrowsByStepsUntilTheAllowanceIsSpent) {
  QRTMemoryPool pool(0, 0);
  EXPECT_EQ(statsOf(pool), (Stats{0, 131072, 262144}));
  ASSERT_NE(pool.alloc(100), nullptr);
  EXPECT_EQ(statsOf(pool), (Stats{1, 131072, 131064}));
  ASSERT_NE(pool.alloc(131072 - 8), nullptr);
  EXPECT_EQ(statsOf(pool), (Stats{2, 131072, 0}));
  EXPECT_EQ(pool.alloc(131000), nullptr);

  pool.expand(10);
  EXPECT_EQ(statsOf(pool), (Stats{2, 131072, 131072}));
  ASSERT_NE(pool.alloc(131000), nullptr);
  EXPECT_EQ(statsOf(pool).blocks, 3u);
}

TEST(QRTMemoryPool, ARequestAboveOneStepObtainsAMultipleOfIt) {
  QRTMemoryPool pool(0, 0);
  char* const p = static_cast<char*>(pool.alloc(200000));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(statsOf(pool), (Stats{1, 131072, 0}));
  // 262,160 bytes came in; what the request left over is exactly one more block.
  EXPECT_EQ(pool.alloc(262160 - 200008 - 8 + 1), nullptr);
  EXPECT_NE(pool.alloc(262160 - 200008 - 8), nullptr);
}

TEST(QRTMemoryPool, OddBudgetsAreServedToTheLetter) {
  struct Case {
    unsigned maxBytes, increment;
    Stats fresh;
    unsigned request;
    Stats after;
  };
  const Case cases[] = {
      {1, 0, {0, 131072, 1}, 100, {1, 131072, 0}},  // one byte still pays one growth
      {0, 1, {0, 1, 2}, 0, {1, 1, 0}},              // a step of 1 byte is 2 units
      {100, 1, {0, 1, 100}, 24, {1, 1, 68}},        // 4 units: 2 steps
      {0xFFFFFFFF, 0x10000, {0, 0x10000, 0xFFFFFFFF}, 8, {1, 0x10000, 0xFFFEFFF7}},
      {0, 0x80000000, {0, 0x80000000, 0xFFFFFFFF}, 0, {0, 0, 0}},  // twice that does not fit
  };
  for (const Case& c : cases) {
    QRTMemoryPool pool(c.maxBytes, c.increment);
    EXPECT_EQ(statsOf(pool), c.fresh);
    if (c.after.blocks != 0) {
      EXPECT_NE(pool.alloc(c.request), nullptr);
      EXPECT_EQ(statsOf(pool), c.after);
    }
  }
}

TEST(QRTMemoryPool, AnAllowanceCannotOverflow) {
  QRTMemoryPool pool(0xFFFFFF00, 0x10000);
  pool.expand(0xFFFFFFFF);
  EXPECT_EQ(statsOf(pool).remaining, 0xFFFFFFFFu);
}

TEST(QRTMemoryPool, SizeZeroIsABlockOfItsOwn) {
  QRTMemoryPool pool(0, 0);
  void* const a = pool.alloc(0);
  void* const b = pool.alloc(0);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(static_cast<char*>(a) - static_cast<char*>(b), 8);
  // A free block of one unit keeps its place on the list and is handed out again.
  void* const c = pool.alloc(0);
  pool.free(b);
  EXPECT_EQ(pool.alloc(0), b);
  pool.free(b);
  pool.free(c);
  pool.free(a);
  EXPECT_NE(pool.alloc(131072), nullptr);
  EXPECT_EQ(statsOf(pool).blocks, 1u);
}

TEST(QRTMemoryPool, ARefusedHugeRequestChangesNothing) {
  // More than any machine gives in one piece, while the allowance still says yes.
  QRTMemoryPool pool(1, 0xFFFFFFFF);
  const Stats before = statsOf(pool);
  if (sizeof(void*) == 4) {
    EXPECT_EQ(pool.alloc(0xFFFFFFFF), nullptr);
    EXPECT_EQ(pool.alloc(0x80000000), nullptr);
    EXPECT_EQ(statsOf(pool), before);
  }
  EXPECT_NE(pool.alloc(100), nullptr);
}

/// A block in a caller's hands and what the caller wrote to it.
struct Live {
  unsigned char* p;
  std::vector<unsigned char> contents;

  std::uintptr_t address() const { return reinterpret_cast<std::uintptr_t>(p); }
  bool isIntact() const { return std::equal(contents.begin(), contents.end(), p); }
  /// Writes new contents from `from` on.
  void write(std::size_t from, unsigned char seed) {
    std::iota(contents.begin() + static_cast<std::ptrdiff_t>(from), contents.end(), seed);
    std::copy(contents.begin(), contents.end(), p);
  }
};

TEST(QRTMemoryPool, PlacesBlocksLikeTheModelAndKeepsTheirContents) {
  TestRandom random(testSeed());
  const struct {
    unsigned maxBytes, increment, largest;
    int steps;
  } shapes[] = {{1u << 14, 4096, 300, 6000},
                {1u << 18, 65536, 3000, 6000},
                {4000, 1, 64, 6000},
                {1u << 12, 999, 80, 6000},
                {1u << 24, 16384, 60, 40000},  // thousands of free blocks, hundreds of heap blocks
                {1u << 26, 1u << 18, 20000, 6000}};  // heap blocks that come in no order
  for (const auto& shape : shapes) {
    QRTMemoryPool pool(shape.maxBytes, shape.increment);
    PoolModel model(&pool, shape.maxBytes, shape.increment);
    std::vector<Live> live;
    std::size_t refused = 0;
    std::size_t resized = 0;
    std::size_t moved = 0;
    for (int step = 0; step < shape.steps; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      const unsigned size = random() % (random() % shape.largest + 1);
      const unsigned what = random() % 100;
      if (!live.empty()) {
        std::swap(live[random() % live.size()], live.back());
        ASSERT_TRUE(live.back().isIntact());
      }
      // Grows for a while, then shrinks, so that the list gets long and merges again.
      if (live.empty() || what < (step * 12 / shape.steps % 2 == 0 ? 55u : 25u)) {
        Live block{static_cast<unsigned char*>(pool.alloc(size)), {}};
        ASSERT_EQ(model.alloc(size, block.address()), block.address());
        refused += block.p == nullptr ? 1 : 0;
        if (block.p != nullptr) {
          ASSERT_EQ(pool.allocSize(block.p), (size + 7) / 8 * 8);
          block.contents.resize(size);
          block.write(0, static_cast<unsigned char>(random()));
          live.push_back(block);
        }
      } else if (what < 75 && size != 0) {
        Live& block = live.back();
        auto* const p = static_cast<unsigned char*>(pool.realloc(block.p, size));
        const auto result = reinterpret_cast<std::uintptr_t>(p);
        ASSERT_EQ(model.realloc(block.address(), size, result), result);
        resized += 1;
        moved += p != block.p ? 1 : 0;
        refused += p == nullptr ? 1 : 0;
        if (p != nullptr) {
          block.p = p;
          const std::size_t kept = std::min<std::size_t>(block.contents.size(), size);
          block.contents.resize(size);
          ASSERT_TRUE(std::equal(p, p + kept, block.contents.begin()));
          block.write(kept, static_cast<unsigned char>(random()));
        }
      } else {
        pool.free(live.back().p);
        model.free(live.back().address());
        live.pop_back();
      }
      ASSERT_EQ(statsOf(pool).remaining, model.remaining());
      if (step % 500 == 0) {
        ASSERT_EQ(faultsIn(pool), "");
        ASSERT_EQ(model.difference(QRTFragmentationReport(pool)), "");
      }
    }
    EXPECT_TRUE(std::all_of(live.begin(), live.end(), [](const Live& b) { return b.isIntact(); }));
    std::cout << "  increment " << shape.increment << ": " << model.freeBlocks()
              << " free blocks at the end, " << refused << " requests refused, " << resized
              << " blocks resized, " << moved << " of them moved\n";
  }
}

TEST(QRTMemoryPool, ReallocStaysInPlaceWhereTheBlockOrTheNextFreeOneAllows) {
  QRTMemoryPool pool(65536, 65536);
  char* const above = static_cast<char*>(pool.alloc(40));  // blocks come from the high end down
  char* const p = static_cast<char*>(pool.alloc(200));
  std::iota(p, p + 200, '\0');
  const std::vector<char> contents(p, p + 200);
  const auto keeps = [&](const char* at, int bytes) {
    return std::equal(contents.begin(), contents.begin() + bytes, at);
  };
  EXPECT_EQ(pool.realloc(p, 193), p) << "the same units";
  EXPECT_EQ(pool.realloc(p, 100), p);
  EXPECT_EQ(pool.allocSize(p), 104u);
  EXPECT_EQ(pool.realloc(p, 160), p) << "back into a part of what it gave up";
  EXPECT_EQ(pool.realloc(p, 200), p) << "into all of it";
  EXPECT_TRUE(keeps(p, 104));
  pool.free(above);
  EXPECT_EQ(pool.realloc(p, 248), p) << "over the whole block above it, header and all";
  EXPECT_EQ(pool.allocSize(p), 248u);
  EXPECT_EQ(faultsIn(pool), "");

  // One byte more lies behind the heap block: the block moves.
  char* const moved = static_cast<char*>(pool.realloc(p, 249));
  ASSERT_NE(moved, nullptr);
  EXPECT_LT(moved, p);
  EXPECT_TRUE(keeps(moved, 104));
  expectRaised<QRTAssertError>([&] { pool.free(p); }, "the old place is free");

  // Like C's: null allocates, 0 frees, what cannot be had leaves the block as it was.
  EXPECT_EQ(pool.realloc(moved, 1u << 20), nullptr);
  EXPECT_EQ(pool.allocSize(moved), 256u);
  EXPECT_TRUE(keeps(moved, 104));
  void* const fresh = pool.realloc(nullptr, 24);
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(pool.allocSize(fresh), 24u);
  void* const empty = pool.realloc(nullptr, 0);
  EXPECT_NE(empty, nullptr);
  EXPECT_EQ(pool.allocSize(empty), 0u);
  EXPECT_EQ(pool.realloc(fresh, 0), nullptr);
  EXPECT_EQ(pool.realloc(empty, 0), nullptr);
  EXPECT_EQ(pool.realloc(moved, 0), nullptr);
  EXPECT_EQ(pool.allocSize(nullptr), 0u);
  EXPECT_EQ(QRTFragmentationReport(pool).getUsedBlocks(), 0u);
  EXPECT_EQ(faultsIn(pool), "");
}

TEST(QRTMemoryPool, ServesSizesUpToTheLargestNumber) {
  constexpr unsigned kMost = 0xFFFFFFFF;
  QRTMemoryPool pool(kMost, 4096);
  char* const small = static_cast<char*>(pool.alloc(10));
  const Stats before = statsOf(pool);
  auto* const large = static_cast<unsigned char*>(pool.alloc(kMost));
  if (large == nullptr) {  // every 32-bit process
    EXPECT_EQ(statsOf(pool), before);
    EXPECT_EQ(pool.realloc(small, kMost), nullptr);
    EXPECT_EQ(statsOf(pool), before);
    EXPECT_EQ(pool.allocSize(small), 16u);
  } else {
    EXPECT_EQ(pool.allocSize(large), kMost);
    large[kMost - 1] = 1;
    EXPECT_EQ(pool.alloc(kMost), nullptr) << "the allowance is spent";
    EXPECT_EQ(pool.realloc(small, kMost), nullptr);
    EXPECT_EQ(pool.realloc(large, 8), large);
    EXPECT_EQ(pool.realloc(large, kMost), large);
    EXPECT_EQ(large[kMost - 1], 1) << "nobody else was there";
    pool.free(large);
  }
  pool.free(small);
  EXPECT_EQ(faultsIn(pool), "");
}

TEST(QRTMemoryPool, MisuseIsReportedAndChangesNothing) {
  QRTMemoryPool pool(65536, 65536);
  const auto null = expectRaised<QRTAssertError>([&] { pool.free(nullptr); });
  EXPECT_EQ(textOf(null), "QRT_ASSERT(memBlock);");
  EXPECT_EQ(traceOf(null), (std::vector<TraceEntry>{{"QRTMemoryPool.cpp", "", "QRT_THROW"}}));

  alignas(8) char foreign[64] = {};
  expectRaised<QRTAssertError>([&] { pool.free(foreign + 8); }, "nothing obtained");

  QRTMemoryPool other(65536, 65536);
  char* const theirs = static_cast<char*>(other.alloc(40));
  char* const a = static_cast<char*>(pool.alloc(40));
  char* const b = static_cast<char*>(pool.alloc(40));
  char* const c = static_cast<char*>(pool.alloc(40));
  std::memset(a, 0, 40);
  std::memset(b, 0xFF, 40);
  const struct {
    const char* what;
    char* p;
  } bad[] = {{"other memory", foreign + 8},
             {"another pool", theirs},
             {"misaligned", a + 4},
             {"inside, zeros before", a + 16},
             {"inside, ones before", b + 16}};
  for (const auto& pointer : bad) {
    expectRaised<QRTAssertError>([&] { pool.free(pointer.p); }, pointer.what);
    for (const unsigned size : {0u, 8u, 40u, 80u}) {
      expectRaised<QRTAssertError>([&] { pool.realloc(pointer.p, size); },
                                   std::string(pointer.what) + ", to " + std::to_string(size));
    }
    expectRaised<QRTAssertError>([&] { pool.allocSize(pointer.p); }, pointer.what);
  }
  // Freed twice: while it is a free block itself, after its neighbour took it in from below, and
  // after it took its neighbour in.
  pool.free(b);
  expectRaised<QRTAssertError>([&] { pool.free(b); });
  pool.free(c);
  expectRaised<QRTAssertError>([&] { pool.free(b); });
  expectRaised<QRTAssertError>([&] { pool.free(c); });
  for (const unsigned size : {0u, 8u, 40u, 80u}) {
    expectRaised<QRTAssertError>([&] { pool.realloc(b, size); }, std::to_string(size));
    expectRaised<QRTAssertError>([&] { pool.realloc(c, size); }, std::to_string(size));
  }
  EXPECT_EQ(faultsIn(pool), "");
  pool.free(a);
  expectRaised<QRTAssertError>([&] { pool.free(a); });
  EXPECT_NE(pool.alloc(65536), nullptr) << "the list is whole";
  EXPECT_EQ(statsOf(pool).blocks, 1u);
}

TEST(QRTMemoryPool, AGrowthThatCannotBeRecordedIsUndone) {
  constexpr unsigned kLarge = 1u << 20;  // several entries of every kind to record
  for (std::size_t nth = 1;; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " fails");
    QRTMemoryPool pool(1, 4096);  // room for 10 heap blocks is reserved
    std::vector<char*> live;
    for (int i = 0; i < 10; ++i) {
      live.push_back(static_cast<char*>(pool.alloc(3000)));
      ASSERT_NE(live.back(), nullptr);
      std::fill_n(live.back(), 3000, static_cast<char>(i));
      pool.expand(4096);
    }
    pool.expand(2 * kLarge);
    const Stats before = statsOf(pool);
    bool hasFailed = false;
    {
      const FailingNew fails(nth);
      void* const large = pool.realloc(live[3], kLarge);
      hasFailed = fails.count() >= nth;
      ASSERT_EQ(large == nullptr, hasFailed);
      live[3] = large != nullptr ? static_cast<char*>(large) : live[3];
    }
    if (hasFailed) {
      EXPECT_EQ(statsOf(pool), before);
      EXPECT_EQ(faultsIn(pool), "");
      EXPECT_EQ(pool.allocSize(live[3]), 3000u);
      void* const large = pool.alloc(kLarge);
      ASSERT_NE(large, nullptr) << "the next one works";
      pool.free(large);
    }
    EXPECT_EQ(std::count(live[3], live[3] + 3000, 3), 3000);
    for (char* p : live) {
      pool.free(p);
    }
    EXPECT_EQ(faultsIn(pool), "");
    EXPECT_EQ(QRTFragmentationReport(pool).getUsedBlocks(), 0u);
    if (!hasFailed) {
      EXPECT_GT(nth, 10u) << "or nothing was tried";
      break;
    }
  }
}

TEST(QRTMemoryPool, IsMadeWithoutTheReservationWhereThatCannotBeHad) {
  {
    const FailingNew fails(1);
    QRTMemoryPool pool(1u << 20, 4096);
    EXPECT_NE(pool.alloc(8), nullptr);
    EXPECT_EQ(statsOf(pool), (Stats{1, 4096, (1u << 20) - 4104}));
  }
  const auto construct = [] {
    const FailingNew fails(1, FailingNew::eFromThenOn);
    const QRTMemoryPool pool(0, 0);
  };
  EXPECT_THROW(construct(), std::bad_alloc);
}

}  // namespace
