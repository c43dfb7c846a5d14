#ifndef QRTVIRTUALPERSISTNODE_H
#define QRTVIRTUALPERSISTNODE_H

#include <iosfwd>
#include <new>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTThreadCriticalSection.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualPageItem.h"

/// The base of objects that live in the store instead of the process heap. A node stands in a
/// stored block, virtual-table pointer included, and knows its own page offset and container; it
/// is reached by offset through QRTVirtualContainer::getNode, which pins it. A pointer to a node is
/// good while the node is pinned. Stored nodes mean something only to the process that made them.
///
/// A class of your own derives from this or from QRTVirtualTreeNode, as its first base, holds no
/// pointers to what may move, and overrides `getSize`, `getClassName`, `getClassIdentifier` and
/// `destroy`; QRTVirtualNodeClass writes these for it. `docs/nodes.md` shows both ways.
///
/// Only `getClassId` and `getClassIdentifier` may be called by several threads at once.
class QRT_EXPORT QRTVirtualPersistNode {
 public:
  /// Makes a node with offset 0 and no container; `create` sets both.
  QRTVirtualPersistNode() noexcept : m_pageOffset(0), m_container(nullptr) {}

  /// @return the identifier under which this class is registered: the check value of its name,
  ///         computed once. Throws std::system_error when the first call cannot lock.
  static unsigned int getClassId();

  /// Makes a node of this class in a container's store.
  /// @param container  the container it will belong to
  /// @return the node, pinned once, for which the caller owes a dismiss
  /// @throws QRTAssertError without a container or manager; QRTOutOfMemoryError when no room can be
  ///         had; what `onInit` raises, and the node then stays allocated and pinned
  /// Cost: as QRTVirtualMemoryMgr::alloc
  static QRTVirtualPersistNode* create(QRTVirtualContainer* container);

  /// Takes one pin of this node away. Without another pin the pointer is not to be used any more.
  /// A node in process memory ignores it.
  /// @throws QRTAssertError when the node has no container, or its container no manager
  /// Cost: O(1), never touches the disk
  void dismiss();

  /// @return the item that names this node's block, as QRTVirtualContainer::free wants it
  QRTVirtualPageItem getVirtualPageItem();

  /// Kept for hosts that call it: changes to a pinned node are kept anyway. Does nothing.
  void dirty() {}

  /// @return the node's page offset; 0 before `create` has set it,
  ///         QRTVirtualPageItem::kInvalidOffset for a node in process memory
  unsigned long long getPageOffset() const { return m_pageOffset; }

  /// @param offset  the node's page offset
  void setPageOffset(unsigned long long offset) { m_pageOffset = offset; }

  /// @return the container the node belongs to; null before `create` has set it and after `destroy`
  QRTVirtualContainer* getContainer() const { return m_container; }

  /// @param container  the container the node belongs to; must outlive the node
  void setContainer(QRTVirtualContainer* container) { m_container = container; }

  /// @return bytes of an object of this node's class
  virtual unsigned int getSize();

  /// @return the name of this node's class
  virtual const char* getClassName();

  /// @return the class identifier of this node's class; see `getClassId`
  virtual unsigned int getClassIdentifier();

  /// Runs the destructor of the node's class in place and leaves a bare QRTVirtualPersistNode with
  /// the same offset and no container. Neither dismisses nor frees the block; free it with the
  /// item that `getVirtualPageItem` gave before. Throws nothing.
  virtual void destroy();

  /// Clears the container, also for whoever looks at the block afterwards: a `destroy` may run the
  /// class's destructor and nothing else. `delete` is only for nodes in process memory.
  virtual ~QRTVirtualPersistNode();

  /// Writes the node's own data behind its class name in a dump. Writes nothing here.
  /// @param os  receives the text
  virtual void dump(std::ostream& os);

  /// Called by `create` once the node has its offset and container. Does nothing here.
  virtual void onInit();

 protected:
  /// What `getClassId` of a node class does.
  /// @param classId  the class's cached identifier, 0 at first
  /// @param lock     guards its first computation
  /// @param name     the class's name
  /// @return the identifier
  static unsigned int computeClassId(unsigned int& classId, QRTThreadCriticalSection& lock,
                                     const char* name);

  /// What `destroy` of a node class does, called with `this`.
  template <class Node>
  static void destroyInPlace(Node* node) noexcept {
    QRTVirtualPersistNode* const bare = node;
    const unsigned long long offset = bare->getPageOffset();
    node->~Node();
    (new (static_cast<void*>(bare)) QRTVirtualPersistNode)->setPageOffset(offset);
  }

 private:
  unsigned long long m_pageOffset;   // offset of the block that holds this node
  QRTVirtualContainer* m_container;  // the container this belongs to, not owned

  static unsigned int m_classId;                  // check value of the class name; 0 until computed
  static QRTThreadCriticalSection m_classIdLock;  // guards the first computation
};

#endif  // QRTVIRTUALPERSISTNODE_H
