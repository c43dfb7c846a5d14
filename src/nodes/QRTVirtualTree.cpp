#include "QRTVirtualTree.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ostream>
#include <string_view>

#include "QRTCore/QRTAssert.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTreeRange.h"

namespace {

// Dashes go out in blocks: far down a deep tree they are most of the text.
constexpr auto kDashes = [] {
  std::array<char, 1024> dashes{};
  dashes.fill('-');
  return dashes;
}();

// Writes one node's line.
void dumpNode(QRTVirtualTreeNode& node, std::ostream& os, unsigned int depth) {
  for (std::size_t left = depth; left != 0;) {
    const std::size_t count = std::min(left, kDashes.size());
    os << std::string_view(kDashes.data(), count);
    left -= count;
  }
  os << "Node: Class: " << node.getClassName();
  node.dump(os);
  os << std::endl;
}

}  // namespace

QRTVirtualTree::QRTVirtualTree(unsigned int memorySize, unsigned int second, int third)
    : QRTVirtualContainer(memorySize, second, third), m_rootNode(nullptr) {
  createRootNode();
}

QRTVirtualTree::QRTVirtualTree(QRTVirtualMemoryMgr::mappertype type, unsigned int memorySize,
                               unsigned int second, int third)
    : QRTVirtualContainer(type, memorySize, second, third), m_rootNode(nullptr) {
  createRootNode();
}

QRTVirtualTree::QRTVirtualTree(QRTVirtualMemoryMgr* memMgr)
    : QRTVirtualContainer(memMgr), m_rootNode(nullptr) {
  createRootNode();
}

QRTVirtualTree::~QRTVirtualTree() {
  try {
    delete m_rootNode;
    m_rootNode = nullptr;
  } catch (...) {  // NOLINT(bugprone-empty-catch): a destructor lets nothing out
  }
}

QRTVirtualTreeNode* QRTVirtualTree::getRootNode() {
  return m_rootNode;
}

void QRTVirtualTree::createRootNode() {
  m_rootNode = QRT_GUARD_ALLOC(new QRTVirtualTreeNode);
  m_rootNode->setPageOffset(QRTVirtualPageItem::getInvalidOffset());
  m_rootNode->setContainer(this);
  m_rootNode->onInit();
}

// 1. Begin at the node given, or at the root.
// 2. Write the heading.
// 3. The root, which cannot be looked up by offset, has no siblings: write it and its subtree.
// 4. Any other node is looked up and pinned once more; write it, the siblings that follow, and
//    their subtrees.
// 5. Close the dump.
void QRTVirtualTree::dumpTree(QRTVirtualTreeNode* node, std::ostream& os) {
  // Step 1
  QRTVirtualTreeNode* const start = node == nullptr ? m_rootNode : node;
  // Step 2
  os << "**Dump of Virtual Tree**" << std::endl << std::endl;
  if (start == m_rootNode) {
    // Step 3
    dumpNode(*start, os, 0);
    dumpTreeNode(start, os, 1);
  } else {
    // Step 4
    QRTVirtualPin<QRTVirtualTreeNode> current(getNode(start->getPageOffset()));
    while (current) {
      dumpNode(*current, os, 0);
      dumpTreeNode(current.get(), os, 1);
      const unsigned long long next = current->getNextSiblingPageItem().getOffset();
      current = QRTVirtualPin<QRTVirtualTreeNode>(getNode(next));
      QRT_ASSERT_NAMED(current || next == 0, "a node cannot be read back");
    }
  }
  // Step 5
  os << std::endl;
}

// Writes the subtrees below a node, without the node itself.
void QRTVirtualTree::dumpTreeNode(QRTVirtualTreeNode* node, std::ostream& os, int depth) {
  QRT_ASSERT(node);
  for (QRTVirtualTreeWalk walk(*node); !walk.atEnd(); walk.advance()) {
    if (walk.depth() != 0) {
      dumpNode(*walk.node(), os, walk.depth() - 1 + static_cast<unsigned int>(depth));
    }
  }
}
