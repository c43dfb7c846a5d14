#ifndef TESTS_NODES_TREEFIXTURE_H
#define TESTS_NODES_TREEFIXTURE_H

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "QRTVirtualNodeClass.h"
#include "QRTVirtualTree.h"

/// A node that shows its letter in a dump.
struct Letter : QRTVirtualNodeClass<Letter> {
  static constexpr const char* kClassName = "Letter";
  void dump(std::ostream& os) override { os << ' ' << letter; }
  char letter = '?';
};

/// A tree of letters. Nodes made by a test stay pinned until its end, when nothing else may be.
class TreeFixture : public testing::Test {
 protected:
  TreeFixture() { tree.registerNodeCreator(Letter::getClassId(), Letter::create); }

  void TearDown() override {
    for (Letter* node : m_made) {
      node->dismiss();
    }
    EXPECT_EQ(pinned(tree), "") << "every pin has been given back";
  }

  /// @return a new node, pinned until the test ends
  Letter* make(char letter) {
    auto* const node = static_cast<Letter*>(tree.createNode(Letter::getClassId()));
    node->letter = letter;
    m_made.push_back(node);
    return node;
  }

  /// @return new nodes, appended to a parent in order
  std::vector<Letter*> makeChildren(QRTVirtualTreeNode& parent, const std::string& letters) {
    std::vector<Letter*> nodes;
    for (const char letter : letters) {
      nodes.push_back(make(letter));
      parent.appendChild(nodes.back());
    }
    return nodes;
  }

  /// @return what the store says of pinned objects; empty when there are none
  static std::string pinned(QRTVirtualTree& of) {
    std::ostringstream dump;
    of.getMemoryMgr()->dumpMapper(dump, 0);
    const std::string text = dump.str();
    const auto at = text.find("Total Objects");
    return at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at);
  }

  /// @return how often an object is pinned
  static unsigned int pinsOf(QRTVirtualTree& in, unsigned long long offset) {
    std::ostringstream list;
    in.getMemoryMgr()->dumpReferences(list);
    const std::string text = list.str();
    const auto line = text.find("offset " + std::to_string(offset) + ",");
    if (line == std::string::npos) {
      return 0;
    }
    return static_cast<unsigned int>(std::stoul(text.substr(text.find("pins ", line) + 5)));
  }

  /// @return the letters of a node's children, once every link between them has been checked
  static std::string children(QRTVirtualTreeNode& parent) {
    const bool isRoot = parent.getPageOffset() == QRTVirtualPageItem::getInvalidOffset();
    std::string letters;
    unsigned long long previous = 0;
    auto* node = static_cast<Letter*>(parent.getFirstChild());
    while (node != nullptr) {
      letters += node->letter;
      EXPECT_EQ(node->getPreviousSiblingPageItem().getOffset(), previous) << letters;
      EXPECT_EQ(node->getParentPageItem().getOffset(), parent.getPageOffset()) << letters;
      if (isRoot) {
        EXPECT_EQ(node->getParent(1), &parent) << letters;
      }
      previous = node->getPageOffset();
      node = static_cast<Letter*>(node->getNextSibling(1));
    }
    EXPECT_EQ(parent.getLastChildPageItem().getOffset(), previous);
    EXPECT_EQ(parent.getChildCount(), letters.size());
    EXPECT_EQ(parent.hasChildren(), letters.empty() ? 0 : 1);
    return letters;
  }

  QRTVirtualTree tree{1U << 20U, 0, 0};
  QRTVirtualTreeNode& root = *tree.getRootNode();

 private:
  std::vector<Letter*> m_made;
};

#endif  // TESTS_NODES_TREEFIXTURE_H
