#ifndef EXAMPLES_XMLTREE_DOCUMENTWALK_H
#define EXAMPLES_XMLTREE_DOCUMENTWALK_H

#include <cstdint>

#include "QRTVirtualPin.h"
#include "XmlNode.h"

namespace example {

/// Goes through a node and everything below it in document order and comes to every node twice: on
/// entering it and, its children done, on leaving it. Finds its way back by the nodes' own links,
/// so it takes one pin and no memory however deep the tree is.
class DocumentWalk {
 public:
  /// Begins by entering a node of a store. @throws as `advance`
  explicit DocumentWalk(XmlNode& start);

  bool atEnd() const { return !m_node; }
  bool entering() const { return m_entering; }

  /// The node the walk is at, pinned by the walk until it moves on.
  XmlNode& node() const { return *m_node; }

  /// Levels between the start, which has 0, and the node the walk is at.
  std::uint64_t depth() const { return m_depth; }

  /// On entering a node: leaves out what is below it.
  void skipChildren() { m_skip = true; }

  /// Moves on. @throws std::runtime_error when a node cannot be read back
  void advance();

 private:
  void moveTo(std::uint64_t offset, bool entering);

  QRTVirtualContainer& m_container;  // not owned
  const std::uint64_t m_start;       // offset of the node where the walk began
  QRTVirtualPin<XmlNode> m_node;     // the node the walk is at
  bool m_entering = true;            // whether it enters or leaves
  bool m_skip = false;               // whether to leave out the children
  std::uint64_t m_depth = 0;         // levels below the start
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_DOCUMENTWALK_H
