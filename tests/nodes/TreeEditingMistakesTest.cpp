#include <functional>

#include "QRTVirtualPin.h"
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

}  // namespace
