#ifndef QRTVIRTUALTREENODE_H
#define QRTVIRTUALTREENODE_H

#include "QRTCore/QRTExport.h"
#include "QRTVirtualPageItem.h"
#include "QRTVirtualPersistNode.h"

template <class T>
class QRTVirtualPin;

/// A stored node that can sit in a tree: it knows its parent, first and last child, neighbours and
/// how many children it has. Links are page offsets, so a tree of any size takes process memory
/// only for what is pinned. A parent in process memory, such as a QRTVirtualTree's root, has no
/// offset; its children hold its address.
///
/// Every operation that gives a node gives it pinned and the caller owes a `dismiss` for it;
/// dismissing a root is harmless, so every result may be treated alike. QRTVirtualPin,
/// QRTVirtualChildren and QRTVirtualSubtree do that by themselves.
///
/// Editing expects `this` and every node handed in to be pinned by the caller and leaves these pins
/// alone. Mistakes that would damage a tree raise an assertion before anything has changed where
/// that costs no extra pin: a null node, a node that is not stored or lives in another store, one
/// that is attached beside the place of the edit, a removed node that is not a child, a reversed
/// run, a neighbour that cannot be read back. Attaching a node that sits elsewhere in a tree, or
/// above `this` by more than one level, is not noticed: remove a node before you attach it again.
/// The store is reached through the container of `this` alone; that of a node handed in may be
/// gone. Every edit except those of a run costs O(1) and pins at most two more nodes, for as long
/// as it takes; each may read pages back.
class QRT_EXPORT QRTVirtualTreeNode : public QRTVirtualPersistNode {
 public:
  /// Makes a node that is linked to nothing.
  QRTVirtualTreeNode() noexcept;

  /// Clears the container; links and children stay as they are.
  ~QRTVirtualTreeNode() override;

  /// See QRTVirtualPersistNode::getClassId.
  static unsigned int getClassId();

  /// Makes a detached tree node; see QRTVirtualPersistNode::create.
  static QRTVirtualPersistNode* create(QRTVirtualContainer* container);

  /// @return the first child, pinned; null when there is none or it cannot be read back
  QRTVirtualTreeNode* getFirstChild();

  /// @return the last child, pinned; null when there is none or it cannot be read back
  QRTVirtualTreeNode* getLastChild();

  /// Moves on to the next sibling.
  /// @param dismissThis  non-zero to dismiss this node, also when there is no sibling; so a loop
  ///                     from `getFirstChild` to null walks a chain with one pin at a time
  /// @return the sibling, pinned; null when there is none or it cannot be read back
  /// @throws QRTAssertError as `dismiss` does, when this node is to be dismissed
  QRTVirtualTreeNode* getNextSibling(int dismissThis);

  /// Moves on to the previous sibling; otherwise as `getNextSibling`.
  QRTVirtualTreeNode* getPreviousSibling(int dismissThis);

  /// @param includeRoot  0 to get null in place of the container's root node
  /// @return the parent, pinned unless it lives in process memory; null when there is none or it
  ///         cannot be read back
  QRTVirtualTreeNode* getParent(int includeRoot);

  /// The items below carry a neighbour's offset, 0 for none, and size 0. They pin nothing.
  QRTVirtualPageItem getFirstChildPageItem() { return QRTVirtualPageItem(m_firstChild, 0); }
  QRTVirtualPageItem getLastChildPageItem() { return QRTVirtualPageItem(m_lastChild, 0); }
  QRTVirtualPageItem getNextSiblingPageItem() { return QRTVirtualPageItem(m_nextSibling, 0); }
  QRTVirtualPageItem getPreviousSiblingPageItem() {
    return QRTVirtualPageItem(m_previousSibling, 0);
  }
  /// The offset is QRTVirtualPageItem::kInvalidOffset for a parent in process memory.
  QRTVirtualPageItem getParentPageItem() {
    return QRTVirtualPageItem(
        m_parentIsAddress != 0 ? QRTVirtualPageItem::getInvalidOffset() : m_parent, 0);
  }

  /// @return 1 when there are children, else 0
  int hasChildren() { return m_childCount != 0 ? 1 : 0; }

  /// @return number of children, modulo 2^31
  unsigned int getChildCount() const { return m_childCount; }

