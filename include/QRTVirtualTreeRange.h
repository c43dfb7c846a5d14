#ifndef QRTVIRTUALTREERANGE_H
#define QRTVIRTUALTREERANGE_H

#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTreeNode.h"

/// @file
/// Loops over trees that hold one pin at a time and give it back however they end. Header-only,
/// C++17:
///
///     for (QRTVirtualTreeNode& child : QRTVirtualChildren<>(*parent)) ...
///     for (QRTVirtualTreeNode& node : QRTVirtualSubtree<>(*tree.getRootNode())) ...
///
/// Where a loop goes next is settled when it reaches a node. Its body may therefore remove or free
/// the node it is at; nodes that it attaches directly behind or below it may be left out, and those
/// that follow must stay. A node that cannot be read back ends the loop with QRTAssertError.

/// Goes through a node and everything below it in document order: a node before its children,
/// children from first to last. Holds one pin, and 16 bytes for each node on the way down that has
/// a sibling still to come.
class QRTVirtualTreeWalk {
 public:
  /// Begins at a node.
  /// @param start  a node pinned by the caller, or a root
  /// @throws QRTAssertError when the node has no container or cannot be read back
  explicit QRTVirtualTreeWalk(QRTVirtualTreeNode& start) : m_container(start.getContainer()) {
    QRT_ASSERT(m_container);
    // A root is there without a pin, and its dismissal is ignored.
    arrive(start.getPageOffset() == QRTVirtualPageItem::getInvalidOffset()
               ? QRTVirtualPin<QRTVirtualTreeNode>(&start)
               : QRTVirtualPin<QRTVirtualTreeNode>(m_container->getNode(start.getPageOffset())),
           0);
    m_next.sibling = 0;  // what stands beside the start is not below it
  }

  /// @return whether all nodes have been visited
  bool atEnd() const noexcept { return !m_node; }

  /// @return the node the walk is at, pinned by the walk until it moves on; null at the end
  QRTVirtualTreeNode* node() const noexcept { return m_node.get(); }

  /// @return levels between the start, which has 0, and the node the walk is at
  unsigned int depth() const noexcept { return m_depth; }

  /// Leaves out what is below the node the walk is at. Needed before its children are freed.
  void skipChildren() noexcept { m_next.child = 0; }

  /// Moves on.
  /// @throws QRTAssertError when the next node cannot be read back; the walk is at its end then
  /// Cost: O(1); may read a page back
  void advance() {
    if (m_next.child != 0) {
      if (m_next.sibling != 0) {
        m_pending.push_back({m_next.sibling, m_depth});
      }
      moveTo(m_next.child, m_depth + 1);
    } else if (m_next.sibling != 0) {
      moveTo(m_next.sibling, m_depth);
    } else if (!m_pending.empty()) {
      const Pending pending = m_pending.back();
      m_pending.pop_back();
      moveTo(pending.offset, pending.depth);
    } else {
      m_node.reset();
    }
  }

 private:
  // A sibling still to come of a node on the way down.
  struct Pending {
    unsigned long long offset;
    unsigned int depth;
  };

  // What follows the node the walk is at, read when it was reached; 0 for none.
  struct Following {
    unsigned long long child;
    unsigned long long sibling;
  };

  void moveTo(unsigned long long offset, unsigned int depth) {
    m_node.reset();
    arrive(QRTVirtualPin<QRTVirtualTreeNode>(m_container->getNode(offset)), depth);
  }

  void arrive(QRTVirtualPin<QRTVirtualTreeNode> node, unsigned int depth) {
    QRT_ASSERT_NAMED(node, "a node cannot be read back");
    m_next.child = node->getFirstChildPageItem().getOffset();
    m_next.sibling = node->getNextSiblingPageItem().getOffset();
    m_depth = depth;
    m_node = std::move(node);
  }

  QRTVirtualContainer* m_container;          // whose nodes are walked, not owned
  QRTVirtualPin<QRTVirtualTreeNode> m_node;  // the node the walk is at
  Following m_next{0, 0};                    // where it goes from there
  unsigned int m_depth = 0;                  // levels below the start
  std::vector<Pending> m_pending;            // siblings to come back to, deepest last
};

/// The end of either loop below.
struct QRTVirtualTreeRangeEnd {};

/// A node and everything below it in document order, to be used in a range-based for.
/// @tparam Node  class of the nodes, which is not checked
template <class Node = QRTVirtualTreeNode>
class QRTVirtualSubtree {
 public:
  /// Visits one node after the other; see QRTVirtualTreeWalk for `depth` and `skipChildren`.
  class iterator : public QRTVirtualTreeWalk {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Node;
    using difference_type = std::ptrdiff_t;
    using pointer = Node*;
    using reference = Node&;

    using QRTVirtualTreeWalk::QRTVirtualTreeWalk;
    Node& operator*() const noexcept { return *static_cast<Node*>(this->node()); }
    Node* operator->() const noexcept { return static_cast<Node*>(this->node()); }
    iterator& operator++() {
      this->advance();
      return *this;
    }
    friend bool operator!=(const iterator& at, QRTVirtualTreeRangeEnd) { return !at.atEnd(); }
    friend bool operator==(const iterator& at, QRTVirtualTreeRangeEnd) { return at.atEnd(); }
  };

  /// @param start  a node pinned by the caller for as long as the range is used, or a root
  explicit QRTVirtualSubtree(QRTVirtualTreeNode& start) : m_start(start) {}

  iterator begin() const { return iterator(m_start); }
  QRTVirtualTreeRangeEnd end() const { return {}; }

 private:
  QRTVirtualTreeNode& m_start;  // not owned
};

/// The children of a node from first to last, to be used in a range-based for.
/// @tparam Node  class of the children, which is not checked
template <class Node = QRTVirtualTreeNode>
class QRTVirtualChildren {
 public:
  /// Visits one child after the other.
  class iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Node;
    using difference_type = std::ptrdiff_t;
    using pointer = Node*;
    using reference = Node&;

    /// Pins the first child, if there is one.
    explicit iterator(QRTVirtualTreeNode& parent)
        : m_container(parent.getContainer()), m_next(parent.getFirstChildPageItem().getOffset()) {
      ++*this;
    }

    Node& operator*() const noexcept { return *m_node; }
    Node* operator->() const noexcept { return m_node.get(); }
    iterator& operator++() {
      m_node.reset();
      if (m_next != 0) {
        QRT_ASSERT(m_container);
        m_node = QRTVirtualPin<Node>(m_container->getNode(m_next));
        QRT_ASSERT_NAMED(m_node, "a node cannot be read back");
        m_next = m_node->getNextSiblingPageItem().getOffset();
      }
      return *this;
    }
    friend bool operator!=(const iterator& at, QRTVirtualTreeRangeEnd) { return bool(at.m_node); }
    friend bool operator==(const iterator& at, QRTVirtualTreeRangeEnd) { return !at.m_node; }

   private:
    QRTVirtualContainer* m_container;  // whose nodes are walked, not owned
    unsigned long long m_next;         // offset of the child after this one; 0 for none
    QRTVirtualPin<Node> m_node;        // the child the loop is at
  };

  /// @param parent  a node pinned by the caller for as long as the range is used, or a root
  explicit QRTVirtualChildren(QRTVirtualTreeNode& parent) : m_parent(parent) {}

  iterator begin() const { return iterator(m_parent); }
  QRTVirtualTreeRangeEnd end() const { return {}; }

 private:
  QRTVirtualTreeNode& m_parent;  // not owned
};

#endif  // QRTVIRTUALTREERANGE_H
