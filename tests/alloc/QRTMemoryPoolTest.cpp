#include "QRTMemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <map>
#include <vector>

#include "AllocTestSupport.h"
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

TEST(QRTMemoryPool, PlacesBlocksLikeTheModelAndKeepsTheirContents) {
  const unsigned seed = testSeed();
  std::cout << "seed " << seed << "\n";
  TestRandom random(seed);
  const struct {
    unsigned maxBytes, increment, largest;
    int steps;
  } shapes[] = {{1u << 14, 4096, 300, 6000},
                {1u << 18, 65536, 3000, 6000},
                {4000, 1, 64, 6000},
                {1u << 12, 999, 80, 6000},
                {1u << 24, 16384, 60, 40000},  // thousands of free blocks, hundreds of heap blocks
                {1u << 26, 1u << 18, 60000, 6000}};  // heap blocks that come in no order
  for (const auto& shape : shapes) {
    QRTMemoryPool pool(shape.maxBytes, shape.increment);
    PoolModel model(&pool, shape.maxBytes, shape.increment);
    struct Live {
      unsigned char* p;
      unsigned size;
      unsigned char fill;
    };
    std::vector<Live> live;
    std::size_t refused = 0;
    for (int step = 0; step < shape.steps; ++step) {
      // Grows for a while, then shrinks, so that the list gets long and merges again.
      if (live.empty() || random() % 100 < (step * 12 / shape.steps % 2 == 0 ? 65u : 35u)) {
        const unsigned size = random() % (random() % shape.largest + 1);
        auto* const p = static_cast<unsigned char*>(pool.alloc(size));
        const auto result = reinterpret_cast<std::uintptr_t>(p);
        ASSERT_EQ(model.alloc(size, result), result) << "step " << step;
        refused += p == nullptr ? 1 : 0;
        if (p != nullptr) {
          const auto fill = static_cast<unsigned char>(random());
          std::memset(p, fill, (size + 7) / 8 * 8);
          live.push_back({p, size, fill});
        }
      } else {
        std::swap(live[random() % live.size()], live.back());
        const Live gone = live.back();
        live.pop_back();
        ASSERT_EQ(std::count(gone.p, gone.p + gone.size, gone.fill), gone.size) << step;
        pool.free(gone.p);
        model.free(reinterpret_cast<std::uintptr_t>(gone.p));
      }
      ASSERT_EQ(statsOf(pool).remaining, model.remaining());
    }
    std::cout << "  increment " << shape.increment << ": " << model.freeBlocks()
              << " free blocks at the end, " << refused << " requests refused\n";
  }
}

TEST(QRTMemoryPool, MisuseIsReportedAndChangesNothing) {
  QRTMemoryPool pool(65536, 65536);
  const SeenError null = errorOf([&] { pool.free(nullptr); });
  EXPECT_EQ(null.type, "QRTAssertError");
  EXPECT_EQ(null.text, "QRT_ASSERT(memBlock);");
  EXPECT_EQ(null.file, "QRTMemoryPool.cpp");
  EXPECT_EQ(null.macros, std::vector<std::string>{"QRT_THROW"});

  alignas(8) char foreign[64] = {};
  EXPECT_EQ(errorOf([&] { pool.free(foreign + 8); }).type, "QRTAssertError") << "nothing obtained";

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
    EXPECT_EQ(errorOf([&] { pool.free(pointer.p); }).type, "QRTAssertError") << pointer.what;
  }
  // Freed twice: while it is a free block itself, after its neighbour took it in from below, and
  // after it took its neighbour in.
  pool.free(b);
  EXPECT_EQ(errorOf([&] { pool.free(b); }).type, "QRTAssertError");
  pool.free(c);
  EXPECT_EQ(errorOf([&] { pool.free(b); }).type, "QRTAssertError");
  EXPECT_EQ(errorOf([&] { pool.free(c); }).type, "QRTAssertError");
  pool.free(a);
  EXPECT_EQ(errorOf([&] { pool.free(a); }).type, "QRTAssertError");
  EXPECT_NE(pool.alloc(65536), nullptr) << "the list is whole";
  EXPECT_EQ(statsOf(pool).blocks, 1u);
}

TEST(QRTMemoryPool, AGrowthThatCannotBeRecordedIsUndone) {
  {
    QRTMemoryPool pool(1u << 20, 4096);
    const FailingNew fails(1, FailingNew::eFromThenOn);
    EXPECT_EQ(pool.alloc(8), nullptr);
    EXPECT_EQ(statsOf(pool), (Stats{0, 4096, 1u << 20}));
  }
  EXPECT_EQ(errorOf([] {
              const FailingNew fails(1, FailingNew::eFromThenOn);
              const QRTMemoryPool pool(0, 0);
            }).type,
            typeid(std::bad_alloc).name());
}

}  // namespace
