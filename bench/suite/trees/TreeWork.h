#ifndef BENCH_SUITE_TREES_TREEWORK_H
#define BENCH_SUITE_TREES_TREEWORK_H

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "TreeNode.h"
#include "common/Amount.h"
#include "common/Figure.h"
#include "common/Lookahead.h"
#include "common/Meter.h"
#include "common/WarmMemory.h"

struct TreeOptions {
  suite::Amount nodes{"5e6"};
  suite::Amount moves;  // none for as many as suit the budget
  suite::Budget budget;
};

/// Nodes for random moves, drawn while the tree is built and met in random order, so that a list of
/// all nodes is not needed.
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
  /// A node to move and one to move it below. Those to move are one half, so that they stay
  /// leaves; each meets another one of the other half in every round.
  std::pair<Handle, Handle> next() {
    const std::size_t half = m_handles.size() / 2;
    if (m_at == half) {
      m_at = 0;
      m_shift = m_shift + 1 == half ? 0 : m_shift + 1;
    }
    const std::size_t below = m_at + m_shift;
    return {m_handles[m_at++], m_handles[half + (below < half ? below : below - half)]};
  }

 private:
  double m_oneIn;  // how many nodes there are for each that is wanted
  std::size_t m_offered = 0;
  std::size_t m_taken = 0;
  std::size_t m_at = 0;
  std::size_t m_shift = 0;
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

// Time after which no more moves are made: where memory is short, some peers take 20 ms for one.
constexpr double kMoveSeconds = 30;

/// Builds a tree, walks it depth-first, moves random nodes, and prints what each took.
template <class Tree>
void measureTree(const char* peer, const TreeOptions& options) {
  const bool ample = options.budget.isAmple();
  const std::size_t nodes = options.nodes.value;
  if (nodes < 4) {
    suite::fail("A tree takes at least 4 nodes");
  }
  const std::size_t moves = options.moves.value != 0 ? options.moves.value
                            : ample                  ? 1'000'000
                                                     : 100'000;
  const auto print = [&](const std::string& what, const char* unit, double value) {
    const std::string variant = options.budget.label(what);
    suite::print({"tree", peer, variant, options.nodes.text, unit, value});
  };

  Sample<typename Tree::Handle> sample(nodes, 2 * moves);
  if (ample) {
    suite::warmMemory(nodes * kTreeNodeBytes * 3 / 2);
  }
  const std::uint64_t before = suite::residentBytes();
  Tree tree(nodes, options.budget.bytes(nodes * kTreeNodeBytes));

  // Does `work`, which gives the number of its steps, and prints what one of them took.
  const auto measure = [&](const std::string& what, auto work) {
    const auto pages = [&] {
      if constexpr (requires { tree.pagesMoved(); }) {
        return static_cast<double>(tree.pagesMoved());
      }
      return 0.0;
    };
    const double pagesBefore = pages();
    const suite::Meter meter;
    const auto count = static_cast<double>(work(meter));
    print(what, "ns", options.budget.seconds(meter) * 1e9 / count);
    if (pages() != pagesBefore) {
      print(what, "pages", (pages() - pagesBefore) / count);
    }
  };
  const auto walk = [&] {
    if (tree.walk() != nodes) {
      suite::fail(std::string(peer) + ": the walk missed nodes");
    }
  };

  measure("build", [&](const suite::Meter&) {
    auto root = tree.root();
    std::size_t left = nodes;
    fillTree(tree, root, 1, left, sample);
    return nodes;
  });
  print("resident", "bytes", static_cast<double>(suite::residentBytes() - before));
  const std::size_t walks = ample ? std::max<std::size_t>(3, 10'000'000 / nodes) : 1;
  measure("walk", [&](const suite::Meter&) {
    for (std::size_t i = 0; i < walks; ++i) {
      walk();
    }
    return walks * nodes;
  });
  sample.shuffle();
  // Moves nodes that `next` names.
  const auto move = [&](auto next) {
    return [&moves, &tree, next](const suite::Meter& meter) mutable {
      std::size_t moved = 0;
      for (; moved < moves && (moved % 64 != 0 || meter.wallSeconds() < kMoveSeconds); ++moved) {
        const auto [which, below] = next();
        tree.moveLeaf(which, below);
      }
      return moved;
    };
  };
  const auto next = [&sample] { return sample.next(); };
  measure("move", move(next));
  if constexpr (requires { tree.announce(0); }) {
    measure("move announced", move(suite::Lookahead(next, [&tree](const auto& both) {
              tree.announce(both.first);
              tree.announce(both.second);
            })));
  }
  walk();
}

void measureBerkeley(const TreeOptions& options);
void measureInterprocess(const TreeOptions& options);
void measureLmdb(const TreeOptions& options);

#endif  // BENCH_SUITE_TREES_TREEWORK_H
