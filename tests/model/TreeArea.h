#ifndef TESTS_MODEL_TREEAREA_H
#define TESTS_MODEL_TREEAREA_H

#include <functional>
#include <map>
#include <vector>

#include "QRTVirtualNodeClass.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "model/ModelArea.h"

namespace model {

/// A tree of nodes of two classes, edited beside vectors, mistakes included.
class TreeArea final : public ModelArea {
 public:
  explicit TreeArea(ModelWorld& world);

  const char* name() const override { return "tree"; }
  void step() override;
  void verify() override;
  void clear() override;
  std::uint64_t objects() const override { return m_nodes.size() - 1; }
  bool owns(std::uint64_t offset) const override;

  /// A node that knows its number.
  struct Numbered : QRTVirtualTreeNode {
    void dump(std::ostream& os) override { os << ' ' << number; }
    std::uint32_t number = 0;
  };
  struct SmallNode : QRTVirtualNodeClass<SmallNode, Numbered> {
    static constexpr const char* kClassName = "SmallNode";
  };
  struct BigNode : QRTVirtualNodeClass<BigNode, Numbered> {
    static constexpr const char* kClassName = "BigNode";
    char ballast[1900] = {};
  };

 private:
  using Number = std::uint32_t;
  using Pin = QRTVirtualPin<Numbered>;

  static constexpr Number kRoot = 0;
  static constexpr Number kNone = UINT32_MAX;

  struct Node {
    std::uint64_t offset = 0;
    bool big = false;
    Number parent = kNone;
    std::vector<Number> children;
    bool keepsLinks = false;  // of a detached one: whether it still has its siblings' links
    Number former = kNone;    // of a detached one: the parent it was removed from
  };

  /// A node that is not pinned when it lives in process memory.
  struct Held {
    Pin pin;
    QRTVirtualTreeNode* node = nullptr;
  };

  Held hold(Number number);
  Number create();
  Number takeLoose(bool mayKeepLinks, Number target);
  Number anyAttached();
  Number anyNode(bool withRoot);
  bool isBelow(Number node, Number above) const;
  void edit(Number parent, const std::function<void()>& call, const std::function<void()>& apply);
  void detach(Number number, bool keepsLinks);
  void attach(Number number, Number parent, std::size_t place);
  std::size_t placeOf(Number number) const;

  void append();
  void insertBeside(bool after);
  void replace();
  void remove();
  void removeRun();
  void moveAll();
  void appendChain();
  void freeLoose();
  void mistake();
  void navigate();
  void dump();
  void freeSubtree(Number number);
  void compareChildren(Number parent);
  void compareSubtree(Number top);

  QRTVirtualTree m_tree;
  std::map<Number, Node> m_nodes;  // by number, the root included
  std::vector<Number> m_loose;     // nodes without a parent
  Number m_lastNumber = kRoot;
};

}  // namespace model

#endif  // TESTS_MODEL_TREEAREA_H
