#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <stdexcept>
#include <vector>

#include "QRTVirtualVector.h"
#include "support/TestSeed.h"

namespace {

constexpr unsigned int kSortBudget = 1U << 20;

template <class T>
std::vector<T> contentOf(const QRTVirtualVector<T>& vector) {
  return {vector.begin(), vector.end()};
}

TEST(QRTVirtualVectorSortTest, SortsTenTimesTheBudgetLikeStdSort) {
  QRTVirtualMemoryMgr manager(kSortBudget);
  std::mt19937_64 random(testSeed());
  QRTVirtualVector<std::uint64_t> vector(manager);
  std::vector<std::uint64_t> twin(10 * kSortBudget / sizeof(std::uint64_t));
  // One number in four comes often.
  std::generate(twin.begin(), twin.end(), [&] {
    const std::uint64_t number = random();
    return number % 4 == 0 ? number % 100 : number;
  });
  vector.append(twin.data(), twin.size());
  vector.sort();
  std::sort(twin.begin(), twin.end());
  EXPECT_TRUE(contentOf(vector) == twin);
  // The other way round, what is in order already.
  twin.resize(100000);
  vector.resize(twin.size());
  vector.sort(std::greater<std::uint64_t>());
  std::reverse(twin.begin(), twin.end());
  EXPECT_TRUE(contentOf(vector) == twin);
}

// Four of these are a run, four runs are merged at a time.
struct Large {
  explicit Large(std::uint64_t given = 0) : key(given), last(given) {}
  std::uint64_t key;
  char between[65520];
  std::uint64_t last;
};

TEST(QRTVirtualVectorSortTest, MergesUntilOneRunIsLeft) {
  QRTVirtualMemoryMgr manager(kSortBudget);
  std::mt19937_64 random(testSeed());
  for (const unsigned int size : {0U, 1U, 2U, 4U, 5U, 16U, 17U, 150U, 321U}) {
    QRTVirtualVector<Large> vector(manager);
    std::vector<std::uint64_t> twin;
    for (std::size_t i = 0; i < size; ++i) {
      twin.push_back(random() % 200);
      vector.push_back(Large(twin.back()));
    }
    vector.sort([](const Large& a, const Large& b) { return a.key < b.key; });
    std::sort(twin.begin(), twin.end());
    ASSERT_EQ(vector.size(), size);
    for (std::size_t i = 0; i < size; ++i) {
      const QRTVirtualPin<const Large> element = std::as_const(vector).pin(i);
      ASSERT_EQ(element->key, twin[i]) << i << " of " << size;
      ASSERT_EQ(element->last, twin[i]) << i << " of " << size;
    }
  }
}

TEST(QRTVirtualVectorSortTest, AComparisonThatRaisesLosesNoElement) {
  QRTVirtualMemoryMgr manager(kSortBudget);
  std::mt19937 random(testSeed());
  QRTVirtualVector<unsigned int> vector(manager);
  std::vector<unsigned int> sorted(200000);
  std::generate(sorted.begin(), sorted.end(), [&] { return random() % 1000000; });
  vector.append(sorted.data(), sorted.size());
  long long left = 1LL << 60;
  const auto before = [&left](unsigned int a, unsigned int b) {
    if (--left == 0) {
      throw std::runtime_error("enough");
    }
    return a < b;
  };
  QRTVirtualVector<unsigned int> other(manager);
  other.append(sorted.data(), sorted.size());
  other.sort(before);
  const long long comparisons = (1LL << 60) - left;
  std::sort(sorted.begin(), sorted.end());
  // In the first run, in a later one, when merging begins to end.
  for (const long long last : {1LL, comparisons / 2, comparisons}) {
    left = last;
    EXPECT_THROW(vector.sort(before), std::runtime_error) << last;
    std::vector<unsigned int> content = contentOf(vector);
    std::sort(content.begin(), content.end());
    ASSERT_TRUE(content == sorted) << last;
  }
  EXPECT_NO_THROW(manager.throwExceptionOnReferenceLeak());
  vector.sort();
  EXPECT_TRUE(contentOf(vector) == sorted);
}

}  // namespace
