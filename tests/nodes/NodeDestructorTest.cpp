#include "TreeFixture.h"
#include "support/ErrorMatchers.h"

// Classes that end themselves by their destructor alone, as an optimising compiler builds them.

namespace {

struct Leaf : QRTVirtualNodeClass<Leaf> {
  static constexpr const char* kClassName = "Leaf";
  void destroy() override { this->~Leaf(); }
  int number = 7;
};

struct Stone : QRTVirtualNodeClass<Stone, QRTVirtualPersistNode> {
  static constexpr const char* kClassName = "Stone";
  void destroy() override { this->~Stone(); }
};

class NodeDestructorTest : public TreeFixture {};

TEST_F(NodeDestructorTest, LeavesABareNodeWithoutAContainerThatTakesNoPinAway) {
  for (QRTVirtualPersistNode* const node : {Leaf::create(&tree), Stone::create(&tree)}) {
    SCOPED_TRACE(node->getClassName());
    const unsigned long long offset = node->getPageOffset();
    node->destroy();
    // Looked up again: what the compiler knows of the node ends with its destructor.
    QRTVirtualPersistNode* const bare = tree.getNode(offset);
    ASSERT_NE(bare, nullptr);
    EXPECT_EQ(bare->getContainer(), nullptr);
    EXPECT_EQ(bare->getPageOffset(), offset);
    EXPECT_STREQ(bare->getClassName(), "QRTVirtualPersistNode");
    const auto error = expectRaised<QRTAssertError>([&] { bare->dismiss(); });
    EXPECT_EQ(textOf(error), "QRT_ASSERT(m_container);");
    EXPECT_EQ(pinsOf(tree, offset), 2U);
    tree.dismiss(offset);
    tree.dismiss(offset);
  }
}

}  // namespace
