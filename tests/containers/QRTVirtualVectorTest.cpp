#include "QRTVirtualVector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <random>
#include <ranges>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/ErrorMatchers.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// What a vector holds, compared with a std::vector, over a store of any budget.

namespace {

constexpr unsigned int kLeastBudget = 1;  // raised by the store to what it cannot do without

// Elements of which many, some or less than one go into a block, and that have bytes to compare.
template <std::size_t kBytes>
struct Element {
  explicit Element(std::uint32_t value = 0) { std::memset(bytes, static_cast<int>(value), kBytes); }
  bool operator==(const Element& other) const {
    return std::memcmp(bytes, other.bytes, kBytes) == 0;
  }
  unsigned char bytes[kBytes];
};

static_assert(std::ranges::input_range<QRTVirtualVector<int>>);
static_assert(std::ranges::input_range<const QRTVirtualVector<int>>);

bool isPinned(QRTVirtualMemoryMgr& manager) {
  std::ostringstream os;
  manager.dumpMapper(os, 0);
  return os.str().find("reference count > 0") != std::string::npos;
}

// Objects in the store, as its statistics have them.
std::string objectsIn(QRTVirtualMemoryMgr& manager) {
  std::ostringstream os;
  manager.dumpMapper(os, QRTVirtualMemoryMgr::eDumpStatistics);
  const std::string label = "(Current/Max/Cumulative): ";
  const std::string dump = os.str().substr(os.str().find(label) + label.size());
  return dump.substr(0, dump.find('/'));
}

// A vector and its twin, to which the same things happen at random.
template <class T>
class Twins {
 public:
  Twins(QRTVirtualMemoryMgr& manager, std::size_t most, unsigned int seed)
      : m_vector(manager), m_other(manager), m_most(most), m_random(seed) {}

  void step() {
    const std::size_t size = m_twin.size();
    switch (below(16)) {
      case 0:
      case 1:
      case 2: {
        const T value(below(256));
        m_vector.push_back(value);
        m_twin.push_back(value);
        break;
      }
      case 3:
      case 4: {
        const std::vector<T> more = some(below(m_most / 8));
        m_vector.append(more.data(), more.size());
        m_twin.insert(m_twin.end(), more.begin(), more.end());
        break;
      }
      case 5:
        if (size != 0) {
          m_vector.pop_back();
          m_twin.pop_back();
        }
        break;
      case 6: {
        // Up and down, by few or by many, and back to what it had.
        const std::size_t wanted = below(2) == 0 ? below(m_most) : size + below(300);
        m_vector.resize(wanted);
        m_twin.resize(wanted);
        break;
      }
      case 7:
        if (below(20) == 0) {
          m_vector.clear();
          m_twin.clear();
        }
        break;
      case 8:
        m_vector.swap(m_other);
        m_twin.swap(m_otherTwin);
        break;
      case 9: {
        QRTVirtualVector<T> moved(std::move(m_vector));
        ASSERT_TRUE(m_vector.empty());
        m_vector.push_back(T(1));
        m_vector = std::move(moved);
        ASSERT_TRUE(moved.empty());  // NOLINT(bugprone-use-after-move): that is asked
        moved.push_back(T(1));
        break;
      }
      default:
        if (size != 0) {
          touch(size);
        }
    }
    if (m_twin.size() > m_most) {
      m_vector.resize(m_most / 2);
      m_twin.resize(m_most / 2);
    }
    ASSERT_EQ(m_vector.size(), m_twin.size());
    ASSERT_EQ(m_vector.empty(), m_twin.empty());
  }

  void compare() {
    std::size_t at = 0;
    for (const T& each : std::as_const(m_vector)) {
      ASSERT_LT(at, m_twin.size());
      ASSERT_EQ(each, m_twin[at]) << at;
      ++at;
    }
    ASSERT_EQ(at, m_twin.size());
  }

 private:
  std::uint32_t below(std::size_t limit) {
    return limit == 0 ? 0 : static_cast<std::uint32_t>(m_random() % limit);
  }
  std::vector<T> some(std::size_t n) {
    std::vector<T> values;
    for (std::size_t i = 0; i < n; ++i) {
      values.push_back(T(below(256)));
    }
    return values;
  }

