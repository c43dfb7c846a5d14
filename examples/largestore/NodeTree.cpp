#include "NodeTree.h"

#include <string>

#include "Pattern.h"
#include "QRTVirtualNodeClass.h"
#include "QRTVirtualPin.h"
#include "QRTVirtualTreeRange.h"

namespace example {

namespace {

constexpr std::uint32_t kLeaves = 100;  // of a chapter

struct NumberedNode : QRTVirtualNodeClass<NumberedNode> {
  static constexpr const char* kClassName = "NumberedNode";
  static constexpr std::size_t kWords = 112;

  void set(std::uint32_t number, std::uint32_t version) {
    Pattern(number, version).fill(words, kWords);
  }
  void expect(std::uint32_t number, std::uint32_t version) const {
    if (!Pattern(number, version).matches(words, kWords)) {
      throw Mismatch("node " + std::to_string(number) + " is not what was stored, or elsewhere");
    }
  }

  std::uint32_t words[kWords];
};

using NodePin = QRTVirtualPin<NumberedNode>;

}  // namespace

NodeTree::NodeTree(QRTVirtualMemoryMgr& manager) : m_tree(&manager) {
  m_tree.registerNodeCreator(NumberedNode::getClassId(), NumberedNode::create);
}

std::uint64_t NodeTree::bytes() const {
  return std::uint64_t{m_count} * sizeof(NumberedNode);
}

void NodeTree::build(std::uint64_t bytes) {
  const auto make = [this](QRTVirtualTreeNode& parent) {
    NodePin node(m_tree.createNode(NumberedNode::getClassId()));
    node->set(m_count++, 0);
    parent.appendChild(node.get());
    return node;
  };
  while (this->bytes() < bytes) {
    const NodePin chapter = make(*m_tree.getRootNode());
    for (std::uint32_t leaf = 0; leaf < kLeaves; ++leaf) {
      make(*chapter);
    }
  }
}

void NodeTree::edit() {
  std::uint32_t number = 0;
  for (NumberedNode& chapter : QRTVirtualChildren<NumberedNode>(*m_tree.getRootNode())) {
    const NodePin first(chapter.getFirstChild());
    first->expect(number + 1, 0);
    first->set(number + 1, 1);
    chapter.removeChild(first.get());
    chapter.appendChild(first.get());
    number += kLeaves + 1;
  }
  m_edited = true;
}

void NodeTree::verify() {
  std::uint32_t number = 0;
  for (NumberedNode& chapter : QRTVirtualChildren<NumberedNode>(*m_tree.getRootNode())) {
    chapter.expect(number, 0);
    std::uint32_t leaf = m_edited ? 1 : 0;
    for (const NumberedNode& record : QRTVirtualChildren<NumberedNode>(chapter)) {
      const bool isMoved = m_edited && leaf == kLeaves;
      record.expect(number + 1 + (isMoved ? 0 : leaf), isMoved ? 1 : 0);
      ++leaf;
    }
    if (leaf != kLeaves + (m_edited ? 1 : 0)) {
      throw Mismatch("chapter " + std::to_string(number) + " has leaves too few or too many");
    }
    number += kLeaves + 1;
  }
  if (number != m_count) {
    throw Mismatch("the tree has nodes too few or too many");
  }
}

}  // namespace example
