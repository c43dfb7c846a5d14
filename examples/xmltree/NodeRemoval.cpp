#include "NodeRemoval.h"

#include "DocumentWalk.h"

namespace example {

namespace {

void freeNode(QRTVirtualContainer& container, unsigned long long offset) {
  QRTVirtualPin<XmlNode> node(container.getNode(offset));
  if (node) {
    node->freeTexts(*container.getMemoryMgr());
    QRTVirtualPageItem item = node->getVirtualPageItem();
    node->destroy();
    node.reset();
    container.free(item);
  }
}

}  // namespace

// A node is freed when the walk has left it for the next one: nothing that is still to come leads
// back to it, for its parent is left, not entered, after its last child.
void freeSubtree(QRTVirtualContainer& container, unsigned long long offset) {
  QRTVirtualPin<XmlNode> top(container.getNode(offset));
  if (!top) {
    return;
  }
  DocumentWalk walk(*top);
  top.reset();
  while (!walk.atEnd()) {
    const unsigned long long left = walk.entering() ? 0 : walk.node().getPageOffset();
    walk.advance();
    if (left != 0) {
      freeNode(container, left);
    }
  }
}

}  // namespace example
