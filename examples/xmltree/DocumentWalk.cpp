#include "DocumentWalk.h"

#include <stdexcept>
#include <string>

namespace example {

DocumentWalk::DocumentWalk(XmlNode& start)
    : m_container(*start.getContainer()), m_start(start.getPageOffset()) {
  moveTo(m_start, true);
}

// 1. From an entered node go down to its first child; without one, leave it.
// 2. Leaving the start ends the walk.
// 3. From another node that is left go on to its sibling, and after the last one leave the parent.
void DocumentWalk::advance() {
  const std::uint64_t offset = m_node->getPageOffset();
  // Step 1
  if (m_entering) {
    const std::uint64_t child = m_skip ? 0 : m_node->getFirstChildPageItem().getOffset();
    m_skip = false;
    if (child != 0) {
      ++m_depth;
      moveTo(child, true);
    } else {
      m_entering = false;
    }
    return;
  }
  // Step 2
  if (offset == m_start) {
    m_node.reset();
    return;
  }
  // Step 3
  const std::uint64_t sibling = m_node->getNextSiblingPageItem().getOffset();
  if (sibling != 0) {
    moveTo(sibling, true);
  } else {
    --m_depth;
    moveTo(m_node->getParentPageItem().getOffset(), false);
  }
}

void DocumentWalk::moveTo(std::uint64_t offset, bool entering) {
  m_node = QRTVirtualPin<XmlNode>(m_container.getNode(offset));
  m_entering = entering;
  if (!m_node) {
    throw std::runtime_error(std::string("a node cannot be read back: ") +
                             m_container.getMemoryMgr()->getLastStoreError());
  }
}

}  // namespace example
