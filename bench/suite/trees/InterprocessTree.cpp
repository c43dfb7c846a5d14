// Nodes in a mapped file of Boost.Interprocess, linked by pointers relative to themselves.

#include <unistd.h>

#include <boost/interprocess/managed_mapped_file.hpp>

#include "LinkedTree.h"
#include "TreeNode.h"
#include "TreeWork.h"
#include "common/ScratchPath.h"

namespace {

namespace interprocess = boost::interprocess;

template <class Node>
using Relative = interprocess::offset_ptr<Node>;

class InterprocessNodes {
 public:
  static constexpr bool kReadsAreFree = true;
  using Node = TreeNode<Relative>;
  using Handle = Node*;
  using Pin = Node*;

  InterprocessNodes(std::size_t nodes, std::size_t)
      : m_path(suite::scratchPath()),
        m_file(interprocess::create_only, m_path.c_str(), nodes * kBytesEach + (1U << 20)) {
    ::unlink(m_path.c_str());
  }

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

  // One thread is all there is: no lock.
  using File = interprocess::basic_managed_mapped_file<
      char, interprocess::rbtree_best_fit<interprocess::null_mutex_family>,
      interprocess::iset_index>;

  std::string m_path;
  File m_file;
};

}  // namespace

void measureInterprocess(const TreeOptions& options) {
  measureTree<LinkedTree<InterprocessNodes>>("boost interprocess", options);
}
