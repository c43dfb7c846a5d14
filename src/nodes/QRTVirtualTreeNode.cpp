#include "QRTVirtualTreeNode.h"

#include <cstdint>
#include <optional>

#include "NodePlacement.h"
#include "QRTCore/QRTAssert.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"

// Editing. Each operation first gets hold of the neighbours it is going to relink and checks what
// it can see of them; only then does it write. A failed check or an unreadable neighbour therefore
// leaves the tree as it was. The store is reached through the container of the node that is asked;
// that of another node is never looked into, since it may be gone.

namespace {

// A count of children has 31 bits and wraps.
constexpr unsigned int kChildCountMask = 0x7FFFFFFFU;

using NodePin = QRTVirtualPin<QRTVirtualTreeNode>;

}  // namespace

unsigned int QRTVirtualTreeNode::m_classId = 0;
QRTThreadCriticalSection QRTVirtualTreeNode::m_classIdLock(0);

// Two neighbours, in their places while this stands, for as long as nothing else is asked of the
// store. Those in memory are only looked up, since nothing can move them then; when one is not,
// both are pinned. An edit spends most of its time waiting for its neighbours, and the fewer
// instructions there are between them the earlier the processor begins with the next one.
class QRTVirtualTreeNode::Neighbours {
 public:
  // Gets the nodes behind two links of `of`; null behind link 0.
  Neighbours(QRTVirtualTreeNode& of, unsigned long long first, unsigned long long second)
      : m_first(of.lookUp(first)), m_second(of.lookUp(second)) {
    if ((m_first == nullptr && first != 0) || (m_second == nullptr && second != 0)) [[unlikely]] {
      pinBoth(of, first, second);
    }
  }

  QRTVirtualTreeNode* first() const { return m_first; }
  QRTVirtualTreeNode* second() const { return m_second; }

 private:
  [[gnu::noinline, gnu::cold]] void pinBoth(QRTVirtualTreeNode& of, unsigned long long first,
                                            unsigned long long second) {
    Pins& pins = m_pins.emplace();
    pins.first = of.pinNeighbour(first);
    pins.second = of.pinNeighbour(second);
    m_first = pins.first.get();
    m_second = pins.second.get();
  }

  struct Pins {
    NodePin second;
    NodePin first;  // the one that is dismissed first
  };

  QRTVirtualTreeNode* m_first;   // the first neighbour; null for none
  QRTVirtualTreeNode* m_second;  // the second neighbour; null for none
  std::optional<Pins> m_pins;    // their pins, if they had to be pinned
};

QRTVirtualTreeNode::QRTVirtualTreeNode() noexcept
    : m_parent(0),
      m_firstChild(0),
      m_lastChild(0),
      m_previousSibling(0),
      m_nextSibling(0),
      m_childCount(0),
      m_parentIsAddress(0) {}

QRTVirtualTreeNode::~QRTVirtualTreeNode() = default;

unsigned int QRTVirtualTreeNode::getClassId() {
  return computeClassId(m_classId, m_classIdLock, "QRTVirtualTreeNode");
}

