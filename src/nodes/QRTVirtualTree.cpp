#include "QRTVirtualTree.h"

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTDecimalFormat.h"
#include "QRTVirtualTreeRange.h"

namespace {

// The nodes that a dump is at, one on each level of the tree and each pinned once. They stand in
// memory instead of the call stack, so that a tree may be of any depth. Links that damage has tied
// to a ring, along siblings or downwards, raise an error. However the dump ends, the pins go back.
class DumpPath {
 public:
  explicit DumpPath(QRTVirtualContainer& container) : m_container(container) {}

  ~DumpPath() {
    for (const Level& level : m_levels) {
      if (level.node != nullptr) {
        m_container.dismiss(level.offset);
      }
    }
  }
  DumpPath(const DumpPath&) = delete;
  DumpPath& operator=(const DumpPath&) = delete;

  bool empty() const { return m_levels.empty(); }
  std::size_t levels() const { return m_levels.size(); }
  QRTVirtualTreeNode& deepest() const { return *m_levels.back().node; }

  // Goes one level down, to the node at an offset.
  void descend(unsigned long long offset) {
    checkRing(offset);
    m_levels.push_back({nullptr, offset});
    Level& level = m_levels.back();
    level.node = static_cast<QRTVirtualTreeNode*>(m_container.getNode(offset));
    QRT_ASSERT_NAMED(level.node, "a node cannot be read back");
  }

  // Moves the deepest pin along its chain of siblings; behind the end of the chain, that of the
  // level above.
  void advance() {
    while (!m_levels.empty()) {
      Level& level = m_levels.back();
      const unsigned long long next = level.node->getNextSiblingPageItem().getOffset();
      checkRing(next);
      level.node = static_cast<QRTVirtualTreeNode*>(static_cast<QRTVirtualPersistNode*>(
          m_container.getMemoryMgr()->movePin(level.offset, next)));
      level.offset = next;
      if (next != 0) {
        QRT_ASSERT_NAMED(level.node, "a node cannot be read back");
        return;
      }
      m_levels.pop_back();
    }
  }

 private:
  void checkRing(unsigned long long next) {
    QRT_ASSERT_NAMED(next == 0 || !m_ring.isBack(next),
                     "the links of the tree lead around in a ring");
  }

  struct Level {
    QRTVirtualTreeNode* node;   // the node, pinned; null when it could not be
    unsigned long long offset;  // its offset
  };

  QRTVirtualContainer& m_container;  // whose nodes are dumped
  std::vector<Level> m_levels;       // the path, deepest last
  QRTVirtualRingCheck m_ring;        // whether the links lead around
};

// Writes one node's line. A node's own text begins in decimal, whatever the one before has left.
void dumpNode(QRTVirtualTreeNode& node, std::ostream& os, const std::string& dashes) {
  const QRTDecimalFormat decimal(os);
  os << dashes << "Node: Class: " << node.getClassName();
  node.dump(os);
  os << std::endl;
}

// Writes a node and the siblings that follow it, each with its subtree. Links are read only when
// they are followed: a node may make its children in its `dump`.
void dumpChain(QRTVirtualContainer& container, unsigned long long first, std::ostream& os,
               std::size_t depth) {
  if (first == 0) {
    return;
  }
  DumpPath path(container);
  std::string dashes;
  path.descend(first);
  while (!path.empty()) {
    dashes.resize(depth + path.levels() - 1, '-');
    dumpNode(path.deepest(), os, dashes);
    const unsigned long long child = path.deepest().getFirstChildPageItem().getOffset();
    if (child != 0) {
      path.descend(child);
    } else {
      path.advance();
    }
  }
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
    dumpNode(*start, os, "");
    dumpTreeNode(start, os, 1);
  } else if (start->getPageOffset() != QRTVirtualPageItem::getInvalidOffset()) {
    // Step 4
    dumpChain(*this, start->getPageOffset(), os, 0);
  }
  // Step 5
  os << std::endl;
}

// Writes the subtrees below a node, without the node itself.
void QRTVirtualTree::dumpTreeNode(QRTVirtualTreeNode* node, std::ostream& os, int depth) {
  QRT_ASSERT(node);
  dumpChain(*this, node->getFirstChildPageItem().getOffset(), os, static_cast<std::size_t>(depth));
}
