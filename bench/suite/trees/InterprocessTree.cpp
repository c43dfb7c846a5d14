// Nodes in a mapped file of Boost.Interprocess, linked by pointers relative to themselves.

#include "LinkedTree.h"
#include "TreeNode.h"
#include "TreeWork.h"
#include "common/MappedFile.h"
#include "common/ScratchDirectory.h"

namespace {

template <class Node>
using Relative = boost::interprocess::offset_ptr<Node>;

class InterprocessNodes {
 public:
  static constexpr bool kReadsAreFree = true;
  using Node = TreeNode<Relative>;
  using Handle = Node*;
  using Pin = Node*;

  InterprocessNodes(std::size_t nodes, std::size_t)
      : m_file(boost::interprocess::create_only, suite::scratchPath("nodes").c_str(),
               nodes * kBytesEach + (1U << 20)) {}

  static Handle handle(const Relative<Node>& node) { return node.get(); }
  Pin create(const Relative<Node>& parent, const Relative<Node>& previous) {
    Pin node = new (m_file.allocate(sizeof(Node))) Node;
    node->self = node;
    node->parent = parent;
    node->previous = previous;
    return node;
  }
  Pin edit(Handle node) { return node; }
  const Node* read(Handle node) { return node; }

 private:
  // A node and what the allocator puts in front of it.
  static constexpr std::size_t kBytesEach = sizeof(Node) + 24;

  suite::MappedFile m_file;
};

}  // namespace

void measureInterprocess(const TreeOptions& options) {
  measureTree<LinkedTree<InterprocessNodes>>("boost interprocess", options);
}
