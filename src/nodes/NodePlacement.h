#ifndef NODES_NODEPLACEMENT_H
#define NODES_NODEPLACEMENT_H

#include <new>

#include "QRTVirtualContainer.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPersistNode.h"

/// Makes a node of one class in a block of the store, as the class's `create` does once it has
/// checked its argument:
///   1. allocate a block, which comes pinned;
///   2. construct the node in it;
///   3. tell it where it lives and whom it belongs to, then let it initialise itself.
template <class Node>
Node* placeNode(QRTVirtualContainer& container, QRTVirtualMemoryMgr& memMgr) {
  // Step 1
  QRTVirtualPageItem item;
  void* const block = memMgr.alloc(sizeof(Node), item);
  // Step 2
  Node* const node = new (block) Node;
  // Step 3
  node->setPageOffset(item.getOffset());
  node->setContainer(&container);
  node->onInit();
  return node;
}

#endif  // NODES_NODEPLACEMENT_H
