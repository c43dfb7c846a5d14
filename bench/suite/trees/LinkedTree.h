#ifndef BENCH_SUITE_TREES_LINKEDTREE_H
#define BENCH_SUITE_TREES_LINKEDTREE_H

#include <cstddef>
#include <vector>

/// A tree over nodes that a peer keeps. `Nodes` has
///  - `Node`, a TreeNode; its `Ref` names a node, and `Handle` is that for use in local variables;
///  - `create(parent, previous)`, which gives a new node's pin;
///  - `edit(handle)`, a pin of a node to be changed through `->`;
///  - `read(handle)`, something to read through `*` before the next node is edited;
///  - `kReadsAreFree`, whether that is no more than following a pointer.
/// No two pins of one node are held at a time, so that a pin may be a copy that is put back.
template <class Nodes>
class LinkedTree {
 public:
  using Handle = typename Nodes::Handle;
  using Position = typename Nodes::Pin;

  explicit LinkedTree(std::size_t nodes, std::size_t budget)
      : m_nodes(nodes + 1, budget), m_root(handle(m_nodes.create({}, {}))) {}

  Position root() { return m_nodes.edit(m_root); }
  static Handle handle(const Position& position) { return Nodes::handle((*position).self); }

  /// Adds a node behind the children of a pinned one. @return the node, pinned
  Position append(Position& parent) {
    const Handle last = Nodes::handle((*parent).last);
    Position node = m_nodes.create((*parent).self, (*parent).last);
    takeIn(parent, last, handle(node));
    return node;
  }

  /// Visits all nodes depth-first. @return how many there are, without the root
  std::size_t walk() {
    std::size_t visited = 0;
    std::vector<Handle> pending;
    for (Handle at = Nodes::handle((*m_nodes.read(m_root)).first); at != Handle{};) {
      const auto node = m_nodes.read(at);
      visited += (*node).tree == Nodes::Node::kTree ? 1 : 0;
      const Handle child = Nodes::handle((*node).first);
      if (child == Handle{}) {
        at = following(at, Nodes::handle((*node).next), pending);
        continue;
      }
      if constexpr (!Nodes::kReadsAreFree) {
        pending.push_back(Nodes::handle((*node).next));
      }
      at = child;
    }
    return visited;
  }

  /// Moves a node behind the children of another one, if it is a leaf: a leaf cannot end up below
  /// itself.
  void moveLeaf(Handle which, Handle below) {
    if (which == below) {
      return;
    }
    Position node = m_nodes.edit(which);
    if ((*node).children != 0) {
      return;
    }
    const Handle previous = Nodes::handle((*node).previous);
    const Handle next = Nodes::handle((*node).next);
    if (previous != Handle{}) {
      m_nodes.edit(previous)->next = (*node).next;
    }
    if (next != Handle{}) {
      m_nodes.edit(next)->previous = (*node).previous;
    }
    leave(Nodes::handle((*node).parent), previous, next);
    Position parent = m_nodes.edit(below);
    const Handle last = Nodes::handle((*parent).last);
    node->parent = (*parent).self;
    node->previous = (*parent).last;
    node->next = {};
    takeIn(parent, last, which);
  }

 private:
  // The node behind a leaf, or behind the nearest ancestor that has one. Where it costs something
  // to look at the ancestors again, what follows them was noted on the way down.
  Handle following(Handle at, Handle next, std::vector<Handle>& pending) {
    if constexpr (Nodes::kReadsAreFree) {
      while (next == Handle{} && at != m_root) {
        at = Nodes::handle((*m_nodes.read(at)).parent);
        next = Nodes::handle((*m_nodes.read(at)).next);
      }
    } else {
      for (; next == Handle{} && !pending.empty(); pending.pop_back()) {
        next = pending.back();
      }
    }
    return next;
  }

  void leave(Handle from, Handle previous, Handle next) {
    Position parent = m_nodes.edit(from);
    if (previous == Handle{}) {
      parent->first = next;
    }
    if (next == Handle{}) {
      parent->last = previous;
    }
    --parent->children;
  }

  void takeIn(Position& parent, Handle last, Handle node) {
    if (last != Handle{}) {
      m_nodes.edit(last)->next = node;
    } else {
      parent->first = node;
    }
    parent->last = node;
    ++parent->children;
  }

  Nodes m_nodes;
  Handle m_root;
};

#endif  // BENCH_SUITE_TREES_LINKEDTREE_H