  // Reads or changes a part of what is there.
  void touch(std::size_t size) {
    const std::size_t at = below(size);
    const T value(below(256));
    const std::size_t n = below(std::min<std::size_t>(size - at, m_most / 10) + 1);
    switch (below(6)) {
      case 0:
        m_vector.set(at, value);
        m_twin[at] = value;
        break;
      case 1:
        ASSERT_EQ(m_vector.get(at), m_twin[at]);
        break;
      case 2: {
        const std::vector<T> values = some(n);
        m_vector.write(at, values.data(), n);
        std::copy(values.begin(), values.end(), m_twin.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      }
      case 3: {
        std::vector<T> values(n);
        m_vector.read(at, values.data(), n);
        ASSERT_TRUE(std::equal(values.begin(), values.end(),
                               m_twin.begin() + static_cast<std::ptrdiff_t>(at)));
        break;
      }
      case 4: {
        // A pin stays good while the vector grows.
        const QRTVirtualPin<T> pin = m_vector.pin(at);
        m_vector.push_back(value);
        m_twin.push_back(value);
        ASSERT_EQ(*pin, m_twin[at]);
        *pin = m_twin[at] = value;
        ASSERT_EQ(*std::as_const(m_vector).pin(at), value);
        break;
      }
      default:
        for (T& each : m_vector) {
          each = T(static_cast<std::uint32_t>(each.bytes[0] + 1));
        }
        for (T& each : m_twin) {
          each = T(static_cast<std::uint32_t>(each.bytes[0] + 1));
        }
    }
  }

  QRTVirtualVector<T> m_vector;
  QRTVirtualVector<T> m_other;
  std::vector<T> m_twin;
  std::vector<T> m_otherTwin;
  std::size_t m_most;  // elements, about
  std::mt19937 m_random;
};

template <class T>
void liveLikeAStdVector(unsigned int budget, std::size_t bytes, int steps) {
  QRTVirtualMemoryMgr manager(budget);
  {
    Twins<T> twins(manager, bytes / sizeof(T), testSeed());
    for (int step = 0; step < steps; ++step) {
      ASSERT_NO_FATAL_FAILURE(twins.step()) << "step " << step;
      if (step % (steps / 10) == 0) {
        ASSERT_NO_FATAL_FAILURE(twins.compare()) << "step " << step;
      }
    }
    EXPECT_FALSE(isPinned(manager));
  }
  EXPECT_EQ(objectsIn(manager), "0") << "blocks and directory end with the vector";
}

TEST(QRTVirtualVectorTest, HoldsWhatAStdVectorHolds) {
  // Each beyond the smallest budget, and in memory.
  liveLikeAStdVector<Element<1>>(kLeastBudget, 1U << 18, 200);
  liveLikeAStdVector<Element<24>>(kLeastBudget, 3U << 20, 400);
  liveLikeAStdVector<Element<24>>(16U << 20, 3U << 20, 300);
  liveLikeAStdVector<Element<1500>>(kLeastBudget, 4U << 20, 600);
  liveLikeAStdVector<Element<10000>>(kLeastBudget, 8U << 20, 600);
}

TEST(QRTVirtualVectorTest, IteratorsServeInputAlgorithms) {
  QRTVirtualMemoryMgr manager(kLeastBudget);
  QRTVirtualVector<int> vector(manager);
  EXPECT_EQ(vector.begin(), vector.end());
  std::vector<int> twin(10000);
  std::iota(twin.begin(), twin.end(), 0);
  vector.append(twin.data(), twin.size());
  const auto& constant = vector;
  EXPECT_EQ(std::accumulate(constant.begin(), constant.end(), 0),
            std::accumulate(twin.begin(), twin.end(), 0));
  EXPECT_EQ(std::vector<int>(constant.begin(), constant.end()), twin);
  EXPECT_EQ(std::count_if(vector.cbegin(), vector.cend(), [](int i) { return i % 7 == 0; }), 1429);
  std::transform(constant.begin(), constant.end(), twin.begin(), [](int i) { return 2 * i; });
  EXPECT_EQ(twin[9999], 19998);
  auto found = std::find(vector.begin(), vector.end(), 5000);
  ASSERT_NE(found, vector.end());
  *found = -1;
  EXPECT_EQ(vector.get(5000), -1);

  // A copy stays where it is and keeps its element pinned, whatever becomes of the original.
  const auto copy = found++;
  EXPECT_EQ(*found, 5001);
  EXPECT_NE(copy, found);
  found = vector.end();
  EXPECT_EQ(*copy, -1);
  EXPECT_TRUE(isPinned(manager));
  auto assigned = vector.begin();
  assigned = copy;
  EXPECT_EQ(assigned, copy);
  EXPECT_EQ(*++assigned, 5001);
}

TEST(QRTVirtualVectorTest, UseOfAnIteratorAfterAChangeIsAnAssertionWhereTheHostWantsThem) {
#ifdef NDEBUG
  GTEST_SKIP() << "NDEBUG is defined";
#else
  QRTVirtualMemoryMgr manager(kLeastBudget);
  QRTVirtualVector<int> vector(manager);
  vector.resize(3);
  auto at = vector.begin();
  vector.set(1, 4);
  EXPECT_EQ(*++at, 4) << "another value is no change of the vector";
  expectRaised<QRTAssertError>([&] { *vector.end(); });
  const std::pair<const char*, void (*)(QRTVirtualVector<int>&)> changes[] = {
      {"push_back", [](auto& changed) { changed.push_back(1); }},
      {"append", [](auto& changed) { changed.append(std::array<int, 1>{1}.data(), 1); }},
      {"pop_back", [](auto& changed) { changed.pop_back(); }},
      {"resize", [](auto& changed) { changed.resize(5); }},
      {"sort", [](auto& changed) { changed.sort(); }},
      {"swap", [](auto& changed) { changed.swap(changed); }},
      {"move", [](auto& changed) { QRTVirtualVector<int> taken(std::move(changed)); }},
      {"clear", [](auto& changed) { changed.clear(); }},
  };
  for (const auto& [name, change] : changes) {
    vector.resize(4);
    at = vector.begin();
    change(vector);
    expectRaised<QRTAssertError>([&] { static_cast<void>(*at); }, name);
    expectRaised<QRTAssertError>([&] { ++at; }, name);
  }
#endif
}

// A class without assignment or default constructor is as good as any.
struct Fixed {
  explicit Fixed(int given) : value(given) {}
  const int value;
};

TEST(QRTVirtualVectorTest, ElementsNeedNoAssignment) {
  QRTVirtualMemoryMgr manager(kLeastBudget);
  QRTVirtualVector<Fixed> vector(manager);
  vector.push_back(Fixed(1));
  vector.set(0, Fixed(2));
  EXPECT_EQ(vector.get(0).value, 2);
  EXPECT_EQ(vector.begin()->value, 2);
}

// Without a paging file the budget is the end.
TEST(QRTVirtualVectorTest, AFullStoreKeepsEveryElement) {
  const ScopedTmpdir tmpdir(utf8Of(TempDirectory().path()));  // of a directory that is gone again
  QRTVirtualMemoryMgr manager(kLeastBudget);
  QRTVirtualVector<std::uint32_t> vector(manager);
  std::mt19937 random(testSeed());
  std::vector<std::uint32_t> twin;
  expectRaised<QRTOutOfMemoryError>([&] {
    for (;;) {
      const auto value = static_cast<std::uint32_t>(random());
      vector.push_back(value);
      twin.push_back(value);
    }
  });
  EXPECT_GT(vector.size() * sizeof(std::uint32_t), 1U << 19);
  const std::string objects = objectsIn(manager);
  expectRaised<QRTOutOfMemoryError>([&] { vector.append(twin.data(), twin.size()); });
  expectRaised<QRTOutOfMemoryError>([&] { vector.resize(vector.size() + 100000); });
  EXPECT_EQ(std::vector<std::uint32_t>(vector.cbegin(), vector.cend()), twin);

  // There is no room for a second copy.
  expectRaised<QRTOutOfMemoryError>([&] { vector.sort(); });
  EXPECT_EQ(objectsIn(manager), objects);
  std::vector<std::uint32_t> left(vector.cbegin(), vector.cend());
  EXPECT_TRUE(std::is_permutation(left.begin(), left.end(), twin.begin(), twin.end()));

  // A quarter of it leaves room.
  vector.resize(twin.size() / 4);
  left.assign(vector.cbegin(), vector.cend());
  vector.sort();
  std::sort(left.begin(), left.end());
  EXPECT_EQ(std::vector<std::uint32_t>(vector.cbegin(), vector.cend()), left);
}

}  // namespace
