#ifndef QRTVIRTUALTREE_H
#define QRTVIRTUALTREE_H

#include <iosfwd>
#include <type_traits>

#include "QRTCore/QRTExport.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualTreeNode.h"

/// A container that holds one tree. Its root lives in process memory: it is never paged, needs no
/// pin and is reached by address. Everything below it lives in the container's store.
class QRT_EXPORT QRTVirtualTree : public QRTVirtualContainer {
 public:
  /// Makes a tree with a store of its own and a root without children.
  /// @param memorySize  bytes of stored objects to hold in memory; 0 means 4,194,304
  /// @throws QRTOutOfMemoryError, or QRTStdExceptionError when the manager fails otherwise
  QRTVirtualTree(unsigned int memorySize, unsigned int, int);

  /// The same with the size alone. Any unsigned number; a plain 0 is a null manager, see below.
  template <class Size, class = std::enable_if_t<std::is_unsigned<Size>::value>>
  explicit QRTVirtualTree(Size memorySize) : QRTVirtualTree(memorySize, 0U, 0) {}

  /// The same for a size that may exceed 4 GiB - 1, such as 8ULL << 30.
  template <class Size, QRTVirtualMemoryMgr::WideSize<Size> = 0>
  QRTVirtualTree(Size memorySize, unsigned int, int)
      : QRTVirtualContainer(memorySize, 0U, 0), m_rootNode(nullptr) {
    createRootNode();
  }

  /// The same; only `memorySize` has an effect.
  QRTVirtualTree(QRTVirtualMemoryMgr::mappertype, unsigned int memorySize, unsigned int, int);

  template <class Size, QRTVirtualMemoryMgr::WideSize<Size> = 0>
  QRTVirtualTree(QRTVirtualMemoryMgr::mappertype, Size memorySize, unsigned int, int)
      : QRTVirtualTree(memorySize, 0U, 0) {}

  /// Makes a tree in a borrowed store, where its nodes stay when the tree goes.
  /// @param memMgr  must outlive the tree
  /// @throws QRTOutOfMemoryError
  explicit QRTVirtualTree(QRTVirtualMemoryMgr* memMgr);

  /// Deletes the root, then the container's own store with every node. Nodes are not visited. Lets
  /// no error out.
  ~QRTVirtualTree() override;

  /// @return the root, never null; it stays the tree's, and no dismiss is owed
  QRTVirtualTreeNode* getRootNode();

  /// Writes a node, the siblings that follow it and all their subtrees, one line each, a child one
  /// dash deeper than its parent: the class name, then what the node's `dump` writes, which
  /// begins with decimal numbers. A node's links are read once its `dump` has returned, so it may
  /// make its children there. Holds one pin on each level of the path it is on, 16 bytes beside it,
  /// and as much stack for a deep tree as for a flat one. The stream's format stays as it was.
  /// @param node  where to begin, a node of this tree; null or the root for the whole tree
  /// @param os    receives the text; every line is flushed
  /// @throws QRTAssertError when a node cannot be read back, or when links that damage has tied to
  ///         a ring have led around; std::bad_alloc; what a node's `dump` or the stream raises. All
  ///         pins are back by then.
  /// Cost: O(nodes written) plus one dash per level and node; may read pages back
  void dumpTree(QRTVirtualTreeNode* node, std::ostream& os);

 private:
  void createRootNode();
  void dumpTreeNode(QRTVirtualTreeNode* node, std::ostream& os, int depth);

  QRTVirtualTreeNode* m_rootNode;  // the root, in process memory, owned
};

#endif  // QRTVIRTUALTREE_H
