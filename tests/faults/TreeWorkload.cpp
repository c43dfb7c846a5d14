#include <cstring>
#include <sstream>

#include "QRTVirtualNodeClass.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeRange.h"
#include "faults/RandomWorkload.h"

namespace {

/// A node that takes a fifth of a page.
struct Entry : QRTVirtualNodeClass<Entry> {
  static constexpr const char* kClassName = "Entry";
  void dump(std::ostream& os) override { os << ' ' << number << ' ' << text; }
  int number = 0;
  char text[600] = "";
};

/// A tree that is edited in every way, walked and dumped.
class Tree : public RandomWorkload {
 public:
  explicit Tree(QRTVirtualMemoryMgr& manager) : RandomWorkload(manager), m_tree(&manager) {
    m_tree.registerNodeCreator(Entry::getClassId(), Entry::create);
    m_nodes.push_back({});  // the root
  }

  void run(Trial& trial) override {
    for (int step = 0; step < 60; ++step) {
      const int parent = pick();
      const int made = create(trial);
      const std::vector<int> children = m_nodes[at(parent)].children;
      const int child = children.empty() ? 0 : children[draw(children.size())];
      if (made != 0 && (child == 0 || draw(3) == 0)) {
        if (edit(trial, parent, made, 0, [](auto& p, auto& n, auto*) { p.appendChild(&n); })) {
          put(parent, children.size(), made);
        }
      } else if (made != 0) {
        attachBeside(trial, parent, child, made);
      }
      if (step % 7 == 6 && child != 0) {
        takeOut(trial, parent, child);
      }
    }
    appendChain(trial);
    takeOutRun(trial);
    walk(trial);
  }

  void change(Trial& trial) override {
    for (std::size_t i = 1; i < m_nodes.size(); ++i) {
      if (m_nodes[i].offset != 0) {
        std::string text = "changed " + std::to_string(++m_seed);
        if (trial.attempt([&] {
              const QRTVirtualPin<Entry> pin(m_manager, m_nodes[i].offset);
              if (pin) {
                std::memcpy(pin->text, text.c_str(), text.size() + 1);
              }
              return bool(pin);
            })) {
          m_nodes[i].text = std::move(text);
        }
      }
    }
  }

  void check(Trial& trial) override {
    for (std::size_t i = 1; i < m_nodes.size(); ++i) {
      if (m_nodes[i].offset != 0) {
        trial.attempt([&] { return compare(i); });
      }
    }
    QRTVirtualTreeNode& root = *m_tree.getRootNode();
    expectChildren(root, m_nodes[0]);
    walk(trial);
  }

  void end(Trial& trial) override {
    for (Model& node : m_nodes) {
      if (node.offset != 0) {
        free(trial, QRTVirtualPageItem(std::exchange(node.offset, 0), 0));
      }
    }
    freeTheRest(trial);
  }

 private:
  struct Model {
    unsigned long long offset = 0;  // 0 for the root, and what was freed
    std::string text;
    int parent = -1;  // -1 while detached
    std::vector<int> children;
  };

  static std::size_t at(int node) { return static_cast<std::size_t>(node); }
  unsigned long long offsetOf(int node) const { return m_nodes[at(node)].offset; }

  /// A node that is in the tree.
  int pick() {
    std::vector<int> attached{0};
    for (std::size_t i = 1; i < m_nodes.size(); ++i) {
      if (isAttached(static_cast<int>(i))) {
        attached.push_back(static_cast<int>(i));
      }
    }
    return attached[draw(attached.size())];
  }
  bool isAttached(int node) const {
    while (node > 0) {
      node = m_nodes[at(node)].parent;
    }
    return node == 0;
  }

  void put(int parent, std::size_t place, int node) {
    std::vector<int>& children = m_nodes[at(parent)].children;
    children.insert(children.begin() + static_cast<std::ptrdiff_t>(place), node);
    m_nodes[at(node)].parent = parent;
  }
  std::size_t placeOf(int parent, int child) const {
    const std::vector<int>& children = m_nodes[at(parent)].children;
    return static_cast<std::size_t>(std::find(children.begin(), children.end(), child) -
                                    children.begin());
  }

