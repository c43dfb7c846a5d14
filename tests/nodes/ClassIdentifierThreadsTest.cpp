#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "QRTCore/QRTThreadGuard.h"
#include "QRTCore/QRTUtCrc32.h"
#include "QRTMemoryArena.h"
#include "QRTVirtualFile.h"
#include "QRTVirtualNodeClass.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeRange.h"
#include "QRTVirtualUTF8String.h"

// What several threads may do at once: ask for class identifiers, and work in a store each. Run it
// with the preset tsan, which sees accesses that only happen to turn out well.

namespace {

constexpr std::size_t kThreads = 4;

/// Runs the same call on several threads, which begin together, and waits for them.
template <class Call>
void together(const Call& call) {
  std::barrier begin(kThreads);
  std::vector<std::thread> threads;
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&begin, &call, thread] {
      begin.arrive_and_wait();
      call(thread);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

unsigned int checkValue(const std::string& name) {
  return QRTUtCrc32::crc32(0, reinterpret_cast<const unsigned char*>(name.data()),
                           static_cast<unsigned int>(name.size()));
}

/// Classes that keep their identifiers as a class written by hand does, one for each number.
template <std::size_t Number>
struct ByHand : QRTVirtualTreeNode {
  static unsigned int getClassId() { return computeClassId(id, lock, "ByHand"); }
  static inline unsigned int id = 0;
  static inline QRTThreadCriticalSection lock{0};
};

/// Classes that leave it to QRTVirtualNodeClass.
template <std::size_t Number>
struct Short : QRTVirtualNodeClass<Short<Number>> {
  static constexpr const char* kClassName = "Short";
  std::size_t number = 0;
};

using GetClassId = unsigned int (*)();

template <std::size_t... Number>
std::vector<std::pair<GetClassId, std::string>> manyClasses(std::index_sequence<Number...>) {
  return {{QRTVirtualPersistNode::getClassId, "QRTVirtualPersistNode"},
          {QRTVirtualTreeNode::getClassId, "QRTVirtualTreeNode"},
          {ByHand<Number>::getClassId, "ByHand"}...,
          {Short<Number>::getClassId, "Short"}...};
}

TEST(ClassIdentifierThreadsTest, FirstCallsAtOnceGetTheSameIdentifier) {
  for (const auto& [getClassId, name] : manyClasses(std::make_index_sequence<32>())) {
    std::array<unsigned int, kThreads> found{};
    together([&, call = getClassId](std::size_t thread) {
      found[thread] = call();
      found[thread] = found[thread] == call() ? found[thread] : 0;
    });
    for (const unsigned int id : found) {
      EXPECT_EQ(id, checkValue(name)) << name;
    }
  }
}

// A first call that finds the lock taken waits, and then takes what was stored meanwhile.
TEST(ClassIdentifierThreadsTest, AnIdentifierIsComputedByOneThread) {
  using Node = ByHand<1000>;
  constexpr unsigned int kStoredMeanwhile = 42;
  std::atomic<bool> done = false;
  unsigned int found = 0;
  std::thread waiting;
  {
    const QRTThreadGuard guard(Node::lock);
    waiting = std::thread([&] {
      found = Node::getClassId();
      done = true;
    });
    // One that does not wait is done long before this ends; one that waits is never seen to be.
    for (int i = 0; i < 50 && !done; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(done) << "the lock was not waited for";
    std::atomic_ref<unsigned int>(Node::id).store(kStoredMeanwhile);
  }
  waiting.join();
  EXPECT_EQ(found, kStoredMeanwhile);
}

/// Fills a small store until it pages, then reads everything back.
/// @return whether nodes, bytes and text came back as they were
bool workInAStore(std::size_t thread) {
  constexpr std::size_t kNodes = 20000;
  using Node = Short<2000>;
  QRTVirtualTree tree(256U << 10U);
  tree.registerNodeCreator(Node::getClassId(), Node::create);
  QRTVirtualUTF8String text;
  const std::string words = "text of " + std::to_string(thread);
  text.setString(words.c_str(), &tree);
  QRTVirtualFile file;
  file.open(tree.getMemoryMgr(), 0, 4096, false);
  QRTMemoryArena arena(32, 4U << 20U, 0);
  for (std::size_t i = 0; i < kNodes; ++i) {
    QRTVirtualPin<Node> node(tree.createNode(Node::getClassId()));
    node->number = i + thread;
    tree.getRootNode()->appendChild(node.get());
    file.write(&i, sizeof i);
    arena.free(arena.alloc(static_cast<unsigned>(i % 500 + 1)));
  }
  std::size_t number = 0;
  for (const Node& node : QRTVirtualChildren<Node>(*tree.getRootNode())) {
    number += node.number == number + thread ? 1 : 0;
  }
  file.seek(0, QRTFmFile::eSeekSet);
  std::size_t read = 0;
  for (std::size_t value = 0; file.read(&value, sizeof value) == sizeof value && value == read;) {
    ++read;
  }
  return number == kNodes && read == kNodes && text.isEqual(words.c_str(), &tree) != 0;
}

TEST(ClassIdentifierThreadsTest, ThreadsWorkInStoresOfTheirOwn) {
  std::array<bool, kThreads> whole{};
  together([&whole](std::size_t thread) { whole[thread] = workInAStore(thread); });
  EXPECT_THAT(whole, testing::Each(true));
}

}  // namespace
