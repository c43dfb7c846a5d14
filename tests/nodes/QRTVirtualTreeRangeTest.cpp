#include "QRTVirtualTreeRange.h"

#include <algorithm>
#include <functional>
#include <ranges>
#include <sstream>
#include <stdexcept>
#include <utility>

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

// An iterator owns its pin, so it is moved and never copied: an input range and no more.
template <class Range>
constexpr bool kIsInputRange =
    std::ranges::input_range<Range> && !std::ranges::forward_range<Range> &&
    std::input_iterator<typename Range::iterator> && !std::copyable<typename Range::iterator> &&
    std::sentinel_for<QRTVirtualTreeRangeEnd, typename Range::iterator> &&
    std::ranges::viewable_range<Range> && std::ranges::viewable_range<const Range&>;
static_assert(kIsInputRange<QRTVirtualSubtree<>> && kIsInputRange<QRTVirtualSubtree<Letter>>);
static_assert(kIsInputRange<QRTVirtualChildren<>> && kIsInputRange<QRTVirtualChildren<Letter>>);

TEST_F(QRTVirtualTreeRangeTest, ServeAlgorithmsOfTheStandardLibrary) {
  const auto isOdd = [](const Letter& node) { return node.letter % 2 == 1; };
  const QRTVirtualChildren<Letter> children(root);
  EXPECT_EQ(std::ranges::count_if(children, isOdd), 2);
  QRTVirtualPin<Letter> a(root.getFirstChild());
  const QRTVirtualSubtree<Letter> below(*a);
  EXPECT_EQ(std::ranges::find(below, 'c', &Letter::letter)->letter, 'c');
}

// Clang before 16 takes no view of g++'s standard library, not even of a vector.
#if !defined(__clang__) || __clang_major__ >= 16
TEST_F(QRTVirtualTreeRangeTest, ServeViewsOfTheStandardLibrary) {
  QRTVirtualPin<Letter> a(root.getFirstChild());
  makeChildren(*b, "xyz");
  const auto isOdd = [](const Letter& node) { return node.letter % 2 == 1; };
  std::string all;
  for (const char letter : QRTVirtualSubtree<Letter>(*a) | std::views::filter(isOdd) |
                               std::views::transform(&Letter::letter) | std::views::take(3)) {
    all += letter;
  }
  EXPECT_EQ(all, "ayc");
  all.clear();
  const QRTVirtualChildren<Letter> children(root);
  for (Letter& node : children | std::views::drop(1)) {
    all += node.letter++;
  }
  EXPECT_EQ(all, "dg");
}
#endif

TEST_F(QRTVirtualTreeRangeTest, MovedIteratorsTakeTheirPinAlong) {
  auto at = QRTVirtualSubtree<Letter>(root).begin();
  ++at;
  const unsigned long long a = at->getPageOffset();
  EXPECT_EQ(pinsOf(tree, a), 2U) << "the test's and the walk's";
  auto taken = std::move(at);
  EXPECT_TRUE(at.atEnd());  // NOLINT(bugprone-use-after-move): that is asked
  ++at;
  EXPECT_EQ(pinsOf(tree, a), 2U);
  EXPECT_EQ(taken->letter, 'a');
  auto other = QRTVirtualSubtree<Letter>(root).begin();
  other++;
  EXPECT_EQ(pinsOf(tree, a), 3U);
  taken++;
  other = std::move(taken);
  EXPECT_TRUE(taken.atEnd());  // NOLINT(bugprone-use-after-move): that is asked
  EXPECT_EQ(pinsOf(tree, a), 1U) << "what was assigned to has left its node";
  std::string all;
  for (; !other.atEnd(); ++other) {
    all += other->letter;
  }
  EXPECT_EQ(all, "bcdefg");

  auto child = QRTVirtualChildren<Letter>(root).begin();
  auto next = std::move(child);
  EXPECT_EQ(pinsOf(tree, a), 2U);
  next++;
  EXPECT_EQ(next->letter, 'd');
  EXPECT_EQ(pinsOf(tree, a), 1U);
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

// Mistakes that no edit notices tie rings: of siblings, and downwards. What goes through the tree
// comes around a few times and then says so.
TEST_F(QRTVirtualTreeRangeTest, RingsOfLinksEndLoopsAndDumps) {
  QRTVirtualTreeNode& first = *root.getFirstChild();
  first.dismiss();
  const auto expectRing = [&](const std::function<void(std::size_t&)>& go) {
    std::size_t visited = 0;
    const auto error = expectRaised<QRTAssertError>([&] { go(visited); });
    EXPECT_NE(textOf(error).find("lead around in a ring"), std::string::npos) << textOf(error);
    EXPECT_GE(visited, 4U);
    EXPECT_LE(visited, 200U);
  };
  const auto expectRings = [&] {
    expectRing([&](std::size_t& visited) {
      for ([[maybe_unused]] QRTVirtualTreeNode& node : QRTVirtualSubtree<>(root)) {
        ++visited;
      }
    });
    expectRing([&](std::size_t& visited) {
      std::ostringstream os;
      try {
        tree.dumpTree(nullptr, os);
      } catch (...) {
        const std::string text = os.str();
        visited = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
        throw;
      }
    });
  };
  QRTVirtualTreeNode* const second = first.getNextSibling(0);
  QRTVirtualTreeNode* const third = second->getNextSibling(0);
  QRTVirtualTreeNode& fourth = *make('h');
  root.appendChild(&fourth);
  second->insertBefore(&fourth);  // a, h, d, g, h, d, g, h ...
  expectRings();
  expectRing([&](std::size_t& visited) {
    for ([[maybe_unused]] QRTVirtualTreeNode& node : QRTVirtualChildren<>(root)) {
      ++visited;
    }
  });
  second->dismiss();
  third->dismiss();

  root.removeChildren(nullptr, nullptr);
  std::vector<QRTVirtualTreeNode*> path;
  for (const char letter : {'1', '2', '3', '4', '5'}) {
    path.push_back(make(letter));
    (path.size() == 1 ? root : *path[path.size() - 2]).appendChild(path.back());
  }
  path.back()->appendChild(path[1]);
  expectRings();
}

// A body that moves what it is at to the end comes to it again, which is no ring.
TEST_F(QRTVirtualTreeRangeTest, WhatABodyMovesOnIsVisitedAgain) {
  root.removeChildren(nullptr, nullptr);
  const std::string letters = "abcdefghijklmnopqrstuvwxyz";
  makeChildren(root, letters);
  for (const bool alsoBelow : {false, true}) {
    std::string visited;
    const auto visit = [&](Letter& node) {
      visited += node.letter;
      if (visited.size() <= 2 * letters.size()) {
        root.removeChild(&node);
        root.appendChild(&node);
      }
    };
    if (alsoBelow) {
      auto at = QRTVirtualSubtree<Letter>(root).begin();
      while (!(++at).atEnd()) {
        visit(*at);
      }
    } else {
      for (Letter& node : QRTVirtualChildren<Letter>(root)) {
        visit(node);
      }
    }
    EXPECT_EQ(visited, letters + letters + letters);
  }
}

}  // namespace
