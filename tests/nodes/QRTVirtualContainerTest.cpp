#include "QRTVirtualContainer.h"

#include <gmock/gmock.h>

#include <sstream>
#include <stdexcept>

#include "QRTVirtualPersistNode.h"
#include "QRTVirtualTree.h"
#include "support/ErrorMatchers.h"
#include "support/RecordingEngine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class QRTVirtualContainerTest : public testing::Test {
 protected:
  EngineRecord& engine = EngineRecord::reset();
};

QRTVirtualPersistNode* createNothing(QRTVirtualContainer*) {
  return nullptr;
}

TEST_F(QRTVirtualContainerTest, OwnedManagersGoWithTheirContainerAndBorrowedOnesStay) {
  {
    QRTVirtualContainer first(1U << 20U, 7, 8);
    QRTVirtualContainer second(QRTVirtualMemoryMgr::eMapperDefault, 2U << 20U, 7, 8);
    EXPECT_NE(first.getMemoryMgr(), second.getMemoryMgr());
  }
  EXPECT_THAT(engine.take(), ElementsAre("VirtualMemoryPool(1048576)", "VirtualMemoryPool(2097152)",
                                         "~VirtualMemoryPool()", "~VirtualMemoryPool()"));

  QRTVirtualMemoryMgr manager(1U << 20U, 0, 0);
  engine.take();
  {
    QRTVirtualContainer borrower(&manager);
    EXPECT_EQ(borrower.getMemoryMgr(), &manager);
  }
  EXPECT_THAT(engine.take(), IsEmpty());
}

TEST_F(QRTVirtualContainerTest, ASizeAloneMakesAStoreAndAPlainZeroIsANullManager) {
  {
    QRTVirtualMemoryMgr manager(3U << 20U);
    QRTVirtualContainer container(2U << 20U);
    QRTVirtualTree tree(1U << 20U);
    EXPECT_THAT(engine.take(),
                ElementsAre("VirtualMemoryPool(3145728)", "VirtualMemoryPool(2097152)",
                            "VirtualMemoryPool(1048576)"));
  }
  engine.take();
  {
    QRTVirtualContainer container(8ULL << 30);
    QRTVirtualTree tree(8ULL << 30, 0, 0);
    QRTVirtualTree mapped(QRTVirtualMemoryMgr::eMapperDefault, 8ULL << 30, 0, 0);
    ASSERT_NE(tree.getRootNode(), nullptr);
    const std::string made = "VirtualMemoryPool(4294967295)";
    const std::string set = "SetMemorySize(8589934592)";
    EXPECT_THAT(engine.take(), ElementsAre(made, set, made, set, made, set));
  }
  EXPECT_EQ(engine.take().size(), 3U) << "owned, all of them";
  QRTVirtualContainer none(0);  // NOLINT(modernize-use-nullptr): hosts write it
  EXPECT_EQ(none.getMemoryMgr(), nullptr);
  EXPECT_THAT(engine.take(), IsEmpty());
}

TEST_F(QRTVirtualContainerTest, ForwardsToItsManager) {
  QRTVirtualContainer container(1U << 20U, 0, 0);
  engine.take();
  QRTVirtualPageItem item;
  void* const address = container.alloc(40, item);
  EXPECT_EQ(container.getAddress(item, 1), address);
  EXPECT_EQ(container.getNode(item), address);
  EXPECT_EQ(container.getNode(item.getOffset()), address);
  container.dismiss(item);
  container.dismiss(item.getOffset());
  EXPECT_EQ(engine.objects.at(1).pins, 2U);
  engine.take();

  container.dirty(item);
  container.unMap(item.getOffset());
  EXPECT_EQ(container.getNode(0), nullptr);
  QRTVirtualPageItem empty;
  EXPECT_EQ(container.getNode(empty), nullptr);
  EXPECT_EQ(container.getNode(QRTVirtualPageItem::getInvalidOffset()), nullptr);
  EXPECT_THAT(engine.take(), IsEmpty()) << "none of these reaches the engine";

  container.free(item);
  EXPECT_TRUE(engine.objects.empty());
}

TEST_F(QRTVirtualContainerTest, RegistryKeepsTheFirstCreator) {
  QRTVirtualContainer container(1U << 20U, 0, 0);
  EXPECT_EQ(container.createNode(5), nullptr) << "never registered";
  container.registerNodeCreator(5, nullptr);
  container.registerNodeCreator(5, QRTVirtualPersistNode::create);
  EXPECT_EQ(container.createNode(5), nullptr) << "null was first";

  container.registerNodeCreator(6, QRTVirtualPersistNode::create);
  container.registerNodeCreator(6, createNothing);
  QRTVirtualPersistNode* const node = container.createNode(6);
  ASSERT_NE(node, nullptr);
  EXPECT_EQ(node->getContainer(), &container);
  EXPECT_EQ(engine.objects.at(node->getPageOffset()).pins, 1U);

  container.registerNodeCreator(7, createNothing);
  const auto error = expectRaised<QRTOutOfMemoryError>([&] { container.createNode(7); });
  EXPECT_EQ(error.getText(), nullptr);
  EXPECT_THAT(traceOf(error),
              ElementsAre(TraceEntry{"QRTVirtualContainer.cpp", "QRTVirtualContainer::createNode",
                                     "QRT_THROW"}));
}

TEST_F(QRTVirtualContainerTest, WithoutAManagerOperationsAssert) {
  QRTVirtualTree tree(nullptr);
  QRTVirtualPageItem item(9, 9);
  std::ostringstream os;
  EXPECT_EQ(tree.getNode(0), nullptr);
  tree.dumpTree(nullptr, os);
  EXPECT_THAT(os.str(), testing::HasSubstr("Node: Class: QRTVirtualTreeNode"));
  const std::function<void()> calls[] = {
      [&] { tree.alloc(1, item); }, [&] { tree.free(item); },          [&] { tree.dismiss(item); },
      [&] { tree.dismiss(9); },     [&] { tree.getAddress(item, 1); }, [&] { tree.getNode(9); },
      [&] { tree.dumpMapper(os); },
  };
  for (const auto& call : calls) {
    const auto error = expectRaised<QRTAssertError>(call);
    EXPECT_EQ(textOf(error), "QRT_ASSERT(m_memMgr);");
    EXPECT_THAT(traceOf(error),
                ElementsAre(TraceEntry{"QRTVirtualContainer.cpp", "", "QRT_THROW"}));
  }
}

TEST_F(QRTVirtualContainerTest, FailingManagersLeaveNothingBehind) {
  engine.onConstruct = [] { throw std::runtime_error("no engine"); };
  const auto error = expectRaised<QRTStdExceptionError>([] { QRTVirtualTree(1U << 20U, 0, 0); });
  EXPECT_EQ(traceOf(error).back(), (TraceEntry{"QRTVirtualContainer.cpp", "", "QRT_RETHROW"}));
}

}  // namespace
