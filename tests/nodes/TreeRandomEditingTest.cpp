#include <algorithm>
#include <cstddef>
#include <random>
#include <utility>

#include "QRTVirtualPin.h"
#include "QRTVirtualTreeRange.h"
#include "TreeFixture.h"
#include "support/TestSeed.h"

// A tree several times the size of its budget, edited at random beside a model held in vectors.

namespace {

struct Numbered : QRTVirtualNodeClass<Numbered> {
  static constexpr const char* kClassName = "Numbered";
  std::size_t number = 0;
  char ballast[200] = {};
};

class TreeRandomEditingTest : public TreeFixture {
 protected:
  static constexpr std::size_t kNodes = 10000;  // 2.7 MB of nodes over a budget of 1 MiB
  static constexpr std::size_t kRoot = kNodes;

  using Pin = QRTVirtualPin<Numbered>;

  Pin pin(std::size_t node) { return Pin(tree.getNode(offsets[node])); }

  // Keeps a parent pinned; the root needs no pin.
  struct Parent {
    Pin pin;
    QRTVirtualTreeNode* node;
  };
  Parent pinParent(std::size_t number) {
    if (number == kRoot) {
      return {Pin(), &root};
    }
    Pin parent = pin(number);
    Numbered* const node = parent.get();
    return {std::move(parent), node};
  }

  bool isBelow(std::size_t node, std::size_t above) const {
    for (; node != kRoot; node = parents[node]) {
      if (node == above) {
        return true;
      }
    }
    return false;
  }

  std::size_t pick(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  }

  std::vector<std::size_t>& siblingsOf(std::size_t node) { return model[parents[node]]; }

  void detach(std::size_t node) {
    auto& siblings = siblingsOf(node);
    pinParent(parents[node]).node->removeChild(pin(node).get());
    siblings.erase(std::find(siblings.begin(), siblings.end(), node));
  }

  void attach(std::size_t node, std::size_t beside) {
    const std::size_t parent = parents[beside];
    auto& siblings = model[parent];
    const auto place = std::find(siblings.begin(), siblings.end(), beside);
    switch (pick(4)) {
      case 0:
        pinParent(parent).node->appendChild(pin(node).get());
        siblings.push_back(node);
        break;
      case 1:
        pin(beside)->insertAfter(pin(node).get());
        siblings.insert(place + 1, node);
        break;
      case 2:
        pin(beside)->insertBefore(pin(node).get());
        siblings.insert(place, node);
        break;
      default:  // the node beside makes room and goes below the newcomer
        pinParent(parent).node->replaceChild(pin(beside).get(), pin(node).get());
        *place = node;
        pin(node)->appendChild(pin(beside).get());
        model[node].push_back(beside);
        parents[beside] = node;
        break;
    }
    parents[node] = parent;
  }

  // Moves a run of children, as a chain, to the end of another node's children.
  void moveRun(std::size_t from, std::size_t to) {
    auto& source = model[from];
    std::size_t begin = pick(source.size());
    const std::size_t end = begin + 1 + pick(std::min<std::size_t>(source.size() - begin, 20));
    const std::vector<std::size_t> run(source.begin() + static_cast<std::ptrdiff_t>(begin),
                                       source.begin() + static_cast<std::ptrdiff_t>(end));
    if (std::any_of(run.begin(), run.end(), [&](auto node) { return isBelow(to, node); })) {
      return;
    }
    pinParent(from).node->removeChildren(pin(run.front()).get(), pin(run.back()).get());
    source.erase(source.begin() + static_cast<std::ptrdiff_t>(begin),
                 source.begin() + static_cast<std::ptrdiff_t>(end));
    for (const std::size_t node : run) {
      pinParent(to).node->appendChild(pin(node).get());
      model[to].push_back(node);
      parents[node] = to;
    }
  }

  void expectModel() {
    std::vector<std::size_t> expected;
    const auto visit = [&](const auto& self, std::size_t node) -> void {
      expected.push_back(node);
      for (const std::size_t child : model[node]) {
        self(self, child);
      }
    };
    for (const std::size_t child : model[kRoot]) {
      visit(visit, child);
    }
    std::vector<std::size_t> found;
    std::size_t children = root.getChildCount();
    for (QRTVirtualTreeWalk walk(root); !walk.atEnd(); walk.advance()) {
      if (walk.depth() != 0) {
        auto* const node = static_cast<Numbered*>(walk.node());
        ASSERT_EQ(node->getPageOffset(), offsets[node->number]);
        ASSERT_EQ(node->getChildCount(), model[node->number].size());
        found.push_back(node->number);
        children += node->getChildCount();
      }
    }
    ASSERT_EQ(found, expected);
    ASSERT_EQ(children, kNodes) << "counts add up to all nodes";
  }

  std::mt19937 random{testSeed()};
  std::vector<unsigned long long> offsets;
  std::vector<std::size_t> parents;
  std::vector<std::vector<std::size_t>> model{kNodes + 1};
};

TEST_F(TreeRandomEditingTest, AgreesWithAModel) {
  tree.registerNodeCreator(Numbered::getClassId(), Numbered::create);
  for (std::size_t i = 0; i < kNodes; ++i) {
    Pin node(tree.createNode(Numbered::getClassId()));
    node->number = i;
    offsets.push_back(node->getPageOffset());
    parents.push_back(i < 10 ? kRoot : pick(i));
    pinParent(parents[i]).node->appendChild(node.get());
    model[parents[i]].push_back(i);
  }
  expectModel();
  for (int step = 0; step < 12000; ++step) {
    const std::size_t node = pick(kNodes);
    const std::size_t beside = pick(kNodes);
    if (isBelow(beside, node)) {
      continue;
    }
    if (step % 10 == 0) {
      moveRun(parents[node], beside);
    } else {
      detach(node);
      attach(node, beside);
    }
    if (step % 500 == 0) {
      expectModel();
      ASSERT_FALSE(HasFatalFailure()) << "step " << step;
    }
  }
  expectModel();
}

}  // namespace
