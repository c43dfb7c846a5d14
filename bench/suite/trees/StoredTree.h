#ifndef BENCH_SUITE_TREES_STOREDTREE_H
#define BENCH_SUITE_TREES_STOREDTREE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeRange.h"
#include "common/PageTraffic.h"

/// The tree in the store, with the operations of a LinkedTree.
class StoredTree {
 public:
  using Handle = unsigned long long;
  using Position = QRTVirtualPin<QRTVirtualTreeNode>;

  StoredTree(std::size_t, std::size_t budget)
      : m_tree(static_cast<unsigned int>(std::min(budget, std::size_t{0xFFFFF000U})), 0, 0) {
    m_tree.registerNodeCreator(QRTVirtualTreeNode::getClassId(), QRTVirtualTreeNode::create);
  }

  Position root() { return Position(m_tree.getRootNode()); }
  static Handle handle(const Position& position) { return position->getPageOffset(); }

  Position append(Position& parent) {
    Position node(m_tree.createNode(QRTVirtualTreeNode::getClassId()));
    parent->appendChild(node.get());
    return node;
  }

  std::size_t walk() {
    std::size_t visited = 0;
    for (QRTVirtualTreeNode& node : QRTVirtualSubtree<>(*m_tree.getRootNode())) {
      visited += node.getContainer() == &m_tree ? 1 : 0;
    }
    return visited - 1;  // the root itself
  }

  void moveLeaf(Handle which, Handle below) {
    const Position node(m_tree.getNode(which));
    const Position parent(m_tree.getNode(below));
    if (node->hasChildren() != 0 || which == below) {
      return;
    }
    Position(node->getParent(1))->removeChild(node.get());
    parent->appendChild(node.get());
  }

  /// Tells that a node will be used soon.
  void announce(Handle node) { m_tree.getMemoryMgr()->prefetch(node); }

  /// Pages read from the paging file and written to it so far.
  std::uint64_t pagesMoved() {
    const PageTraffic traffic = pageTrafficOf(*m_tree.getMemoryMgr());
    return traffic.reads + traffic.writes;
  }

 private:
  QRTVirtualTree m_tree;
};

#endif  // BENCH_SUITE_TREES_STOREDTREE_H
