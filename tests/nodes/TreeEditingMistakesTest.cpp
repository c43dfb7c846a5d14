#include <cstring>
#include <functional>
#include <new>

#include "QRTVirtualPin.h"
#include "QRTVirtualTreeRange.h"
#include "TreeFixture.h"
#include "support/ErrorMatchers.h"

namespace {

class TreeEditingMistakesTest : public TreeFixture {};

TEST_F(TreeEditingMistakesTest, NullNodesAreNamed) {
  Letter* const node = make('a');
  const std::pair<std::function<void()>, const char*> calls[] = {
      {[&] { root.appendChild(nullptr); }, "QRT_ASSERT(child != NULL);"},
      {[&] { root.appendChildren(nullptr); }, "QRT_ASSERT(child != NULL);"},
      {[&] { root.removeChild(nullptr); }, "QRT_ASSERT(child != NULL);"},
      {[&] { node->insertAfter(nullptr); }, "QRT_ASSERT(sibling != NULL);"},
      {[&] { node->insertBefore(nullptr); }, "QRT_ASSERT(sibling != NULL);"},
      {[&] { root.replaceChild(nullptr, nullptr); }, "QRT_ASSERT(oldChild != NULL);"},
      {[&] { root.replaceChild(node, nullptr); }, "QRT_ASSERT(newChild != NULL);"},
  };
  for (const auto& [call, text] : calls) {
    const auto error = expectRaised<QRTAssertError>(call);
    EXPECT_EQ(textOf(error), text);
    EXPECT_EQ(traceOf(error).front(), (TraceEntry{"QRTVirtualTreeNode.cpp", "", "QRT_THROW"}));
  }
}

// Each mistake is refused and leaves the children of the parent, and of the root, as they were.
TEST_F(TreeEditingMistakesTest, DamageIsRefusedBeforeAnythingChanges) {
  Letter* const parent = makeChildren(root, "p")[0];
  const std::vector<Letter*> c = makeChildren(*parent, "abcde");
  Letter* const fresh = make('x');
  Letter* const second = make('y');
  fresh->insertAfter(second);
  Letter* const removed = makeChildren(*parent, "r")[0];
  parent->removeChild(removed);
  Letter* const elsewhere = makeChildren(root, "q")[0];
  QRTVirtualTreeNode heap;
  heap.setContainer(&tree);
  QRTVirtualTree otherTree(1U << 20U, 0, 0);
  const QRTVirtualPin<QRTVirtualTreeNode> foreign(QRTVirtualTreeNode::create(&otherTree));
  QRTVirtualPin<QRTVirtualTreeNode> foreignChild;  // between two others, as b is
  for (int i = 0; i < 3; ++i) {
    QRTVirtualPin<QRTVirtualTreeNode> child(QRTVirtualTreeNode::create(&otherTree));
    foreign->appendChild(child.get());
    if (i == 1) {
      foreignChild = std::move(child);
    }
  }

  const std::pair<const char*, std::function<void()>> mistakes[] = {
      {"below itself", [&] { parent->appendChild(parent); }},
      {"below its child", [&] { c[0]->appendChild(parent); }},
      {"beside its child", [&] { c[0]->insertAfter(parent); }},
      {"beside itself", [&] { fresh->insertAfter(fresh); }},
      {"first child again", [&] { parent->appendChild(c[0]); }},
      {"last child again", [&] { parent->appendChild(c[4]); }},
      {"a run of children again", [&] { parent->appendChildren(c[2]); }},
      {"a chain from its middle", [&] { second->appendChildren(fresh); }},
      {"a chain's tail into an empty list", [&] { removed->appendChildren(second); }},
      {"a neighbour behind", [&] { c[1]->insertAfter(c[2]); }},
      {"a neighbour before", [&] { c[1]->insertAfter(c[0]); }},
      {"a neighbour before, before", [&] { c[1]->insertBefore(c[0]); }},
      {"an attached node at the end", [&] { c[4]->insertAfter(fresh); }},
      {"beside a removed node", [&] { removed->insertAfter(second); }},
      {"before a removed node", [&] { removed->insertBefore(second); }},
      {"replaced by a neighbour", [&] { parent->replaceChild(c[1], c[2]); }},
      {"replaced by the last", [&] { parent->replaceChild(c[1], c[4]); }},
      {"replacing what is not a child", [&] { parent->replaceChild(elsewhere, second); }},
      {"replacing what was removed", [&] { parent->replaceChild(removed, second); }},
      {"removing what is not a child", [&] { parent->removeChild(elsewhere); }},
      {"removing twice", [&] { parent->removeChild(removed); }},
      {"removing from a grandparent", [&] { root.removeChild(c[1]); }},
      {"a reversed run", [&] { parent->removeChildren(c[3], c[1]); }},
      {"a wholly reversed run", [&] { parent->removeChildren(c[4], c[0]); }},
      {"a run across parents", [&] { parent->removeChildren(c[1], elsewhere); }},
      {"a foreign child", [&] { parent->appendChild(foreign.get()); }},
      {"a foreign sibling", [&] { c[1]->insertAfter(foreign.get()); }},
      {"replacing by a foreign node", [&] { parent->replaceChild(c[1], foreign.get()); }},
      {"removing a foreign node", [&] { parent->removeChild(foreign.get()); }},
      {"removing a foreign child", [&] { parent->removeChild(foreignChild.get()); }},
      {"removing foreign children",
       [&] { parent->removeChildren(foreignChild.get(), foreignChild.get()); }},
      {"replacing a foreign child", [&] { parent->replaceChild(foreignChild.get(), second); }},
      {"the root as a child", [&] { parent->appendChild(&root); }},
      {"a sibling of the root", [&] { root.insertAfter(second); }},
      {"a node of the heap as a child", [&] { parent->appendChild(&heap); }},
      {"a node of the heap as a parent", [&] { heap.appendChild(second); }},
  };
  for (const auto& [name, mistake] : mistakes) {
    SCOPED_TRACE(name);
    expectRaised<QRTAssertError>(mistake);
    EXPECT_EQ(children(*parent), "abcde");
    EXPECT_EQ(children(root), "pq");
  }
}

// A node attached again without having been taken out leaves links that lead round in a ring, or
// past the run.
TEST_F(TreeEditingMistakesTest, RemovingARunOfADamagedChainEnds) {
  Letter* const parent = makeChildren(root, "p")[0];
  const std::vector<Letter*> c = makeChildren(*parent, "abcd");
  c[0]->insertAfter(c[2]);
  Letter* const other = makeChildren(root, "q")[0];
  const std::vector<Letter*> d = makeChildren(*other, "efghi");
  d[3]->insertAfter(d[1]);
  const std::function<void()> runs[] = {
      [&] { parent->removeChildren(c[1], c[3]); },    [&] { parent->removeChildren(c[2], c[3]); },
      [&] { parent->removeChildren(c[1], nullptr); }, [&] { other->removeChildren(d[2], nullptr); },
      [&] { other->removeChildren(nullptr, d[2]); },
  };
  for (const auto& run : runs) {
    SCOPED_TRACE(&run - runs);
    expectRaised<QRTAssertError>(run);
    EXPECT_EQ(parent->getChildCount(), 5U);
    EXPECT_EQ(other->getChildCount(), 6U);
  }
}

// Of a node that is edited only the place matters: the container it was made in may be gone.
TEST_F(TreeEditingMistakesTest, ANodesOwnContainerMayBeGone) {
  alignas(QRTVirtualTree) unsigned char place[sizeof(QRTVirtualTree)];
  auto* const gone = new (place) QRTVirtualTree(tree.getMemoryMgr());
  std::vector<Letter*> nodes;
  for (const char letter : std::string("abcdefg")) {
    nodes.push_back(static_cast<Letter*>(Letter::create(gone)));
    nodes.back()->letter = letter;
  }
  nodes[5]->insertAfter(nodes[6]);
  gone->~QRTVirtualTree();
  std::memset(place, 0x5A, sizeof place);

  Letter* const first = makeChildren(root, "1")[0];
  Letter* const inner = makeChildren(*first, "2")[0];
  root.appendChild(nodes[0]);
  first->insertAfter(nodes[1]);
  first->insertBefore(nodes[2]);
  first->replaceChild(inner, nodes[3]);
  first->appendChild(nodes[4]);
  root.appendChildren(nodes[5]);
  root.removeChild(nodes[1]);
  root.removeChildren(nodes[0], nodes[5]);
  first->replaceChild(nodes[4], inner);
  std::string all;
  for (Letter& node : QRTVirtualChildren<Letter>(root)) {
    all += node.letter;
  }
  EXPECT_EQ(all, "c1g");
  std::ostringstream os;
  tree.dumpTree(nullptr, os);
  EXPECT_NE(os.str().find("-Node: Class: Letter 1\n"
                          "--Node: Class: Letter d\n"
                          "--Node: Class: Letter 2\n"
                          "-Node: Class: Letter g\n"),
            std::string::npos)
      << os.str();

  for (Letter* const node : nodes) {
    node->setContainer(&tree);
  }
  EXPECT_EQ(children(root), "c1g");
  EXPECT_EQ(children(*first), "d2");
  for (Letter* const node : nodes) {
    node->dismiss();
  }
}

}  // namespace