  /// Makes a detached node the last child.
  /// @param child  the node, with its own subtree
  /// @throws QRTAssertError as the class describes
  void appendChild(QRTVirtualTreeNode* child);

  /// Makes a detached node and all that follow it through their next links the last children.
  /// @param child  head of the chain, which ends at the first node without a next sibling
  /// @throws QRTAssertError as the class describes; a chain that turns out damaged half-way stays
  ///         detached, its nodes so far naming this node as parent
  /// Cost: O(nodes of the chain), each pinned in turn
  void appendChildren(QRTVirtualTreeNode* child);

  /// Puts a detached node directly behind this one, under the same parent if there is one.
  /// @param sibling  the node; its next link must be 0, as it is after `create` and `removeChild`
  /// @throws QRTAssertError as the class describes
  void insertAfter(QRTVirtualTreeNode* sibling);

  /// Puts a detached node directly before this one, under the same parent if there is one.
  /// @param sibling  the node
  /// @throws QRTAssertError as the class describes
  void insertBefore(QRTVirtualTreeNode* sibling);

  /// Puts a detached node in the place of a child. The child keeps its links as they were.
  /// @param oldChild  a child of this node
  /// @param newChild  the node to take its place
  /// @throws QRTAssertError as the class describes
  void replaceChild(QRTVirtualTreeNode* oldChild, QRTVirtualTreeNode* newChild);

  /// Takes a child out, with its subtree. It keeps its parent link and loses its siblings.
  /// @param child  a child of this node
  /// @throws QRTAssertError as the class describes
  void removeChild(QRTVirtualTreeNode* child);

  /// Takes a run of children out. They keep all their links.
  /// @param first  first of the run; null for the first child
  /// @param last   last of the run, not before `first`; null for the last child
  /// @throws QRTAssertError as the class describes, and for a run whose links do not agree
  /// Cost: O(1) for all children, else O(length of the run), each pinned in turn
  void removeChildren(QRTVirtualTreeNode* first, QRTVirtualTreeNode* last);

  unsigned int getSize() override;
  const char* getClassName() override;
  unsigned int getClassIdentifier() override;
  void destroy() override;

 private:
  class Neighbours;

  QRTVirtualPin<QRTVirtualTreeNode> pinNeighbour(unsigned long long link);
  QRTVirtualTreeNode* lookUp(unsigned long long link) const;
  // 0 as well for a parent in process memory, which is there without being looked up.
  unsigned long long linkToParent() const { return m_parentIsAddress != 0 ? 0 : m_parent; }
  [[gnu::noinline]] QRTVirtualTreeNode* fetch(unsigned long long offset);
  QRTVirtualTreeNode* moveTo(unsigned long long offset);
  QRTVirtualTreeNode* parentInProcessMemory() const;
  bool isStored() const;
  bool hasInStore(const QRTVirtualTreeNode& other) const;
  [[gnu::noinline, gnu::cold]] bool findsInStore(const QRTVirtualTreeNode& other) const;
  bool isEndChildOf(const QRTVirtualTreeNode& parent) const;
  bool isBeside(const QRTVirtualTreeNode& other) const;
  bool isParentOf(const QRTVirtualTreeNode& child) const;
  void setParentLink(const QRTVirtualTreeNode& parent);
  void copyParentLink(const QRTVirtualTreeNode& from);
  void checkChild(const QRTVirtualTreeNode& child) const;
  void checkSibling(const QRTVirtualTreeNode& sibling) const;

  unsigned long long m_parent;           // offset, or address, of the parent; 0 for none
  unsigned long long m_firstChild;       // offset of the first child; 0 for none
  unsigned long long m_lastChild;        // offset of the last child; 0 for none
  unsigned long long m_previousSibling;  // offset of the previous sibling; 0 for none
  unsigned long long m_nextSibling;      // offset of the next sibling; 0 for none
  unsigned int m_childCount : 31;        // number of children
  unsigned int m_parentIsAddress : 1;    // whether m_parent holds an address

  static unsigned int m_classId;                  // check value of the class name; 0 until computed
  static QRTThreadCriticalSection m_classIdLock;  // guards the first computation
};

#endif  // QRTVIRTUALTREENODE_H
