#ifndef EXAMPLES_XMLTREE_XMLNODE_H
#define EXAMPLES_XMLTREE_XMLNODE_H

#include "Indentation.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualTreeNode.h"

namespace example {

/// What a node of a document is.
enum class NodeKind { eDocument, eElement, eText, eComment, eInstruction };

/// What all nodes of a document have in common. Nodes live in the store: they hold page items, no
/// pointers, and what they name is freed by `freeTexts`, not by their destructors.
class XmlNode : public QRTVirtualTreeNode {
 public:
  virtual NodeKind kind() const = 0;

  /// Frees the strings that only this node holds. It is of no use after that.
  virtual void freeTexts(QRTVirtualMemoryMgr& manager) = 0;

  /// The white space behind the node's end.
  const Indentation& tail() const { return m_tail; }
  void setTail(const Indentation& tail) { m_tail = tail; }

 private:
  Indentation m_tail;  // stands in the base class's last, unused bytes
};

/// The node's store.
inline QRTVirtualMemoryMgr& storeOf(const QRTVirtualTreeNode& node) {
  return *node.getContainer()->getMemoryMgr();
}

}  // namespace example

#endif  // EXAMPLES_XMLTREE_XMLNODE_H
