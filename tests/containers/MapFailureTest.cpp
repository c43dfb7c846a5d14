#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "containers/MapKinds.h"
#include "support/ErrorMatchers.h"
#include "support/RecordingEngine.h"
#include "support/TestSeed.h"

// The maps over an engine that counts what it is asked for, and refuses room and reads on demand.

namespace {

template <class Kind>
class MapFailureTest : public testing::Test {
 protected:
  EngineRecord& engine = EngineRecord::reset();
  QRTVirtualMemoryMgr store{1U << 20U};

  std::size_t pins() const {
    std::size_t pins = 0;
    for (const auto& [offset, object] : engine.objects) {
      pins += object.pins;
    }
    return pins;
  }

  // How many objects a call pins.
  template <class Call>
  std::size_t pinsOf(Call&& call) {
    engine.take();
    call();
    const std::vector<std::string> calls = engine.take();
    return static_cast<std::size_t>(
        std::count_if(calls.begin(), calls.end(),
                      [](const std::string& text) { return text.rfind("GetAddress", 0) == 0; }));
  }
};

using Kinds = testing::Types<NumberKind, TextKind, CrowdedKind, LargeKind>;
TYPED_TEST_SUITE(MapFailureTest, Kinds);

// In a random life every other operation meets a refusal somewhere on its way. What raised has done
// nothing, what did not raise has done all of it.
TYPED_TEST(MapFailureTest, AFailedOperationLeavesTheMapAsItWas) {
  std::mt19937 random(testSeed());
  const bool crowded = std::is_same<TypeParam, CrowdedKind>::value;
  const unsigned int keys = crowded ? 300 : 500;
  typename TypeParam::Map map(this->store);
  Model<TypeParam> model;
  unsigned int noRoom = 0;
  unsigned int unread = 0;
  for (unsigned int step = 0; step < 20000; ++step) {
    if (random() % 2 == 0) {
      this->engine.allocateUntilRefused = static_cast<int>(random() % 4) - 1;
      this->engine.pinsUntilRefused = static_cast<int>(random() % 12) - 1;
    }
    try {
      randomOperation<TypeParam>(map, model, random, keys, step % 4000 < 2000 ? 2 : 6);
    } catch (const QRTOutOfMemoryError&) {
      ++noRoom;
    } catch (const QRTAssertError& error) {
      EXPECT_THAT(textOf(error), testing::HasSubstr("read back"));
      ++unread;
    }
    this->engine.allocateUntilRefused = -1;
    this->engine.pinsUntilRefused = -1;
    this->engine.calls.clear();
    ASSERT_FALSE(this->HasFatalFailure()) << step;
    ASSERT_EQ(this->pins(), 0U) << step;
    if (step % 50 == 0) {
      ASSERT_EQ(contentOf<TypeParam>(map), model) << step;
    }
  }
  EXPECT_GT(noRoom, 5U);
  EXPECT_GT(unread, 500U);
  ASSERT_EQ(contentOf<TypeParam>(map), model);
  map.clear();
  // Of several blocks of a bucket, those behind one that cannot be read stay. The rest goes.
  const bool severalBlocks = crowded || std::is_same<TypeParam, LargeKind>::value;
  EXPECT_LE(this->engine.objects.size(), severalBlocks ? 500U : 0U);
}

TYPED_TEST(MapFailureTest, NothingIsRaisedWhereNothingMayBe) {
  typename TypeParam::Map map(this->store);
  for (unsigned int i = 0; i < 200; ++i) {
    map.insert(TypeParam::key(i), i);
  }
  this->engine.refuseGetAddress = true;
  this->engine.lastError = "the disk is on fire";
  const auto error = expectRaised<QRTAssertError>([&] { map.contains(TypeParam::key(1)); });
  EXPECT_THAT(textOf(error), testing::HasSubstr("read back"));
  expectRaised<QRTAssertError>([&] { map.erase(TypeParam::key(1)); });
  expectRaised<QRTAssertError>([&] { contentOf<TypeParam>(map); });
  map.clear();
  EXPECT_TRUE(map.empty());
  this->engine.refuseGetAddress = false;
  EXPECT_TRUE(map.insert(TypeParam::key(1), 1));
  this->engine.refuseGetAddress = true;
}

using FloodTest = MapFailureTest<NumberKind>;

TEST_F(FloodTest, KeysThatAgreeInTheirLowBitsDoNotMeetInOneBucket) {
  QRTVirtualHashMap<std::uint64_t, std::uint64_t> map(this->store);
  for (unsigned int i = 0; i < 20000; ++i) {
    ASSERT_TRUE(map.insert(NumberKind::key(i), i));
  }
  const std::size_t ordinary = this->pinsOf([&] { map.contains(1); });
  std::size_t most = 0;
  for (unsigned int i = 0; i < 20000; ++i) {
    most = std::max(most, this->pinsOf([&] { map.contains(NumberKind::key(i)); }));
  }
  EXPECT_LE(ordinary, 3U) << "two for the directory, one for the bucket";
  EXPECT_LE(most, ordinary + 1);
  EXPECT_LE(this->pinsOf([&] { map.insert(1, 1); }), 30U) << "one bucket split at the most";
}

using LongKeyTest = MapFailureTest<TextKind>;

TEST_F(LongKeyTest, ALongKeyIsReadWhenItsHashFitsAndOtherwiseNot) {
  QRTVirtualStringMap<int> map(this->store);
  const auto key = [](int i) { return std::string(300, 'k') + std::to_string(i); };
  for (int i = 0; i < 1000; ++i) {
    map.insert(key(i), i);
  }
  for (int i = 0; i < 1000; ++i) {
    ASSERT_LE(this->pinsOf([&] { EXPECT_FALSE(map.contains(key(1000 + i))); }), 2U);
    ASSERT_LE(this->pinsOf([&] { EXPECT_TRUE(map.contains(key(i))); }), 3U);
  }
}

TEST_F(LongKeyTest, ABucketThatCannotBeReadIsNamedWithItsReason) {
  QRTVirtualStringMap<int> map(this->store);
  map.insert("a", 1);
  map.insert(std::string(1000, 'l'), 1);
  const auto pins = static_cast<int>(this->pinsOf([&] { map.contains("a"); }));
  this->engine.lastError = "the disk is on fire";
  this->engine.pinsUntilRefused = pins - 1;
  auto error = expectRaised<QRTAssertError>([&] { map.contains("a"); });
  EXPECT_THAT(textOf(error), testing::AllOf(testing::StartsWith("bucket 0 of a map, at offset "),
                                            testing::EndsWith(", cannot be read back: the disk is "
                                                              "on fire")));
  this->engine.pinsUntilRefused = pins;
  error = expectRaised<QRTAssertError>([&] { map.contains(std::string(1000, 'l')); });
  EXPECT_THAT(textOf(error), testing::StartsWith("a key of a map, at offset "));
}

}  // namespace
