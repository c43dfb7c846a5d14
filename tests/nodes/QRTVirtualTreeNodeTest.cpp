#include "QRTVirtualTreeNode.h"

#include "TreeFixture.h"

namespace {

class QRTVirtualTreeNodeTest : public TreeFixture {};

TEST_F(QRTVirtualTreeNodeTest, NewNodesAreLinkedToNothing) {
  Letter* const node = make('a');
  EXPECT_EQ(node->getFirstChild(), nullptr);
  EXPECT_EQ(node->getLastChild(), nullptr);
  EXPECT_EQ(node->getNextSibling(0), nullptr);
  EXPECT_EQ(node->getPreviousSibling(0), nullptr);
  EXPECT_EQ(node->getParent(0), nullptr);
  EXPECT_EQ(node->getParent(1), nullptr);
  EXPECT_EQ(node->getParentPageItem().getOffset(), 0U);
  EXPECT_EQ(children(*node), "");
  EXPECT_EQ(node->getContainer(), &tree);
  EXPECT_EQ(node->getVirtualPageItem().getSize(), sizeof(Letter));
  EXPECT_EQ(node->getVirtualPageItem().getOffset(), node->getPageOffset());
}

TEST_F(QRTVirtualTreeNodeTest, WalksTheChainBothWaysWithOnePin) {
  makeChildren(root, "abc");
  std::string forth;
  for (auto* at = static_cast<Letter*>(root.getFirstChild()); at != nullptr;
       at = static_cast<Letter*>(at->getNextSibling(1))) {
    forth += at->letter;
  }
  std::string back;
  for (auto* at = static_cast<Letter*>(root.getLastChild()); at != nullptr;
       at = static_cast<Letter*>(at->getPreviousSibling(1))) {
    back += at->letter;
  }
  EXPECT_EQ(forth, "abc");
  EXPECT_EQ(back, "cba");
}

TEST_F(QRTVirtualTreeNodeTest, ParentsAreKnownByOffsetAndTheRootByAddress) {
  Letter* const child = makeChildren(root, "a")[0];
  Letter* const grandchild = makeChildren(*child, "b")[0];
  EXPECT_EQ(child->getParent(0), nullptr) << "the root is hidden";
  EXPECT_EQ(child->getParent(1), &root);
  for (const int includeRoot : {0, 1}) {
    QRTVirtualTreeNode* const parent = grandchild->getParent(includeRoot);
    EXPECT_EQ(parent, child);
    parent->dismiss();
  }
  // A moved subtree goes along, and its head no longer knows its parent by address.
  Letter* const other = makeChildren(root, "c")[0];
  root.removeChild(child);
  other->appendChild(child);
  EXPECT_EQ(children(root), "c");
  EXPECT_EQ(children(*other), "a");
  EXPECT_EQ(children(*child), "b");
}

TEST_F(QRTVirtualTreeNodeTest, ABorrowedContainerThatIsNoTreeHidesNoRoot) {
  QRTVirtualContainer plain(tree.getMemoryMgr());
  auto* const a = static_cast<QRTVirtualTreeNode*>(QRTVirtualTreeNode::create(&plain));
  root.appendChild(a);
  EXPECT_EQ(a->getParent(0), &root);
  a->dismiss();
}

// The places where an edit can happen, each told by the list of children it leaves. Every edit is
// made below the root and below a stored node.
TEST_F(QRTVirtualTreeNodeTest, EditsAtEveryPlace) {
  struct Case {
    const char* name;
    std::function<void(QRTVirtualTreeNode&, std::vector<Letter*>&)> edit;
    const char* left;
  };
  const auto x = [this] { return make('x'); };
  const Case cases[] = {
      {"append", [&](auto& p, auto&) { p.appendChild(x()); }, "abcdx"},
      {"before first", [&](auto&, auto& c) { c[0]->insertBefore(x()); }, "xabcd"},
      {"before middle", [&](auto&, auto& c) { c[2]->insertBefore(x()); }, "abxcd"},
      {"after middle", [&](auto&, auto& c) { c[1]->insertAfter(x()); }, "abxcd"},
      {"after last", [&](auto&, auto& c) { c[3]->insertAfter(x()); }, "abcdx"},
      {"replace first", [&](auto& p, auto& c) { p.replaceChild(c[0], x()); }, "xbcd"},
      {"replace middle", [&](auto& p, auto& c) { p.replaceChild(c[1], x()); }, "axcd"},
      {"replace last", [&](auto& p, auto& c) { p.replaceChild(c[3], x()); }, "abcx"},
      {"replace by itself", [&](auto& p, auto& c) { p.replaceChild(c[1], c[1]); }, "abcd"},
      {"remove first", [&](auto& p, auto& c) { p.removeChild(c[0]); }, "bcd"},
      {"remove middle", [&](auto& p, auto& c) { p.removeChild(c[1]); }, "acd"},
      {"remove last", [&](auto& p, auto& c) { p.removeChild(c[3]); }, "abc"},
      {"remove all", [&](auto& p, auto&) { p.removeChildren(nullptr, nullptr); }, ""},
      {"remove a run", [&](auto& p, auto& c) { p.removeChildren(c[1], c[2]); }, "ad"},
      {"remove to c", [&](auto& p, auto& c) { p.removeChildren(nullptr, c[2]); }, "d"},
      {"remove from b", [&](auto& p, auto& c) { p.removeChildren(c[1], nullptr); }, "a"},
      {"remove one as run", [&](auto& p, auto& c) { p.removeChildren(c[2], c[2]); }, "abd"},
      {"append a chain",
       [&](auto& p, auto&) {
         Letter* const head = make('x');
         head->insertAfter(make('y'));
         p.appendChildren(head);
       },
       "abcdxy"},
      {"move one to the end",
       [&](auto& p, auto& c) {
         p.removeChild(c[0]);
         p.appendChild(c[0]);
       },
       "bcda"},
      {"move all out and back",
       [&](auto& p, auto& c) {
         p.removeChildren(nullptr, nullptr);
         p.removeChildren(nullptr, nullptr);
         p.appendChildren(c[0]);
       },
       "abcd"},
      {"remove to the last and start anew",
       [&](auto& p, auto& c) {
         for (Letter* const child : c) {
           p.removeChild(child);
         }
         p.appendChild(x());
       },
       "x"},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    Letter* const stored = makeChildren(root, "p")[0];
    for (QRTVirtualTreeNode* const parent : {&root, static_cast<QRTVirtualTreeNode*>(stored)}) {
      root.removeChildren(nullptr, nullptr);
      std::vector<Letter*> before = makeChildren(*parent, "abcd");
      test.edit(*parent, before);
      EXPECT_EQ(children(*parent), test.left);
    }
  }
}

TEST_F(QRTVirtualTreeNodeTest, SiblingsNeedNoParent) {
  Letter* const b = make('b');
  Letter* const a = make('a');
  b->insertBefore(a);
  b->insertAfter(make('c'));
  EXPECT_EQ(b->getParent(1), nullptr);
  root.appendChildren(a);
  EXPECT_EQ(children(root), "abc");
}

TEST_F(QRTVirtualTreeNodeTest, DestroyLeavesABareNodeAndTheBlock) {
  Letter* const node = makeChildren(root, "a")[0];
  QRTVirtualPageItem item = node->getVirtualPageItem();
  node->dismiss();
  QRTVirtualPersistNode* const pinned = tree.getNode(item);
  pinned->destroy();
  EXPECT_STREQ(pinned->getClassName(), "QRTVirtualPersistNode");
  EXPECT_EQ(pinned->getContainer(), nullptr);
  EXPECT_EQ(pinned->getPageOffset(), item.getOffset());
  pinned->setContainer(&tree);  // for the dismiss that the fixture owes
}

}  // namespace
