#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "QRTCore/QRTUtCrc32.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "support/ErrorMatchers.h"
#include "support/RecordingEngine.h"

// What nodes do when there is nothing to work with, no room, or no way to read a neighbour back.

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class NodeFailureTest : public testing::Test {
 protected:
  QRTVirtualTreeNode* make(QRTVirtualContainer& container) {
    return static_cast<QRTVirtualTreeNode*>(QRTVirtualTreeNode::create(&container));
  }

  // Every byte of every object, and how often it is pinned.
  std::map<std::uint64_t, std::pair<std::vector<unsigned char>, unsigned int>> everything() const {
    std::map<std::uint64_t, std::pair<std::vector<unsigned char>, unsigned int>> all;
    for (const auto& [offset, object] : engine.objects) {
      all[offset] = {object.bytes, object.pins};
    }
    return all;
  }

  EngineRecord& engine = EngineRecord::reset();
};

TEST_F(NodeFailureTest, CreationNeedsAContainerAManagerAndRoom) {
  using Create = QRTVirtualPersistNode* (*)(QRTVirtualContainer*);
  const std::pair<Create, const char*> classes[] = {
      {QRTVirtualPersistNode::create, "QRTVirtualPersistNode.cpp"},
      {QRTVirtualTreeNode::create, "QRTVirtualTreeNode.cpp"}};
  QRTVirtualContainer bare(nullptr);
  QRTVirtualContainer container(1U << 20U, 0, 0);
  for (const auto& [create, file] : classes) {
    const Create function = create;
    auto error = expectRaised<QRTAssertError>([&] { function(nullptr); });
    EXPECT_EQ(textOf(error), "QRT_ASSERT(container != NULL);");
    EXPECT_THAT(traceOf(error), ElementsAre(TraceEntry{file, "", "QRT_THROW"}));
    error = expectRaised<QRTAssertError>([&] { function(&bare); });
    EXPECT_EQ(textOf(error), "QRT_ASSERT(memMgr);");
    engine.refuseAllocate = true;
    expectRaised<QRTOutOfMemoryError>([&] { function(&container); });
    engine.refuseAllocate = false;
  }
}

TEST_F(NodeFailureTest, AnUnreadableNeighbourLeavesTheTreeAsItWas) {
  QRTVirtualTree tree(1U << 20U, 0, 0);
  QRTVirtualTreeNode* const parent = make(tree);
  QRTVirtualTreeNode* const a = make(tree);
  QRTVirtualTreeNode* const b = make(tree);
  QRTVirtualTreeNode* const c = make(tree);
  QRTVirtualTreeNode* const d = make(tree);
  QRTVirtualTreeNode* const fresh = make(tree);
  for (QRTVirtualTreeNode* const child : {a, b, c, d}) {
    parent->appendChild(child);
  }
  QRTVirtualTreeNode* const chain = make(tree);
  QRTVirtualTreeNode* const behind = make(tree);
  chain->insertAfter(behind);

  const auto before = everything();
  engine.refuseGetAddress = true;
  const std::function<void()> edits[] = {
      [&] { parent->appendChild(fresh); },     [&] { parent->appendChildren(chain); },
      [&] { b->insertAfter(fresh); },          [&] { b->insertBefore(fresh); },
      [&] { d->insertAfter(fresh); },          [&] { a->insertBefore(fresh); },
      [&] { parent->replaceChild(b, fresh); }, [&] { parent->removeChild(a); },
      [&] { parent->removeChild(b); },         [&] { parent->removeChild(d); },
      [&] { parent->removeChildren(b, d); },   [&] { parent->removeChildren(nullptr, c); },
  };
  for (const auto& edit : edits) {
    const auto error = expectRaised<QRTAssertError>(edit);
    EXPECT_THAT(textOf(error), HasSubstr("cannot be read back"));
    EXPECT_EQ(everything(), before);
  }
  EXPECT_EQ(parent->getFirstChild(), nullptr);
  EXPECT_EQ(b->getNextSibling(0), nullptr);
}

TEST_F(NodeFailureTest, DismissNeedsAContainerAndAManager) {
  QRTVirtualTree tree(1U << 20U, 0, 0);
  QRTVirtualTreeNode* const node = make(tree);
  const unsigned long long offset = node->getPageOffset();
  node->destroy();
  auto error =
      expectRaised<QRTAssertError>([&] { static_cast<QRTVirtualPersistNode*>(node)->dismiss(); });
  EXPECT_EQ(textOf(error), "QRT_ASSERT(m_container);");
  EXPECT_EQ(engine.objects.at(offset).pins, 1U) << "destroy leaves the pin and the block";

  QRTVirtualContainer bare(nullptr);
  QRTVirtualPersistNode lonely;
  lonely.setContainer(&bare);
  error = expectRaised<QRTAssertError>([&] { lonely.dismiss(); });
  EXPECT_EQ(textOf(error), "QRT_ASSERT(memMgr);");

  tree.getRootNode()->dismiss();
}

