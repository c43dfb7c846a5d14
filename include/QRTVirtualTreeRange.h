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
/// Since C++20 both are input ranges as well, whose iterators are moved and not copied, so that
/// they serve the algorithms and views of the standard library:
///
///     QRTVirtualSubtree<Person> all(*parent);
///     for (Person& person : all | std::views::filter(isGrown) | std::views::take(10)) ...
///
/// A reference that such a pipeline gives is good until it moves on, like the node of a loop.
///
/// Where a loop goes next is settled when it reaches a node. Its body may therefore remove or free
/// the node it is at; nodes that it attaches directly behind or below it may be left out, and those
/// that follow must stay. A node that cannot be read back ends the loop with QRTAssertError, and so
/// do links that lead around in a ring, as damage may tie them, once the loop came around.

/// Notices that a walk comes back to a node. It keeps one node in mind, and another one whenever
/// twice as many steps have been made, so that a ring of r nodes that begins after s steps is
/// noticed within 3 * (s + r) steps, in no memory at all.
class QRTVirtualRingCheck {
 public:
  /// @param offset  the node that is reached next, not 0
  /// @return whether it is the node kept in mind
  bool isBack(unsigned long long offset) noexcept {
    if (offset == m_kept) {
      return true;
    }
    if (--m_left == 0) {
      m_kept = offset;
      m_steps *= 2;
      m_left = m_steps;
    }
    return false;
  }

 private:
  unsigned long long m_kept = 0;  // the node kept in mind; 0 at first
  std::size_t m_steps = 4;        // steps for which it is kept; any number does to begin with
  std::size_t m_left = 4;         // of these, steps to come
};

/// Goes through a node and everything below it in document order: a node before its children,
/// children from first to last. Holds one pin, and 16 bytes for each node on the way down that has
/// a sibling still to come.
class QRTVirtualTreeWalk {
 public:
  /// Begins at a node.
  /// @param start  a node pinned by the caller, or a root
  /// @throws QRTAssertError when the node has no container or cannot be read back
  explicit QRTVirtualTreeWalk(QRTVirtualTreeNode& start) {
    QRT_ASSERT(start.getContainer());
    m_memMgr = start.getContainer()->getMemoryMgr();
    if (start.getPageOffset() == QRTVirtualPageItem::getInvalidOffset()) {
      m_node = &start;  // a root is there without a pin
      m_child = start.getFirstChildPageItem().getOffset();
    } else {
      QRT_ASSERT(m_memMgr);
      moveTo(start.getPageOffset(), 0);
      m_sibling = 0;  // what stands beside the start is not below it
    }
  }

  /// Dismisses the node the walk is at.
  ~QRTVirtualTreeWalk() { leave(); }

  /// Takes the other walk over, which is at its end then.
  QRTVirtualTreeWalk(QRTVirtualTreeWalk&& other) noexcept
      : m_memMgr(other.m_memMgr),
        m_node(std::exchange(other.m_node, nullptr)),
        m_offset(std::exchange(other.m_offset, 0)),
        m_child(std::exchange(other.m_child, 0)),
        m_sibling(std::exchange(other.m_sibling, 0)),
        m_depth(other.m_depth),
        m_pending(std::move(other.m_pending)),
        m_ring(other.m_ring) {
    other.m_pending.clear();
  }
  QRTVirtualTreeWalk& operator=(QRTVirtualTreeWalk&& other) noexcept {
    if (this != &other) {
      leave();
      m_memMgr = other.m_memMgr;
      m_node = std::exchange(other.m_node, nullptr);
      m_offset = std::exchange(other.m_offset, 0);
      m_child = std::exchange(other.m_child, 0);
      m_sibling = std::exchange(other.m_sibling, 0);
      m_depth = other.m_depth;
      m_pending = std::move(other.m_pending);
      m_ring = other.m_ring;
      other.m_pending.clear();
    }
    return *this;
  }
  QRTVirtualTreeWalk(const QRTVirtualTreeWalk&) = delete;
  QRTVirtualTreeWalk& operator=(const QRTVirtualTreeWalk&) = delete;

  /// @return whether all nodes have been visited
  bool atEnd() const noexcept { return m_node == nullptr; }

  /// @return the node the walk is at, pinned by the walk until it moves on; null at the end
  QRTVirtualTreeNode* node() const noexcept { return m_node; }

  /// @return levels between the start, which has 0, and the node the walk is at
  unsigned int depth() const noexcept { return m_depth; }

  /// Leaves out what is below the node the walk is at. Needed before its children are freed.
  void skipChildren() noexcept { m_child = 0; }

  /// Moves on; does nothing at the end.
  /// @throws QRTAssertError when the next node cannot be read back, or when the links lead around
  ///         in a ring; the walk is at its end then
  /// Cost: O(1); may read a page back
  void advance() {
    if (m_child != 0) {
      if (m_sibling != 0) {
        m_pending.push_back({m_sibling, m_depth});
      }
      moveTo(m_child, m_depth + 1);
    } else if (m_sibling != 0) {
      moveTo(m_sibling, m_depth);
    } else if (!m_pending.empty()) {
      const Pending pending = m_pending.back();
      m_pending.pop_back();
      moveTo(pending.offset, pending.depth);
    } else {
      leave();
    }
  }

 private:
  // A sibling still to come of a node on the way down.
  struct Pending {
    unsigned long long offset;
    unsigned int depth;
  };

