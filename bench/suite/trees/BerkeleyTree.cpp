// Nodes packed in the pages of a Berkeley DB memory pool, named by page and slot.

#include <cstddef>
#include <new>

#include "LinkedTree.h"
#include "TreeNode.h"
#include "TreeWork.h"
#include "common/BerkeleyPool.h"

namespace {

template <class>
using Number = std::uint64_t;  // page * kSlots + slot, from 1 on

class BerkeleyNodes {
 public:
  static constexpr bool kReadsAreFree = false;
  using Node = TreeNode<Number>;
  using Handle = std::uint64_t;

  /// A node in its pinned page.
  class Pin {
   public:
    Pin(suite::BerkeleyPool::Pin page, std::uint64_t slot)
        : m_page(std::move(page)),
          m_node(reinterpret_cast<Node*>(m_page.bytes() + slot * sizeof(Node))) {}
    Node* operator->() const { return m_node; }
    Node& operator*() const { return *m_node; }

   private:
    suite::BerkeleyPool::Pin m_page;
    Node* m_node;
  };

  BerkeleyNodes(std::size_t, std::size_t budget) : m_pool(budget) { m_pool.create(); }

  static Handle handle(Handle number) { return number; }
  Pin create(Handle parent, Handle previous) {
    if (++m_last % kSlots == 0) {
      m_pool.create();
    }
    Pin node = edit(m_last);
    new (&*node) Node;
    node->self = m_last;
    node->parent = parent;
    node->previous = previous;
    return node;
  }
  Pin edit(Handle number) { return Pin(m_pool.edit(page(number)), number % kSlots); }
  Pin read(Handle number) { return Pin(m_pool.read(page(number)), number % kSlots); }

 private:
  static constexpr std::uint64_t kSlots = suite::BerkeleyPool::kPageBytes / sizeof(Node);

  std::uint32_t page(Handle number) const { return static_cast<std::uint32_t>(number / kSlots); }

  suite::BerkeleyPool m_pool;
  Handle m_last = 0;  // the node that was created last
};

}  // namespace

void measureBerkeley(const TreeOptions& options) {
  measureTree<LinkedTree<BerkeleyNodes>>("bdb pool", options);
}
