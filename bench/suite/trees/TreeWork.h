#ifndef BENCH_SUITE_TREES_TREEWORK_H
#define BENCH_SUITE_TREES_TREEWORK_H

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TreeNode.h"
#include "common/Amount.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/WarmMemory.h"

struct TreeOptions {
  suite::Amount nodes{"5e6"};
  suite::Amount moves{"1e6"};
  suite::Budget budget;
};

/// Nodes for random moves, drawn while the tree is built and met in random order. No node is met
/// again before all others have been, and a list of all nodes is not needed.
template <class Handle>
class Sample {
 public:
  Sample(std::size_t nodes, std::size_t wanted)
      : m_oneIn(std::max<double>(1, static_cast<double>(nodes) / static_cast<double>(wanted))) {
    m_handles.resize(std::min(nodes, wanted));  // resident from now on
  }
  void offer(Handle handle) {
    if (static_cast<double>(m_offered++) >= static_cast<double>(m_taken) * m_oneIn &&
        m_taken < m_handles.size()) {
      m_handles[m_taken++] = handle;
    }
  }
  void shuffle() {
    m_handles.resize(m_taken);
    std::shuffle(m_handles.begin(), m_handles.end(), std::mt19937_64(7));
  }
  Handle next() {
    const Handle handle = m_handles[m_at];
    m_at = m_at + 1 == m_handles.size() ? 0 : m_at + 1;
    return handle;
  }

 private:
  double m_oneIn;  // how many nodes there are for each that is wanted
  std::size_t m_offered = 0;
  std::size_t m_taken = 0;
  std::size_t m_at = 0;
  std::vector<Handle> m_handles;
};

/// Appends below a node until the tree is full, in document order, ten children to a node. The
/// nodes on the way down stay pinned, as in a parser.
template <class Tree>
void fillTree(Tree& tree, typename Tree::Position& parent, std::size_t level, std::size_t& left,
              Sample<typename Tree::Handle>& sample) {
  constexpr std::size_t kFanOut = 10;
  constexpr std::size_t kLevels = 7;
  for (std::size_t i = 0; left != 0 && (i < kFanOut || level == 1); ++i) {
    auto node = tree.append(parent);
    sample.offer(Tree::handle(node));
    --left;
    if (level < kLevels) {
      fillTree(tree, node, level + 1, left, sample);
    }
  }
}

/// Builds a tree, walks it depth-first, moves random nodes, and prints what each took.
template <class Tree>
void measureTree(const char* peer, const TreeOptions& options) {
  const std::size_t nodes = options.nodes.value;
  const auto print = [&](const char* what, const char* unit, double value) {
    const std::string variant = options.budget.label(what);
    suite::print({"tree", peer, variant, options.nodes.text, unit, value});
  };
  const auto printTime = [&](const char* what, const suite::Meter& meter, std::size_t count) {
    print(what, "ns", options.budget.seconds(meter) * 1e9 / static_cast<double>(count));
  };
  const auto walk = [&](Tree& tree) {
    if (tree.walk() != nodes) {
      suite::fail(std::string(peer) + ": the walk missed nodes");
    }
  };

  Sample<typename Tree::Handle> sample(nodes, 2 * options.moves.value);
  if (options.budget.isAmple()) {
    suite::warmMemory(nodes * kTreeNodeBytes * 3 / 2);
  }
  const std::uint64_t before = suite::residentBytes();
  const suite::Meter building;
  Tree tree(nodes, options.budget.bytes(nodes * kTreeNodeBytes));
  {
    auto root = tree.root();
    std::size_t left = nodes;
    fillTree(tree, root, 1, left, sample);
  }
  printTime("build", building, nodes);
  print("resident", "bytes", static_cast<double>(suite::residentBytes() - before));

  const suite::Meter walking;
  const std::size_t walks =
      options.budget.isAmple() ? std::max<std::size_t>(3, 10'000'000 / nodes) : 1;
  for (std::size_t i = 0; i < walks; ++i) {
    walk(tree);
  }
  printTime("walk", walking, walks * nodes);

  sample.shuffle();
  const suite::Meter moving;
  for (std::size_t i = 0; i < options.moves.value; ++i) {
    const auto which = sample.next();
    tree.moveLeaf(which, sample.next());
  }
  printTime("move", moving, options.moves.value);
  walk(tree);
}

void measureBerkeley(const TreeOptions& options);
void measureInterprocess(const TreeOptions& options);
void measureLmdb(const TreeOptions& options);

#endif  // BENCH_SUITE_TREES_TREEWORK_H
