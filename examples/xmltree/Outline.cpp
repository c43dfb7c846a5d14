#include "Outline.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "ByteSize.h"
#include "NodeText.h"
#include "QRTVirtualPin.h"

namespace example {

namespace {

/// Whether a text is all there is in a node: it stands in the node's own line then.
bool hasOnlyText(XmlNode& node) {
  const QRTVirtualPin<XmlNode> child(node.getChildCount() == 1 ? node.getFirstChild() : nullptr);
  return child && child->kind() == NodeKind::eText;
}

}  // namespace

void Outline::draw(XmlNode& document) {
  m_os << describe(document) << '\n';
  drawChildren(*document.getContainer(), document.getFirstChildPageItem().getOffset(),
               document.getChildCount(), "", 1);
}

/// @param offset  the first child; no pin is held while its own children are drawn
void Outline::drawChildren(QRTVirtualContainer& container, unsigned long long offset,
                           unsigned int count, const std::string& prefix, unsigned int depth) {
  const unsigned int shown = std::min(count, m_children);
  for (unsigned int number = 0; number < shown; ++number) {
    QRTVirtualPin<XmlNode> node(container.getNode(offset));
    if (!node) {
      throw std::runtime_error(std::string("a node cannot be read back: ") +
                               container.getMemoryMgr()->getLastStoreError());
    }
    const bool last = number + 1 == count;
    const unsigned int grandchildren = hasOnlyText(*node) ? 0 : node->getChildCount();
    const unsigned long long firstGrandchild = node->getFirstChildPageItem().getOffset();
    offset = node->getNextSiblingPageItem().getOffset();
    m_os << prefix << (last ? "└── " : "├── ") << describe(*node) << '\n';
    node.reset();
    const std::string below = prefix + (last ? "    " : "│   ");
    if (depth < m_depth) {
      drawChildren(container, firstGrandchild, grandchildren, below, depth + 1);
    } else if (grandchildren != 0) {
      m_os << below << "└── ... " << formatCount(grandchildren) << " below\n";
    }
  }
  if (shown < count) {
    m_os << prefix << "└── ... " << formatCount(count - shown) << " more\n";
  }
}

}  // namespace example