  /// @return the number of a new node; 0 when there is none
  int create(Trial& trial) {
    Model model;
    model.text = "node " + std::to_string(++m_seed);
    const int number = static_cast<int>(m_nodes.size());
    if (!trial.attempt([&] {
          const QRTVirtualPin<Entry> pin(
              static_cast<Entry*>(m_tree.createNode(Entry::getClassId())));
          pin->number = number;
          std::memcpy(pin->text, model.text.c_str(), model.text.size() + 1);
          model.offset = pin->getPageOffset();
          return true;
        })) {
      EXPECT_EQ(model.offset, 0U);
      return 0;
    }
    m_nodes.push_back(std::move(model));
    return number;
  }

  /// Pins up to three nodes, the first of which may be the root, and edits. Nothing changes when
  /// that fails.
  template <class Edit>
  bool edit(Trial& trial, int a, int b, int c, Edit edit) {
    return trial.attempt([&] {
      const QRTVirtualPin<QRTVirtualTreeNode> pinA(m_manager, offsetOf(a));
      const QRTVirtualPin<QRTVirtualTreeNode> pinB(m_manager, offsetOf(b));
      const QRTVirtualPin<QRTVirtualTreeNode> pinC(m_manager, offsetOf(c));
      QRTVirtualTreeNode* const first = a == 0 ? m_tree.getRootNode() : pinA.get();
      if (first == nullptr || !pinB || (c != 0 && !pinC)) {
        return false;
      }
      edit(*first, *pinB, pinC.get());
      return true;
    });
  }

  void attachBeside(Trial& trial, int parent, int child, int made) {
    const std::size_t place = placeOf(parent, child);
    switch (draw(3)) {
      case 0:
        if (edit(trial, child, made, 0, [](auto& n, auto& m, auto*) { n.insertAfter(&m); })) {
          put(parent, place + 1, made);
        }
        return;
      case 1:
        if (edit(trial, child, made, 0, [](auto& n, auto& m, auto*) { n.insertBefore(&m); })) {
          put(parent, place, made);
        }
        return;
      default:
        if (m_nodes[at(child)].children.empty() &&
            edit(trial, parent, child, made,
                 [](auto& p, auto& from, auto* to) { p.replaceChild(&from, to); })) {
          forget(trial, parent, child);
          put(parent, place, made);
        }
    }
  }

  void takeOut(Trial& trial, int parent, int child) {
    const auto& children = m_nodes[at(parent)].children;
    if (placeOf(parent, child) < children.size() && m_nodes[at(child)].children.empty() &&
        edit(trial, parent, child, 0, [](auto& p, auto& n, auto*) { p.removeChild(&n); })) {
      forget(trial, parent, child);
    }
  }

  /// Frees a node without children that is not in the tree any more.
  void forget(Trial& trial, int parent, int child) {
    auto& children = m_nodes[at(parent)].children;
    children.erase(std::find(children.begin(), children.end(), child));
    m_nodes[at(child)].parent = -1;
    free(trial, QRTVirtualPageItem(std::exchange(m_nodes[at(child)].offset, 0), 0));
  }

  // A chain of which a node cannot be read stays detached.
  void appendChain(Trial& trial) {
    int head = 0;
    std::vector<int> chain;
    for (int i = 0; i < 6; ++i) {
      const int made = create(trial);
      const auto append = [](auto& n, auto& m, auto*) { n.insertAfter(&m); };
      if (made != 0 && (chain.empty() || edit(trial, chain.back(), made, 0, append))) {
        chain.push_back(made);
      }
    }
    if (!chain.empty() &&
        edit(trial, head, chain[0], 0, [](auto& p, auto& n, auto*) { p.appendChildren(&n); })) {
      for (const int node : chain) {
        put(head, m_nodes[at(head)].children.size(), node);
      }
    }
  }

