#ifndef EXAMPLES_LARGESTORE_NODETREE_H
#define EXAMPLES_LARGESTORE_NODETREE_H

#include "Content.h"
#include "QRTVirtualTree.h"

namespace example {

/// A tree of nodes of about half a KiB: chapters below the root, a hundred leaves below each. An
/// edit changes the first leaf of every chapter and moves it behind the last.
class NodeTree final : public Content {
 public:
  /// @param manager  the store; outlives this
  explicit NodeTree(QRTVirtualMemoryMgr& manager);

  const char* name() const override { return "tree nodes"; }
  void build(std::uint64_t bytes) override;
  void edit() override;
  void verify() override;
  std::uint64_t count() const override { return m_count; }
  std::uint64_t bytes() const override;

 private:
  QRTVirtualTree m_tree;
  std::uint32_t m_count = 0;  // nodes, numbered in the order they were made
  bool m_edited = false;      // whether edit was called
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_NODETREE_H