TEST_F(NodeFailureTest, SteppingAlongAChainNeedsAContainerAndAManager) {
  QRTVirtualTree tree(1U << 20U, 0, 0);
  QRTVirtualContainer bare(nullptr);
  QRTVirtualTreeNode* const middle = make(tree);
  QRTVirtualTreeNode* const ends[] = {make(tree), make(tree)};
  middle->insertAfter(ends[0]);
  middle->insertBefore(ends[1]);
  QRTVirtualTreeNode alone;
  const auto before = everything();
  for (QRTVirtualTreeNode* const node : {middle, &alone}) {
    for (QRTVirtualContainer* const container :
         {static_cast<QRTVirtualContainer*>(nullptr), &bare}) {
      node->setContainer(container);
      const std::function<void()> steps[] = {[&] { node->getNextSibling(1); },
                                             [&] { node->getPreviousSibling(1); }};
      for (const auto& step : steps) {
        const auto error = expectRaised<QRTAssertError>(step);
        EXPECT_EQ(textOf(error),
                  container == nullptr ? "QRT_ASSERT(m_container);" : "QRT_ASSERT(memMgr);");
        EXPECT_THAT(traceOf(error),
                    ElementsAre(TraceEntry{"QRTVirtualPersistNode.cpp", "", "QRT_THROW"}));
      }
    }
  }
  middle->setContainer(&tree);
  EXPECT_EQ(everything(), before);
  EXPECT_EQ(alone.getNextSibling(0), nullptr);
}

// Its dump makes the store unreadable.
struct Cutting : QRTVirtualTreeNode {
  void dump(std::ostream&) override { EngineRecord::get().refuseGetAddress = true; }
};

TEST_F(NodeFailureTest, DumpsRaiseWhenANodeCannotBeReadBackAndKeepNoPin) {
  QRTVirtualTree tree(1U << 20U, 0, 0);
  QRTVirtualTreeNode* const outer = make(tree);
  QRTVirtualPageItem item;
  auto* const cutting = new (tree.alloc(sizeof(Cutting), item)) Cutting;
  cutting->setPageOffset(item.getOffset());
  cutting->setContainer(&tree);
  tree.getRootNode()->appendChild(outer);
  outer->appendChild(cutting);
  const auto expectRefused = [&](QRTVirtualTreeNode* start) {
    std::ostringstream os;
    const auto before = everything();
    const auto error = expectRaised<QRTAssertError>([&] { tree.dumpTree(start, os); });
    EXPECT_THAT(textOf(error), HasSubstr("a node cannot be read back"));
    EXPECT_THAT(traceOf(error), ElementsAre(TraceEntry{"QRTVirtualTree.cpp", "", "QRT_THROW"}));
    EXPECT_EQ(everything(), before);
    EXPECT_THAT(os.str(), HasSubstr("**Dump of Virtual Tree**"));
    engine.refuseGetAddress = false;
  };
  outer->appendChild(make(tree));
  expectRefused(nullptr);
  expectRefused(outer);
  cutting->appendChild(make(tree));
  expectRefused(outer);
  engine.refuseGetAddress = true;
  expectRefused(outer);
  engine.refuseGetAddress = true;
  expectRefused(nullptr);
}

TEST_F(NodeFailureTest, ClassIdentifiersAreTheCheckValueOfTheName) {
  const auto checkValue = [](const std::string& name) {
    return QRTUtCrc32::crc32(0, reinterpret_cast<const unsigned char*>(name.data()),
                             static_cast<unsigned int>(name.size()));
  };
  EXPECT_EQ(checkValue("123456789"), 0xCBF43926U) << "the published check value";
  EXPECT_EQ(QRTUtCrc32::crc32(7, nullptr, 3), 7U);

  unsigned int fromThread = 0;
  std::thread thread([&] { fromThread = QRTVirtualTreeNode::getClassId(); });
  EXPECT_EQ(QRTVirtualTreeNode::getClassId(), checkValue("QRTVirtualTreeNode"));
  thread.join();
  EXPECT_EQ(fromThread, QRTVirtualTreeNode::getClassId());
  EXPECT_EQ(QRTVirtualPersistNode::getClassId(), checkValue("QRTVirtualPersistNode"));
  QRTVirtualTreeNode node;
  EXPECT_EQ(node.getClassIdentifier(), QRTVirtualTreeNode::getClassId());
}

}  // namespace