  void takeOutRun(Trial& trial) {
    const std::vector<int> children = m_nodes[0].children;
    if (children.size() < 4) {
      return;
    }
    const int first = children[1];
    const int last = children[3];
    if (edit(trial, 0, first, last,
             [](auto& p, auto& from, auto* to) { p.removeChildren(&from, to); })) {
      auto& left = m_nodes[0].children;
      left.erase(left.begin() + 1, left.begin() + 4);
      for (const int node : {children[1], children[2], children[3]}) {
        m_nodes[at(node)].parent = -1;
      }
    }
  }

  /// Compares a node with the model, links included.
  bool compare(std::size_t index) {
    const Model& model = m_nodes[index];
    const QRTVirtualPin<Entry> pin(m_manager, model.offset);
    if (!pin) {
      return false;
    }
    EXPECT_EQ(pin->number, static_cast<int>(index));
    EXPECT_EQ(pin->text, model.text);
    expectChildren(*pin, model);
    if (model.parent < 0) {
      return true;
    }
    const std::vector<int>& siblings = m_nodes[at(model.parent)].children;
    const std::size_t place = placeOf(model.parent, static_cast<int>(index));
    EXPECT_EQ(pin->getPreviousSiblingPageItem().getOffset(),
              place == 0 ? 0 : offsetOf(siblings[place - 1]));
    EXPECT_EQ(pin->getNextSiblingPageItem().getOffset(),
              place + 1 == siblings.size() ? 0 : offsetOf(siblings[place + 1]));
    EXPECT_EQ(pin->getParentPageItem().getOffset(),
              model.parent == 0 ? QRTVirtualPageItem::getInvalidOffset() : offsetOf(model.parent));
    return true;
  }

  void expectChildren(QRTVirtualTreeNode& node, const Model& model) {
    const std::vector<int>& children = model.children;
    EXPECT_EQ(node.getChildCount(), children.size());
    EXPECT_EQ(node.getFirstChildPageItem().getOffset(),
              children.empty() ? 0 : offsetOf(children.front()));
    EXPECT_EQ(node.getLastChildPageItem().getOffset(),
              children.empty() ? 0 : offsetOf(children.back()));
  }

  /// Goes through the tree as a range and as a dump.
  void walk(Trial& trial) {
    std::vector<int> expected;
    std::string dump = "**Dump of Virtual Tree**\n\n";
    describe(0, 0, expected, dump);
    std::vector<int> found;
    found.reserve(m_nodes.size());
    if (trial.attempt([&] {
          found.clear();
          for (QRTVirtualTreeNode& node : QRTVirtualSubtree<>(*m_tree.getRootNode())) {
            const bool isRoot = &node == m_tree.getRootNode();
            found.push_back(isRoot ? 0 : static_cast<Entry&>(node).number);
          }
          return true;
        })) {
      EXPECT_EQ(found, expected);
    }
    std::ostringstream os;
    os.exceptions(std::ios::badbit);
    if (trial.attempt([&] {
          m_tree.dumpTree(nullptr, os);
          return true;
        })) {
      EXPECT_EQ(os.str(), dump + '\n');
    }
  }

  void describe(int node, std::size_t depth, std::vector<int>& order, std::string& dump) const {
    order.push_back(node);
    dump += std::string(depth, '-') + "Node: Class: " +
            (node == 0 ? std::string("QRTVirtualTreeNode")
                       : "Entry " + std::to_string(node) + ' ' + m_nodes[at(node)].text) +
            '\n';
    for (const int child : m_nodes[at(node)].children) {
      describe(child, depth + 1, order, dump);
    }
  }

  QRTVirtualTree m_tree;
  std::vector<Model> m_nodes;
};

}  // namespace

std::unique_ptr<Workload> makeTree(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<Tree>(manager);
}
