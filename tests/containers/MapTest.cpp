#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "containers/MapKinds.h"
#include "support/ErrorMatchers.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// The maps over the real engine.

namespace {

using testing::HasSubstr;

// The number that follows a label of the store's statistics.
unsigned long long figure(QRTVirtualMemoryMgr& store, const std::string& label) {
  std::ostringstream dump;
  store.dumpMapper(dump, QRTVirtualMemoryMgr::eDumpStatistics);
  const std::size_t at = dump.str().find(label);
  EXPECT_NE(at, std::string::npos) << dump.str();
  return at == std::string::npos ? 0 : std::stoull(dump.str().substr(at + label.size()));
}

unsigned long long objectsOf(QRTVirtualMemoryMgr& store) {
  return figure(store, "(Current/Max/Cumulative): ");
}

void expectNothingPinned(QRTVirtualMemoryMgr& store) {
  std::ostringstream dump;
  store.dumpMapper(dump, 0);
  EXPECT_THAT(dump.str(), testing::Not(HasSubstr("reference count > 0")));
}

template <class Kind>
class MapTest : public testing::Test {
 public:
  static void fill(typename Kind::Map& map, unsigned int begin, unsigned int end) {
    for (unsigned int i = begin; i < end; ++i) {
      ASSERT_TRUE(map.insert(Kind::key(i), i));
    }
  }
};

using Kinds = testing::Types<NumberKind, TextKind, CrowdedKind, LargeKind>;
TYPED_TEST_SUITE(MapTest, Kinds);

// Filled beyond the smallest budget, and beyond none, then eaten up; against std::map.
TYPED_TEST(MapTest, HoldsWhatAModelHolds) {
  const bool crowded = std::is_same<TypeParam, CrowdedKind>::value;
  const bool large = std::is_same<TypeParam, LargeKind>::value;
  for (const unsigned int budget : {1U, 64U << 20U}) {
    const unsigned int keys = crowded ? 500 : large ? 2000 : budget == 1 ? 60000 : 15000;
    std::mt19937 random(testSeed());
    QRTVirtualMemoryMgr store(budget);
    const unsigned long long before = objectsOf(store);
    {
      typename TypeParam::Map map(store);
      this->fill(map, 0, keys);
      Model<TypeParam> model;
      for (unsigned int i = 0; i < keys; ++i) {
        model.emplace(TypeParam::key(i), i);
      }
      for (const unsigned int erasesInTen : {3U, 8U}) {
        for (unsigned int step = 0; step < std::min(keys * 2, 30000U); ++step) {
          randomOperation<TypeParam>(map, model, random, keys, erasesInTen);
          if (this->HasFatalFailure()) {
            return;
          }
        }
        ASSERT_EQ(contentOf<TypeParam>(map), model);
      }
      EXPECT_EQ(figure(store, "Page Outs: ") > 0, budget == 1 && !crowded);
      map.clear();
      EXPECT_TRUE(map.empty());
      EXPECT_EQ(objectsOf(store), before);
      this->fill(map, 0, 500);
    }
    EXPECT_EQ(objectsOf(store), before) << "a map takes along what it holds";
    expectNothingPinned(store);
  }
}

TYPED_TEST(MapTest, ErasingGivesRoomBack) {
  if (std::is_same<TypeParam, CrowdedKind>::value) {
    GTEST_SKIP() << "one bucket";
  }
  QRTVirtualMemoryMgr store(16U << 20U);
  typename TypeParam::Map map(store);
  this->fill(map, 0, 20);
  const unsigned long long small = objectsOf(store);
  this->fill(map, 20, 4000);
  EXPECT_GT(objectsOf(store), 5 * small);
  for (unsigned int i = 20; i < 4000; ++i) {
    ASSERT_TRUE(map.erase(TypeParam::key(i)));
  }
  // Half as many pairs for a bucket as before, at the most.
  EXPECT_LE(objectsOf(store), 4 * small);
  EXPECT_EQ(contentOf<TypeParam>(map).size(), 20U);
}

TYPED_TEST(MapTest, MovesAndSwapsLeaveUsableMaps) {
  QRTVirtualMemoryMgr store(1U << 20U);
  QRTVirtualMemoryMgr other(1U << 20U);
  using Map = typename TypeParam::Map;
  {
    Map first(store);
    this->fill(first, 0, 200);
    Map second(std::move(first));
    EXPECT_EQ(contentOf<TypeParam>(second).size(), 200U);
    EXPECT_TRUE(contentOf<TypeParam>(first).empty());  // NOLINT(bugprone-use-after-move)
    EXPECT_FALSE(first.contains(TypeParam::key(1)));
    EXPECT_FALSE(first.erase(TypeParam::key(1)));
    this->fill(first, 300, 330);

    Map elsewhere(other);
    this->fill(elsewhere, 7, 8);
    elsewhere.swap(second);
    EXPECT_EQ(contentOf<TypeParam>(elsewhere).size(), 200U);
    EXPECT_TRUE(elsewhere.contains(TypeParam::key(199)));
    EXPECT_TRUE(second.contains(TypeParam::key(7)));
    second = std::move(first);
    EXPECT_EQ(contentOf<TypeParam>(second).size(), 30U);
    this->fill(second, 0, 20);
    first = std::move(elsewhere);
    EXPECT_EQ(contentOf<TypeParam>(first).size(), 200U);
    EXPECT_TRUE(elsewhere.empty());  // NOLINT(bugprone-use-after-move)
  }
  EXPECT_EQ(objectsOf(store), objectsOf(other)) << "both empty again";
  expectNothingPinned(store);
}

TYPED_TEST(MapTest, ALoopMayLookAndThrowButNotChangeTheMap) {
  QRTVirtualMemoryMgr store(1U << 20U);
  typename TypeParam::Map map(store);
  this->fill(map, 0, 300);
  unsigned int calls = 0;
  EXPECT_THROW(map.forEach([&](const auto& key, const auto&) {
    EXPECT_TRUE(map.contains(key));
    map.forEach([&](const auto&, const auto&) { ++calls; });
    throw std::runtime_error("enough");
  }),
               std::runtime_error);
  EXPECT_EQ(calls, 300U);
  const auto error = expectRaised<QRTAssertError>(
      [&] { map.forEach([&](const auto&, const auto&) { map.insert(TypeParam::key(1000), 0); }); });
  EXPECT_THAT(textOf(error), HasSubstr("does not change while its forEach"));
  expectRaised<QRTAssertError>(
      [&] { map.forEach([&](const auto&, const auto&) { map.erase(TypeParam::key(1)); }); });
  expectRaised<QRTAssertError>(
      [&] { map.forEach([&](const auto&, const auto&) { map.clear(); }); });
  EXPECT_EQ(map.size(), 300U);
  EXPECT_TRUE(map.insert(TypeParam::key(1000), 0)) << "allowed again";
  expectNothingPinned(store);
}

// A store without a paging file: what does not fit is refused, and nothing else suffers.
TYPED_TEST(MapTest, KeepsEverythingWhenThereIsNoRoomForMore) {
  const TempDirectory directory;
  const ScopedTmpdir tmpdir((directory.path() / "missing").string());
  QRTVirtualMemoryMgr store(1U << 20U);
  typename TypeParam::Map map(store);
  Model<TypeParam> model;
  unsigned int next = 0;
  const unsigned int end = std::is_same<TypeParam, CrowdedKind>::value ? 3000 : 65000;
  const auto fillUp = [&] {
    try {
      for (; next < end; ++next) {
        map.insert(TypeParam::key(next), next);
        model.emplace(TypeParam::key(next), next);
      }
    } catch (const QRTOutOfMemoryError&) {
      return true;
    }
    return false;
  };
  ASSERT_NE(fillUp(), (std::is_same<TypeParam, CrowdedKind>::value));
  ASSERT_EQ(contentOf<TypeParam>(map), model);
  for (unsigned int i = 0; i < next; i += 2) {
    map.insertOrAssign(TypeParam::key(i), i + 5);  // takes no room
    model[TypeParam::key(i)] = i + 5;
  }
  ASSERT_EQ(contentOf<TypeParam>(map), model);
  for (unsigned int i = 0; i < next; i += 3) {
    ASSERT_TRUE(map.erase(TypeParam::key(i)));
    model.erase(TypeParam::key(i));
  }
  fillUp();
  ASSERT_EQ(contentOf<TypeParam>(map), model);
  for (unsigned int i = 0; i < next; ++i) {
    ASSERT_EQ(map.erase(TypeParam::key(i)), model.count(TypeParam::key(i)) != 0);
  }
  EXPECT_TRUE(map.empty());
}

TEST(HashMapTest, TakesItemsPairsOfOddSizesAndOwnFunctors) {
  QRTVirtualMemoryMgr store(1U << 20U);
  struct Name {
    char text[13];
    bool operator==(const Name& other) const {
      return std::string_view(text) == std::string_view(other.text);
    }
  };
  struct Length {
    std::size_t operator()(const Name& name) const { return std::string_view(name.text).size(); }
  };
  QRTVirtualHashMap<Name, QRTVirtualPageItem, Length> items(store);
  for (unsigned int i = 0; i < 500; ++i) {
    Name name = {};
    std::snprintf(name.text, sizeof name.text, "n%u", i);
    std::fill(name.text + std::string_view(name.text).size() + 1, std::end(name.text), 'x');
    ASSERT_TRUE(items.insert(name, QRTVirtualPageItem(i + 1, i)));
  }
  QRTVirtualPageItem item;
  ASSERT_TRUE(items.find(Name{"n77"}, item)) << "Equal decides, not the bytes";
  EXPECT_EQ(item.getOffset(), 78U);
  EXPECT_EQ(item.getSize(), 77U);
  EXPECT_FALSE(items.contains(Name{"n777"}));

  QRTVirtualHashMap<double, char> signs(store);
  EXPECT_TRUE(signs.insert(0.0, '0'));
  EXPECT_TRUE(signs.contains(-0.0)) << "equal doubles with different bytes";

  int calls = 0;
  const auto hash = [&calls](int key) {
    ++calls;
    if (key == 13) {
      throw std::runtime_error("unlucky");
    }
    return static_cast<std::size_t>(key);
  };
  struct Called {
    const decltype(hash)* call;
    std::size_t operator()(int key) const { return (*call)(key); }
  };
  QRTVirtualHashMap<int, int, Called> counted(store, Called{&hash});
  EXPECT_TRUE(counted.insert(12, 1));
  EXPECT_THROW(counted.insert(13, 1), std::runtime_error);
  EXPECT_EQ(counted.size(), 1U);
  EXPECT_EQ(calls, 2);
}

TEST(HashMapTest, EachMapHasASeedOfItsOwn) {
  QRTVirtualMemoryMgr store(1U << 20U);
  const auto orderOf = [](const auto& map) {
    std::vector<std::string> order;
    map.forEach(
        [&](const auto& key, int) { order.push_back((std::ostringstream() << key).str()); });
    return order;
  };
  QRTVirtualHashMap<int, int> numbers[] = {QRTVirtualHashMap<int, int>(store),
                                           QRTVirtualHashMap<int, int>(store)};
  QRTVirtualStringMap<int> texts[] = {QRTVirtualStringMap<int>(store),
                                      QRTVirtualStringMap<int>(store)};
  for (int i = 0; i < 300; ++i) {
    for (int map = 0; map < 2; ++map) {
      numbers[map].insert(i, i);
      texts[map].insert(std::to_string(i), i);
    }
  }
  EXPECT_NE(orderOf(numbers[0]), orderOf(numbers[1]));
  EXPECT_NE(orderOf(texts[0]), orderOf(texts[1]));
}

TEST(StringMapTest, TellsKeysApartThatDifferInOneByteOrTheirLength) {
  QRTVirtualMemoryMgr store(1U << 20U);
  const unsigned long long before = objectsOf(store);
  {
    QRTVirtualStringMap<std::uint32_t> map(store);
    std::vector<std::string> keys = {"", std::string(1, '\0'), std::string(2, '\0')};
    for (const std::size_t length : {1U, 254U, 255U, 256U, 257U, 64U << 10U, 5U << 20U}) {
      for (const char last : {'a', 'b', '\xff'}) {
        keys.push_back(std::string(length - 1, 'k') + last);
      }
    }
    for (std::uint32_t i = 0; i < keys.size(); ++i) {
      EXPECT_FALSE(map.contains(keys[i])) << keys[i].size();
      EXPECT_TRUE(map.insert(keys[i], i));
      EXPECT_FALSE(map.insert(keys[i], 1000));
    }
    EXPECT_FALSE(map.insert(std::string_view(), 1)) << "no bytes at null are no bytes";
    for (std::uint32_t i = 0; i < keys.size(); ++i) {
      std::uint32_t value = 0;
      ASSERT_TRUE(map.find(keys[i], value)) << keys[i].size();
      EXPECT_EQ(value, i);
      map.insertOrAssign(keys[i], value + 1);
    }
    std::size_t bytes = 0;
    map.forEach([&](std::string_view key, std::uint32_t value) {
      ASSERT_EQ(key, keys[value - 1]);
      bytes += key.size();
    });
    EXPECT_GT(bytes, 3 * (5U << 20U));
    for (std::size_t i = 0; i < keys.size(); i += 2) {
      EXPECT_TRUE(map.erase(keys[i]));
      EXPECT_FALSE(map.erase(keys[i]));
    }
    EXPECT_EQ(map.size(), keys.size() / 2);

    if (sizeof(std::size_t) > 4) {
      const auto tooLong = static_cast<std::size_t>(std::uint64_t{1} << 32U);
      const auto error = expectRaised<QRTAssertError>(
          [&] { map.insert(std::string_view(keys[3].data(), tooLong), 1); });
      EXPECT_THAT(textOf(error), HasSubstr("at most 4 GiB - 1 bytes"));
    }
  }
  EXPECT_EQ(objectsOf(store), before) << "long keys go with their pairs";
}

}  // namespace