QRTVirtualPersistNode* QRTVirtualTreeNode::create(QRTVirtualContainer* container) {
  QRT_ASSERT(container != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  QRTVirtualMemoryMgr* const memMgr = container->getMemoryMgr();
  QRT_ASSERT(memMgr);
  return placeNode<QRTVirtualTreeNode>(*container, *memMgr);
}

unsigned int QRTVirtualTreeNode::getSize() {
  return sizeof(QRTVirtualTreeNode);
}

const char* QRTVirtualTreeNode::getClassName() {
  return "QRTVirtualTreeNode";
}

unsigned int QRTVirtualTreeNode::getClassIdentifier() {
  return getClassId();
}

void QRTVirtualTreeNode::destroy() {
  destroyInPlace(this);
}

QRTVirtualTreeNode* QRTVirtualTreeNode::getFirstChild() {
  return fetch(m_firstChild);
}

QRTVirtualTreeNode* QRTVirtualTreeNode::getLastChild() {
  return fetch(m_lastChild);
}

QRTVirtualTreeNode* QRTVirtualTreeNode::getNextSibling(int dismissThis) {
  return dismissThis != 0 ? moveTo(m_nextSibling) : fetch(m_nextSibling);
}

QRTVirtualTreeNode* QRTVirtualTreeNode::getPreviousSibling(int dismissThis) {
  return dismissThis != 0 ? moveTo(m_previousSibling) : fetch(m_previousSibling);
}

// A parent with an offset is not the root, so only an address has to be compared with it.
QRTVirtualTreeNode* QRTVirtualTreeNode::getParent(int includeRoot) {
  if (m_parentIsAddress == 0) {
    return fetch(m_parent);
  }
  QRTVirtualTreeNode* const parent = parentInProcessMemory();
  if (includeRoot == 0) {
    auto* const tree = dynamic_cast<QRTVirtualTree*>(getContainer());
    if (tree != nullptr && tree->getRootNode() == parent) {
      return nullptr;
    }
  }
  return parent;
}

// 1. There must be a child.
// 2. Get the last child.
// 3. Behind a last child: link the two and the parent.
// 4. Into an empty list: the child is first and last.
// 5. Count it.
void QRTVirtualTreeNode::appendChild(QRTVirtualTreeNode* child) {
  // Step 1
  QRT_ASSERT(child != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  checkChild(*child);
  // Step 2
  const Neighbours neighbours(*this, m_lastChild, 0);
  QRTVirtualTreeNode* const last = neighbours.first();
  if (last != nullptr) {
    // Step 3
    last->m_nextSibling = child->getPageOffset();
    child->m_previousSibling = last->getPageOffset();
    child->m_nextSibling = 0;
    child->setParentLink(*this);
    child->dirty();
    m_lastChild = child->getPageOffset();
    last->dirty();
  } else {
    // Step 4
    m_firstChild = child->getPageOffset();
    child->setParentLink(*this);
    child->m_nextSibling = 0;
    child->m_previousSibling = 0;
    child->dirty();
    m_lastChild = m_firstChild;
  }
  // Step 5
  dirty();
  ++m_childCount;
}

// 1. There must be a child.
// 2. Pin the last child.
// 3. Go along the chain to its end, giving every node its parent, and count. The chain must not
//    run into this node or its children, nor back into itself.
// 4. Join the chain to the list, now that its end is known.
void QRTVirtualTreeNode::appendChildren(QRTVirtualTreeNode* child) {
  // Step 1
  QRT_ASSERT(child != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  checkChild(*child);
  // Step 2
  const NodePin last = pinNeighbour(m_lastChild);
  QRT_ASSERT_NAMED(last || child->m_previousSibling == 0, "the chain has to begin at its head");
  // Step 3
  unsigned int count = 1;
  unsigned long long end = child->getPageOffset();
  child->setParentLink(*this);
  NodePin node = pinNeighbour(child->m_nextSibling);
  while (node) {
    checkChild(*node.get());
    QRT_ASSERT_NAMED(node->m_previousSibling == end && node.get() != child,
                     "the chain must be linked both ways and end");
    ++count;
    end = node->getPageOffset();
    node->setParentLink(*this);
    node = pinNeighbour(node->m_nextSibling);
  }
  // Step 4
  if (last) {
    last->m_nextSibling = child->getPageOffset();
    child->m_previousSibling = last->getPageOffset();
  } else {
    m_firstChild = child->getPageOffset();
  }
  m_lastChild = end;
  m_childCount = (m_childCount + count) & kChildCountMask;
}

// 1. There must be a sibling.
// 2. Get the next node, and the parent.
// 3. In the middle: link the sibling between this node and the next.
// 4. At the end: link it behind this node; it becomes the parent's last child.
// 5. Count it.
void QRTVirtualTreeNode::insertAfter(QRTVirtualTreeNode* sibling) {
  // Step 1
  QRT_ASSERT(sibling != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  checkSibling(*sibling);
  // Step 2
  const Neighbours neighbours(*this, m_nextSibling, linkToParent());
  QRTVirtualTreeNode* const next = neighbours.first();
  QRTVirtualTreeNode* const parent =
      m_parentIsAddress != 0 ? parentInProcessMemory() : neighbours.second();
  if (next != nullptr) {
    QRT_ASSERT_NAMED(next->m_previousSibling == getPageOffset(), "this node has been taken out");
    // Step 3
    sibling->m_previousSibling = next->m_previousSibling;
    sibling->m_nextSibling = m_nextSibling;
    m_nextSibling = sibling->getPageOffset();
    next->m_previousSibling = sibling->getPageOffset();
    sibling->copyParentLink(*this);
  } else {
    QRT_ASSERT_NAMED(sibling->m_nextSibling == 0, "the sibling has to be detached");
    QRT_ASSERT_NAMED(parent == nullptr || parent->m_lastChild == getPageOffset(),
                     "this node has been taken out");
    // Step 4
    m_nextSibling = sibling->getPageOffset();
    sibling->m_previousSibling = getPageOffset();
    sibling->copyParentLink(*this);
    if (parent != nullptr) {
      parent->m_lastChild = sibling->getPageOffset();
    }
  }
  // Step 5
  if (parent != nullptr) {
    ++parent->m_childCount;
  }
}

// 1. There must be a sibling.
// 2. Get the previous node, and the parent.
// 3. In the middle: link the sibling between the previous node and this one.
// 4. At the beginning: link it before this node; it becomes the parent's first child.
// 5. Count it.
void QRTVirtualTreeNode::insertBefore(QRTVirtualTreeNode* sibling) {
  // Step 1
  QRT_ASSERT(sibling != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  checkSibling(*sibling);
  // Step 2
  const Neighbours neighbours(*this, m_previousSibling, linkToParent());
  QRTVirtualTreeNode* const previous = neighbours.first();
  QRTVirtualTreeNode* const parent =
      m_parentIsAddress != 0 ? parentInProcessMemory() : neighbours.second();
  if (previous != nullptr) {
    QRT_ASSERT_NAMED(previous->m_nextSibling == getPageOffset(), "this node has been taken out");
    // Step 3
    sibling->m_previousSibling = previous->getPageOffset();
    sibling->m_nextSibling = previous->m_nextSibling;
    m_previousSibling = sibling->getPageOffset();
    previous->m_nextSibling = sibling->getPageOffset();
    sibling->copyParentLink(*this);
  } else {
    QRT_ASSERT_NAMED(parent == nullptr || parent->m_firstChild == getPageOffset(),
                     "this node has been taken out");
    // Step 4
    m_previousSibling = sibling->getPageOffset();
    sibling->m_nextSibling = getPageOffset();
    sibling->m_previousSibling = 0;
    sibling->copyParentLink(*this);
    if (parent != nullptr) {
      parent->m_firstChild = sibling->getPageOffset();
    }
  }
  // Step 5
  if (parent != nullptr) {
    ++parent->m_childCount;
  }
}

// 1. There must be an old child, of this node, and a new one.
// 2. Get the old child's neighbours, which must name it.
// 3. The new child takes the old one's place among siblings and under the parent; the old one keeps
//    its own links.
// 4. The neighbours name the new child.
// 5. So does this node, where the old one was first or last.
void QRTVirtualTreeNode::replaceChild(QRTVirtualTreeNode* oldChild, QRTVirtualTreeNode* newChild) {
  // Step 1
  QRT_ASSERT(oldChild != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  QRT_ASSERT(newChild != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  QRT_ASSERT_NAMED(isParentOf(*oldChild), "the old child is not a child of this node");
  if (newChild == oldChild) {
    return;
  }
  checkChild(*newChild);
  QRT_ASSERT_NAMED(!oldChild->isBeside(*newChild), "the new child is a child already");
  // Step 2
  const unsigned long long place = oldChild->getPageOffset();
  const Neighbours neighbours(*this, oldChild->m_previousSibling, oldChild->m_nextSibling);
  QRTVirtualTreeNode* const previous = neighbours.first();
  QRTVirtualTreeNode* const next = neighbours.second();
  QRT_ASSERT_NAMED((previous != nullptr ? previous->m_nextSibling : m_firstChild) == place,
                   "the old child has been taken out");
  QRT_ASSERT_NAMED((next != nullptr ? next->m_previousSibling : m_lastChild) == place,
                   "the old child has been taken out");
  // Step 3
  newChild->m_nextSibling = oldChild->m_nextSibling;
  newChild->m_previousSibling = oldChild->m_previousSibling;
  newChild->copyParentLink(*oldChild);
  // Steps 4 and 5
  (previous != nullptr ? previous->m_nextSibling : m_firstChild) = newChild->getPageOffset();
  (next != nullptr ? next->m_previousSibling : m_lastChild) = newChild->getPageOffset();
}

// 1. There must be a child, of this node.
// 2. Get its neighbours, which must name it, as this node must where there is none.
// 3. Join the neighbours, or make the remaining one first or last.
// 4. The child has no siblings any more.
// 5. Count it off.
void QRTVirtualTreeNode::removeChild(QRTVirtualTreeNode* child) {
  // Step 1
  QRT_ASSERT(child != NULL);  // NOLINT(modernize-use-nullptr): the error quotes this line
  QRT_ASSERT_NAMED(isParentOf(*child), "not a child of this node");
  // Step 2
  const unsigned long long place = child->getPageOffset();
  const Neighbours neighbours(*this, child->m_previousSibling, child->m_nextSibling);
  QRTVirtualTreeNode* const previous = neighbours.first();
  QRTVirtualTreeNode* const next = neighbours.second();
  QRT_ASSERT_NAMED((previous != nullptr ? previous->m_nextSibling : m_firstChild) == place,
                   "the child has been taken out before");
  QRT_ASSERT_NAMED((next != nullptr ? next->m_previousSibling : m_lastChild) == place,
                   "the child has been taken out before");
  // Step 3
  (previous != nullptr ? previous->m_nextSibling : m_firstChild) = child->m_nextSibling;
  (next != nullptr ? next->m_previousSibling : m_lastChild) = child->m_previousSibling;
  // Step 4
  child->m_nextSibling = 0;
  child->m_previousSibling = 0;
  // Step 5
  --m_childCount;
}

// 1. Without children there is nothing to do.
// 2. Pin the ends that were not given.
// 3. The ends must be children of this node.
// 4. One node alone is removed by itself; all of them together need no walk.
// 5. Go along the run and count. A run that ends before its last node is the wrong way round; one
//    that is not linked both ways, or comes back to its first node, might never end.
// 6. Pin the neighbours of the run and join them.
// 7. Count the run off.
void QRTVirtualTreeNode::removeChildren(QRTVirtualTreeNode* first, QRTVirtualTreeNode* last) {
  // Step 1
  if (m_childCount == 0) {
    return;
  }
  // Step 2
  const NodePin ownFirst = pinNeighbour(first == nullptr ? m_firstChild : 0);
  const NodePin ownLast = pinNeighbour(last == nullptr ? m_lastChild : 0);
  first = first == nullptr ? ownFirst.get() : first;
  last = last == nullptr ? ownLast.get() : last;
  // Step 3
  QRT_ASSERT_NAMED(first && isParentOf(*first), "the first is not a child of this node");
  QRT_ASSERT_NAMED(last && isParentOf(*last), "the last is not a child of this node");
  // Step 4
  if (first == last) {
    removeChild(first);
    return;
  }
  if (first->getPageOffset() == m_firstChild && last->getPageOffset() == m_lastChild) {
    m_firstChild = 0;
    m_lastChild = 0;
    m_childCount = 0;
    return;
  }
  // Step 5
  unsigned int count = 2;
  {
    unsigned long long before = first->getPageOffset();
    NodePin node = pinNeighbour(first->m_nextSibling);
    for (; node && node.get() != last; ++count) {
      QRT_ASSERT_NAMED(node->m_previousSibling == before && node.get() != first,
                       "the run must be linked both ways and end");
      before = node->getPageOffset();
      node = pinNeighbour(node->m_nextSibling);
    }
    QRT_ASSERT_NAMED(node, "the run has to end at its last node");
    QRT_ASSERT_NAMED(last->m_previousSibling == before, "the run must be linked both ways");
  }
  // Step 6
  const NodePin previous = pinNeighbour(first->m_previousSibling);
  const NodePin next = pinNeighbour(last->m_nextSibling);
  QRT_ASSERT_NAMED((previous ? previous->m_nextSibling : m_firstChild) == first->getPageOffset(),
                   "the run has been taken out before");
  QRT_ASSERT_NAMED((next ? next->m_previousSibling : m_lastChild) == last->getPageOffset(),
                   "the run has been taken out before");
  (previous ? previous->m_nextSibling : m_firstChild) = last->m_nextSibling;
  (next ? next->m_previousSibling : m_lastChild) = first->m_previousSibling;
  // Step 7
  m_childCount = (m_childCount - count) & kChildCountMask;
}

// Pins the node behind a link of this one; empty behind link 0.
NodePin QRTVirtualTreeNode::pinNeighbour(unsigned long long link) {
  if (link == 0) {
    return NodePin();
  }
  QRTVirtualContainer* const container = getContainer();
  QRT_ASSERT(container);
  QRTVirtualMemoryMgr* const memMgr = container->getMemoryMgr();
  QRT_ASSERT(memMgr);
  NodePin node(*memMgr, link);
  QRT_ASSERT_NAMED(node, "the neighbour cannot be read back");
  return node;
}

// The node behind a link of this one, unpinned; null when it has to be pinned to be had.
QRTVirtualTreeNode* QRTVirtualTreeNode::lookUp(unsigned long long link) const {
  QRTVirtualContainer* const container = getContainer();
  if (link == 0 || container == nullptr || container->getMemoryMgr() == nullptr) {
    return nullptr;
  }
  return static_cast<QRTVirtualTreeNode*>(
      static_cast<QRTVirtualPersistNode*>(container->getMemoryMgr()->getUnpinned(link)));
}

// Pins the node at an offset through this node's container; null for offset 0. Kept apart from the
// steps along a chain, which then need no stack.
QRTVirtualTreeNode* QRTVirtualTreeNode::fetch(unsigned long long offset) {
  if (offset == 0) {
    return nullptr;
  }
  QRTVirtualContainer* const container = getContainer();
  QRT_ASSERT(container);
  return static_cast<QRTVirtualTreeNode*>(container->getNode(offset));
}

// Dismisses this node and pins the one at an offset; null for offset 0. Without a store it is the
// dismiss that fails, and a node class whose own dismiss does not has no neighbour.
QRTVirtualTreeNode* QRTVirtualTreeNode::moveTo(unsigned long long offset) {
  QRTVirtualContainer* const container = getContainer();
  QRTVirtualMemoryMgr* const memMgr = container == nullptr ? nullptr : container->getMemoryMgr();
  if (memMgr == nullptr) [[unlikely]] {
    dismiss();
    return nullptr;
  }
  return static_cast<QRTVirtualTreeNode*>(
      static_cast<QRTVirtualPersistNode*>(memMgr->movePin(getPageOffset(), offset)));
}

// The parent of a node that holds its parent's address.
QRTVirtualTreeNode* QRTVirtualTreeNode::parentInProcessMemory() const {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a link is as wide on every platform
  return reinterpret_cast<QRTVirtualTreeNode*>(static_cast<std::uintptr_t>(m_parent));
}

// Whether this node lives in a store: it can be linked by its offset.
bool QRTVirtualTreeNode::isStored() const {
  return getPageOffset() != 0 && getPageOffset() != QRTVirtualPageItem::getInvalidOffset();
}

// Whether a stored node that the caller has pinned lives in this node's store.
bool QRTVirtualTreeNode::hasInStore(const QRTVirtualTreeNode& other) const {
  QRTVirtualContainer* const container = getContainer();
  return container != nullptr && (other.getContainer() == container || findsInStore(other));
}

// Whether a node that belongs to another container lives in this node's store all the same: it
// stands where this store has an object of its offset.
bool QRTVirtualTreeNode::findsInStore(const QRTVirtualTreeNode& other) const {
  QRTVirtualContainer* const container = getContainer();
  const QRTVirtualPersistNode* const found = container->getNode(other.getPageOffset());
  if (found != nullptr) {
    container->dismiss(other.getPageOffset());
  }
  return found == &other;
}

// Whether this is the first or last child of a node.
bool QRTVirtualTreeNode::isEndChildOf(const QRTVirtualTreeNode& parent) const {
  return isStored() &&
         (parent.m_firstChild == getPageOffset() || parent.m_lastChild == getPageOffset());
}

// Whether this node's sibling links lead to a node.
bool QRTVirtualTreeNode::isBeside(const QRTVirtualTreeNode& other) const {
  return other.getPageOffset() == m_nextSibling || other.getPageOffset() == m_previousSibling;
}

// Whether a node's parent link leads to this one, which it also does once it was taken out.
bool QRTVirtualTreeNode::isParentOf(const QRTVirtualTreeNode& child) const {
  const bool named = child.m_parentIsAddress != 0
                         ? child.m_parent == reinterpret_cast<std::uintptr_t>(this)
                         : child.m_parent != 0 && child.m_parent == getPageOffset();
  return named && hasInStore(child);
}

// A parent in process memory has no offset, so its children hold its address.
void QRTVirtualTreeNode::setParentLink(const QRTVirtualTreeNode& parent) {
  const bool byAddress = parent.getPageOffset() == QRTVirtualPageItem::getInvalidOffset();
  m_parentIsAddress = byAddress ? 1 : 0;
  m_parent = byAddress ? reinterpret_cast<std::uintptr_t>(&parent) : parent.getPageOffset();
}

void QRTVirtualTreeNode::copyParentLink(const QRTVirtualTreeNode& from) {
  m_parent = from.m_parent;
  m_parentIsAddress = from.m_parentIsAddress;
}

// What can be told of a node about to become a child without pinning another.
void QRTVirtualTreeNode::checkChild(const QRTVirtualTreeNode& child) const {
  QRT_ASSERT_NAMED(getPageOffset() != 0, "a parent is made by create or is a tree's root");
  QRT_ASSERT_NAMED(child.isStored(), "a child is made by create");
  QRT_ASSERT_NAMED(&child != this && !isEndChildOf(child), "a node cannot stand below itself");
  QRT_ASSERT_NAMED(hasInStore(child), "a tree's nodes share one store");
  QRT_ASSERT_NAMED(!child.isEndChildOf(*this), "the node is a child already");
}

// What can be told of a node about to stand beside this one without pinning another.
void QRTVirtualTreeNode::checkSibling(const QRTVirtualTreeNode& sibling) const {
  QRT_ASSERT_NAMED(isStored() && sibling.isStored(), "siblings are made by create");
  QRT_ASSERT_NAMED(&sibling != this && !isEndChildOf(sibling), "a node cannot stand below itself");
  QRT_ASSERT_NAMED(hasInStore(sibling), "a tree's nodes share one store");
  QRT_ASSERT_NAMED(!isBeside(sibling), "the nodes are siblings already");
}
