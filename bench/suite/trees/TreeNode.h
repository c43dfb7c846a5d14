#ifndef BENCH_SUITE_TREES_TREENODE_H
#define BENCH_SUITE_TREES_TREENODE_H

#include <cstdint>

#include "QRTVirtualTreeNode.h"

/// A node with the members that a stored node has. `Link<T>` is what a peer keeps of another node;
/// without one it is `Link<T>{}`.
template <template <class> class Link>
struct TreeNode {
  using Ref = Link<TreeNode>;

  static constexpr std::uint64_t kTree = 0x7EEE;

  std::uint64_t classId = 0;  // a stored node has the address of its functions here
  Ref self{};
  std::uint64_t tree = kTree;  // a stored node has its container here
  Ref parent{};
  Ref first{};
  Ref last{};
  Ref previous{};
  Ref next{};
  std::uint32_t children = 0;
};

constexpr std::size_t kTreeNodeBytes = sizeof(QRTVirtualTreeNode);

#endif  // BENCH_SUITE_TREES_TREENODE_H
