#include <gmock/gmock.h>

#include <array>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "QRTVirtualVector.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/RecordingEngine.h"

// A vector whose store has no room, or does not give back what is in it.

namespace {

using testing::HasSubstr;

// One element a block: a few hundred make a directory of two levels.
using Page = std::array<int, 1024>;

class QRTVirtualVectorFailureTest : public testing::Test {
 protected:
  // The offsets of all objects; none is pinned.
  std::vector<std::uint64_t> objects() const {
    std::vector<std::uint64_t> offsets;
    for (const auto& [offset, object] : engine.objects) {
      EXPECT_EQ(object.pins, 0U) << offset;
      offsets.push_back(offset);
    }
    return offsets;
  }

  template <class T>
  static std::vector<T> contentOf(const QRTVirtualVector<T>& vector) {
    std::vector<T> content(static_cast<std::size_t>(vector.size()));
    vector.read(0, content.data(), vector.size());
    return content;
  }

  EngineRecord& engine = EngineRecord::reset();
  QRTVirtualMemoryMgr manager{1U << 20U};
};

TEST_F(QRTVirtualVectorFailureTest, GrowthThatFindsNoRoomChangesNothing) {
  using Vector = QRTVirtualVector<Page>;
  const std::vector<Page> more(514, Page{7});
  const std::function<void(Vector&)> operations[] = {
      [&](Vector& vector) { vector.push_back(more[0]); },
      [&](Vector& vector) { vector.append(more.data(), more.size()); },
      [&](Vector& vector) { vector.resize(vector.size() + 514); },
  };
  // Where the first block comes, the directory, another level, another node.
  for (const unsigned long long size : {0ULL, 1ULL, 2ULL, 512ULL, 1024ULL}) {
    for (const auto& operation : operations) {
      Vector vector(manager);
      for (unsigned long long i = 0; i < size; ++i) {
        vector.push_back(Page{static_cast<int>(i)});
      }
      const auto before = contentOf(vector);
      const auto objectsBefore = objects();
      int allowed = 0;
      for (bool done = false; !done; allowed += allowed < 5 ? 1 : 101) {
        engine.calls.clear();
        engine.allocateUntilRefused = allowed;
        try {
          operation(vector);
          done = true;
        } catch (const QRTOutOfMemoryError&) {
          ASSERT_EQ(contentOf(vector), before) << size << ' ' << allowed;
          ASSERT_EQ(objects(), objectsBefore) << size << ' ' << allowed;
        }
        engine.allocateUntilRefused = -1;
      }
      EXPECT_GT(vector.size(), size);
      EXPECT_GT(allowed, 1) << "a block was needed";
      vector.clear();
      EXPECT_TRUE(objects().empty());
    }
  }
}

TEST_F(QRTVirtualVectorFailureTest, WhatCannotBeReadIsNamedAndNothingElseIsLost) {
  QRTVirtualVector<int> vector(manager);
  for (int i = 0; i < 3000; ++i) {
    vector.push_back(3000 - i);
  }
  const auto before = contentOf(vector);
  const auto objectsBefore = objects();
  ASSERT_EQ(objectsBefore, (std::vector<std::uint64_t>{1, 2, 3, 4})) << "block, block, node, block";
  const std::vector<int> other(3000, 5);
  std::vector<int> room(3000);
  using Operation = std::function<void()>;
  const std::pair<const char*, Operation> reaching1[] = {
      {"get", [&] { vector.get(1024); }},
      {"set", [&] { vector.set(1024, 5); }},
      {"read", [&] { vector.read(1000, room.data(), 100); }},
      {"write", [&] { vector.write(0, other.data(), 3000); }},
      {"pin", [&] { vector.pin(2047); }},
      {"pin for reading", [&] { std::as_const(vector).pin(2047); }},
      {"iterator",
       [&] {
         for (const int each : vector) {
           static_cast<void>(each);
         }
       }},
      {"sort", [&] { vector.sort(); }},
  };
  const std::pair<const char*, Operation> reaching2[] = {
      {"push_back", [&] { vector.push_back(5); }},
      {"append", [&] { vector.append(other.data(), 3000); }},
      {"resize", [&] { vector.resize(5000); }},
  };
  const auto expectFailure = [&](const std::string& what, const char* name, const auto& call) {
    const auto error = expectRaised<QRTAssertError>(call, name);
    EXPECT_EQ(textOf(error), "QRTVirtualBlocks: " + what + " cannot be read back: bad disk")
        << name;
    engine.unreadable.clear();
    ASSERT_EQ(contentOf(vector), before) << name;
    ASSERT_EQ(objects(), objectsBefore) << name;
    // Another block is looked up, so that the directory is needed again.
    vector.get(0);
  };
  engine.lastError = "bad disk";
  for (const auto& [name, call] : reaching1) {
    engine.unreadable = {2};
    expectFailure("block 1", name, call);
  }
  for (const auto& [name, call] : reaching2) {
    engine.unreadable = {4};
    expectFailure("block 2", name, call);
  }
  vector.get(0);
  engine.unreadable = {3};
  expectFailure("the directory of block 1", "get", [&] { vector.get(1024); });
  vector.resize(3072);
  vector.get(0);
  engine.unreadable = {3};
  EXPECT_THAT(textOf(expectRaised<QRTAssertError>([&] { vector.push_back(1); })),
              HasSubstr("the directory of block 3"));
  EXPECT_EQ(vector.size(), 3072U);

  // What is taken away needs no block, and without its directory it goes as far as it can.
  engine.unreadable = {1, 2, 4};
  vector.resize(2048);
  EXPECT_EQ(objects(), (std::vector<std::uint64_t>{1, 2, 3}));
  engine.unreadable = {1, 2, 3};
  vector.clear();
  EXPECT_TRUE(vector.empty());
  EXPECT_EQ(objects().size(), 2U) << "blocks that nobody can find any more";
  vector.push_back(17);
  EXPECT_EQ(vector.get(0), 17);
}

TEST_F(QRTVirtualVectorFailureTest, TheProcessKeepsNothingForElements) {
  QRTVirtualVector<int> vector(manager);
  const std::vector<int> many(100000, 3);
  const FailingNew noMemory(1, FailingNew::eFromThenOn);
  vector.append(many.data(), many.size());
  vector.push_back(2);
  vector.resize(200000);
  vector.sort();
  EXPECT_EQ(vector.get(99998), 0);
  EXPECT_EQ(vector.get(99999), 2);
  vector.clear();
  EXPECT_EQ(noMemory.count(), 0U);
  const FailingNew::Pause pause;
  EXPECT_TRUE(objects().empty());
}

TEST_F(QRTVirtualVectorFailureTest, WhatThereIsNotIsAnAssertion) {
  QRTVirtualVector<int> vector(manager);
  vector.resize(10);
  int value = 1;
  const unsigned long long most = ~0ULL;
  const std::pair<const char*, std::function<void()>> beyond[] = {
      {"get", [&] { vector.get(10); }},
      {"set", [&] { vector.set(10, 1); }},
      {"get far", [&] { vector.get(most); }},
      {"read", [&] { vector.read(5, &value, 6); }},
      {"read far", [&] { vector.read(11, &value, most - 5); }},
      {"write", [&] { vector.write(10, &value, 1); }},
      {"write far", [&] { vector.write(1, &value, most); }},
      {"pin", [&] { vector.pin(10); }},
      {"null", [&] { vector.read(0, nullptr, 1); }},
      {"nothing", [&] { vector.append(nullptr, 1); }},
  };
  for (const auto& [name, call] : beyond) {
    expectRaised<QRTAssertError>(call, name);
  }
  expectRaised<QRTOutOfMemoryError>([&] { vector.resize(most); });
  expectRaised<QRTOutOfMemoryError>([&] { vector.resize(1ULL << 60); });
  expectRaised<QRTOutOfMemoryError>([&] { vector.append(&value, most - 3); });
  vector.read(10, nullptr, 0);
  vector.append(nullptr, 0);
  EXPECT_EQ(vector.size(), 10U);
  vector.resize(0);
  expectRaised<QRTAssertError>([&] { vector.pop_back(); });
  QRTVirtualBlocks blocks(manager, 16);
  expectRaised<QRTAssertError>([&] { blocks.pin(0); });
  expectRaised<QRTAssertError>([&] { blocks.pinForReading(0); });
  expectRaised<QRTOutOfMemoryError>([&] { blocks.grow(QRTVirtualBlocks::kMaxCount + 1); });
  EXPECT_EQ(blocks.find(0, 0), nullptr);
  EXPECT_TRUE(objects().empty());
}

}  // namespace
