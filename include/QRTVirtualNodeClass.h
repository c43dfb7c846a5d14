#ifndef QRTVIRTUALNODECLASS_H
#define QRTVIRTUALNODECLASS_H

#include <new>

#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTUtCrc32.h"
#include "QRTVirtualContainer.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTreeNode.h"

/// Writes what every node class of a host has to say about itself: creator, identifier, size, name
/// and `destroy`. Header-only, C++17:
///
///     struct Person : QRTVirtualNodeClass<Person> {
///       static constexpr const char* kClassName = "Person";
///       void dump(std::ostream& os) override { os << " born " << born; }
///       int born = 0;
///     };
///     tree.registerNodeCreator(Person::getClassId(), Person::create);
///
/// @tparam Node  the class itself; needs a default constructor and `kClassName`, and an alignment
///               of at most 8
/// @tparam Base  QRTVirtualTreeNode or another node class
template <class Node, class Base = QRTVirtualTreeNode>
class QRTVirtualNodeClass : public Base {
 public:
  /// See QRTVirtualPersistNode::getClassId.
  static unsigned int getClassId() {
    static const unsigned int id = QRTUtCrc32::crc32(
        0, reinterpret_cast<const unsigned char*>(Node::kClassName), lengthOf(Node::kClassName));
    return id;
  }

  /// See QRTVirtualPersistNode::create; when the constructor raises, the block is freed.
  static QRTVirtualPersistNode* create(QRTVirtualContainer* container) {
    static_assert(alignof(Node) <= 8, "stored objects are aligned for 8 bytes at most");
    QRT_ASSERT(container);
    QRTVirtualMemoryMgr* const memMgr = container->getMemoryMgr();
    QRT_ASSERT(memMgr);
    QRTVirtualPageItem item;
    void* const block = memMgr->alloc(sizeof(Node), item);
    Node* node = nullptr;
    try {
      node = new (block) Node;
    } catch (...) {
      memMgr->dismiss(item);
      memMgr->free(item);
      throw;
    }
    node->setPageOffset(item.getOffset());
    node->setContainer(container);
    node->onInit();
    return node;
  }

  /// Makes a node through the container's registry, so by another creator than the class's own if
  /// that is what the host registered.
  /// @return the node's pin, not empty
  /// @throws QRTAssertError, which names the class identifier, when the class is not registered;
  ///         what QRTVirtualContainer::createNode throws
  static QRTVirtualPin<Node> make(QRTVirtualContainer& container) {
    return QRTVirtualPin<Node>(container.createRegisteredNode(Node::getClassId()));
  }

  unsigned int getSize() override { return sizeof(Node); }
  const char* getClassName() override { return Node::kClassName; }
  unsigned int getClassIdentifier() override { return getClassId(); }
  void destroy() override { Base::destroyInPlace(static_cast<Node*>(this)); }

 private:
  static constexpr unsigned int lengthOf(const char* text) {
    unsigned int length = 0;
    while (text[length] != '\0') {
      ++length;
    }
    return length;
  }
};

#endif  // QRTVIRTUALNODECLASS_H
