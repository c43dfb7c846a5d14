#include "QRTVirtualTreeRange.h"

#include <stdexcept>

#include "TreeFixture.h"
#include "support/ErrorMatchers.h"

// The fixture checks after each test that no pin is left.

namespace {

class QRTVirtualTreeRangeTest : public TreeFixture {
 protected:
  void SetUp() override {
    const auto top = makeChildren(root, "adg");
    b = makeChildren(*top[0], "bc")[0];
    makeChildren(*makeChildren(*top[1], "e")[0], "f");
  }

  template <class Range>
  static std::string letters(const Range& range) {
    std::string all;
    for (Letter& node : range) {
      all += node.letter;
    }
    return all;
  }

  Letter* b = nullptr;
};

TEST_F(QRTVirtualTreeRangeTest, VisitsChildrenAndSubtreesInOrder) {
  EXPECT_EQ(letters(QRTVirtualChildren<Letter>(root)), "adg");
  EXPECT_EQ(letters(QRTVirtualChildren<Letter>(*b)), "");
  std::string all;
  std::string depths;
  for (QRTVirtualTreeWalk walk(root); !walk.atEnd(); walk.advance()) {
    depths += std::to_string(walk.depth());
    all += walk.depth() == 0 ? '/' : static_cast<Letter*>(walk.node())->letter;
  }
  EXPECT_EQ(all, "/abcdefg");
  EXPECT_EQ(depths, "01221231");
  QRTVirtualPin<Letter> a(root.getFirstChild());
  EXPECT_EQ(letters(QRTVirtualSubtree<Letter>(*a)), "abc") << "not what stands beside it";
}

TEST_F(QRTVirtualTreeRangeTest, LeavesByBreakAndThrowGiveThePinBack) {
  for (Letter& node : QRTVirtualChildren<Letter>(root)) {
    if (node.letter == 'd') {
      break;
    }
  }
  const auto raise = [this] {
    for (QRTVirtualTreeNode& node : QRTVirtualSubtree<>(root)) {
      if (&node != &root) {
        throw std::runtime_error("stop");
      }
    }
  };
  EXPECT_THROW(raise(), std::runtime_error);
}

TEST_F(QRTVirtualTreeRangeTest, BodiesMayRemoveAndFreeWhatTheyAreAt) {
  QRTVirtualPageItem freed;
  for (Letter& node : QRTVirtualChildren<Letter>(root)) {
    root.removeChild(&node);
  }
  EXPECT_EQ(children(root), "");
  for (int i = 0; i < 3; ++i) {
    QRTVirtualPin<Letter> node(tree.createNode(Letter::getClassId()));
    root.appendChild(node.get());
  }
  for (Letter& node : QRTVirtualChildren<Letter>(root)) {
    root.removeChild(&node);
    freed = node.getVirtualPageItem();
    tree.free(freed);
  }
  EXPECT_EQ(children(root), "");
}

TEST_F(QRTVirtualTreeRangeTest, SkippedChildrenAreNotVisited) {
  std::string all;
  for (auto at = QRTVirtualSubtree<Letter>(root).begin(); !at.atEnd(); ++at) {
    if (at.depth() != 0) {
      all += at->letter;
    }
    if (at.depth() == 1) {
      at.skipChildren();
    }
  }
  EXPECT_EQ(all, "adg");
}

}  // namespace