  // A walk that goes on from another one's place, for lookAhead.
  explicit QRTVirtualTreeWalk(const QRTVirtualTreeWalk* of, unsigned long long offset)
      : m_memMgr(of->m_memMgr), m_pending(of->m_pending), m_looksAhead(true) {
    moveTo(offset, 0);
  }

  // Finds out whether the links lead around in a ring: at a node that was reached before, which a
  // loop's body may have moved. So the nodes to come are walked through without the body.
  // Throws QRTAssertError when they do, with this walk at its end.
  [[gnu::noinline, gnu::cold]] void lookAhead(unsigned long long offset) {
    try {
      QRT_ASSERT_NAMED(!m_looksAhead, "the links of the tree lead around in a ring");
      QRTVirtualTreeWalk walk(this, offset);
      while (!walk.atEnd()) {
        walk.advance();
      }
    } catch (...) {
      leave();
      throw;
    }
  }

  // Gives the pin back. A root has none, and its offset stays 0 here, which every manager ignores.
  void leave() noexcept {
    if (m_offset != 0) {
      m_memMgr->dismiss(m_offset);
      m_offset = 0;
    }
    m_node = nullptr;
  }

  // Moves the pin to a node and reads what follows it. Done by hand rather than with a
  // QRTVirtualPin, since a walk does little else.
  void moveTo(unsigned long long offset, unsigned int depth) {
    if (m_ring.isBack(offset)) {
      lookAhead(offset);
    }
    auto* const node = static_cast<QRTVirtualTreeNode*>(
        static_cast<QRTVirtualPersistNode*>(m_memMgr->movePin(m_offset, offset)));
    m_node = node;
    m_offset = node == nullptr ? 0 : offset;
    QRT_ASSERT_NAMED(node, "a node cannot be read back");
    m_child = node->getFirstChildPageItem().getOffset();
    m_sibling = node->getNextSiblingPageItem().getOffset();
    m_depth = depth;
  }

  QRTVirtualMemoryMgr* m_memMgr = nullptr;  // the store of the nodes, not owned
  QRTVirtualTreeNode* m_node = nullptr;     // the node the walk is at; null at the end
  unsigned long long m_offset = 0;          // its offset, pinned; 0 for a root and at the end
  unsigned long long m_child = 0;           // offset of its first child, when it was reached
  unsigned long long m_sibling = 0;         // offset of the sibling behind it, likewise
  unsigned int m_depth = 0;                 // levels below the start
  std::vector<Pending> m_pending;           // siblings to come back to, deepest last
  QRTVirtualRingCheck m_ring;               // whether the links lead around
  bool m_looksAhead = false;                // whether this is a walk of lookAhead's
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
    void operator++(int) { this->advance(); }
    friend bool operator!=(const iterator& at, QRTVirtualTreeRangeEnd) { return !at.atEnd(); }
    friend bool operator==(const iterator& at, QRTVirtualTreeRangeEnd) { return at.atEnd(); }
  };

  /// @param start  a node pinned by the caller for as long as the range is used, or a root
  explicit QRTVirtualSubtree(QRTVirtualTreeNode& start) : m_start(&start) {}

  iterator begin() const { return iterator(*m_start); }
  QRTVirtualTreeRangeEnd end() const { return {}; }

 private:
  QRTVirtualTreeNode* m_start;  // not owned
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
        QRT_ASSERT(m_container && m_container->getMemoryMgr());
        if (m_ring.isBack(m_next)) {
          lookAhead();
        }
        m_node = QRTVirtualPin<Node>(*m_container->getMemoryMgr(), m_next);
        QRT_ASSERT_NAMED(m_node, "a node cannot be read back");
        m_next = m_node->getNextSiblingPageItem().getOffset();
      }
      return *this;
    }
    void operator++(int) { ++*this; }
    friend bool operator!=(const iterator& at, QRTVirtualTreeRangeEnd) { return bool(at.m_node); }
    friend bool operator==(const iterator& at, QRTVirtualTreeRangeEnd) { return !at.m_node; }

   private:
    // As that of a walk, along the siblings to come.
    [[gnu::noinline, gnu::cold]] void lookAhead() const {
      QRTVirtualRingCheck ring;
      for (unsigned long long at = m_next; at != 0;) {
        QRT_ASSERT_NAMED(!ring.isBack(at), "the links of the tree lead around in a ring");
        const QRTVirtualPin<QRTVirtualTreeNode> node(*m_container->getMemoryMgr(), at);
        QRT_ASSERT_NAMED(node, "a node cannot be read back");
        at = node->getNextSiblingPageItem().getOffset();
      }
    }

    QRTVirtualContainer* m_container;  // whose nodes are walked, not owned
    unsigned long long m_next;         // offset of the child after this one; 0 for none
    QRTVirtualPin<Node> m_node;        // the child the loop is at
    QRTVirtualRingCheck m_ring;        // whether the links lead around
  };

  /// @param parent  a node pinned by the caller for as long as the range is used, or a root
  explicit QRTVirtualChildren(QRTVirtualTreeNode& parent) : m_parent(&parent) {}

  iterator begin() const { return iterator(*m_parent); }
  QRTVirtualTreeRangeEnd end() const { return {}; }

 private:
  QRTVirtualTreeNode* m_parent;  // not owned
};

#endif  // QRTVIRTUALTREERANGE_H
