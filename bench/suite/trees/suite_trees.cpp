// A tree built in document order, ten children to a node: build it, walk it depth-first, move
// random leaves. Raw pointers, the store, and the same nodes in what other libraries keep.

#include "LinkedTree.h"
#include "StoredTree.h"
#include "TreeNode.h"
#include "TreeWork.h"
#include "common/Program.h"

namespace {

template <class Node>
using Pointer = Node*;

/// Nodes on the heap, named by their addresses.
struct PointerNodes {
  static constexpr bool kReadsAreFree = true;
  using Node = TreeNode<Pointer>;
  using Handle = Node*;
  using Pin = Node*;

  PointerNodes(std::size_t, std::size_t) {}
  static Handle handle(Node* node) { return node; }
  // The system takes them back when the process ends.
  Pin create(Node* parent, Node* previous) {
    Pin node = new Node;
    node->self = node;
    node->parent = parent;
    node->previous = previous;
    return node;
  }
  Pin edit(Node* node) { return node; }
  const Node* read(const Node* node) { return node; }
};
static_assert(sizeof(PointerNodes::Node) == kTreeNodeBytes);

}  // namespace

int main(int argc, char** argv) {
  TreeOptions options;
  suite::Program program("Trees beside other ways to keep one");
  program.option("--nodes", options.nodes, "nodes of the tree");
  program.option("--moves", options.moves, "random moves, instead of 1e6, or 1e5 with a budget");
  program.option("--budget", options.budget, "memory: ample, 16M, or 1/8 of the nodes");
  program.add("tree", "pointer",
              [&] { measureTree<LinkedTree<PointerNodes>>("pointer", options); });
  program.add("tree", "store", [&] { measureTree<StoredTree>("store", options); });
#ifdef SUITE_BERKELEY_DB
  program.add("tree", "bdb pool", [&] { measureBerkeley(options); });
#endif
#ifdef SUITE_INTERPROCESS
  program.add("tree", "boost interprocess", [&] { measureInterprocess(options); });
#endif
#ifdef SUITE_LMDB
  program.add("tree", "lmdb", [&] { measureLmdb(options); });
#endif
  return program.main(argc, argv);
}
