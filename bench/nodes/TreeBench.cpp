// A tree of five million nodes built in document order, ten children to a node: build it, walk it
// depth-first, move random nodes. Raw pointers do the same beside a store that holds everything and
// one whose budget is an eighth of the nodes. Every walk is checked. The counters are pages for
// each thousand nodes visited, built or moved; `MiB` is resident memory, what was there before
// taken off.

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <memory>
#include <random>
#include <vector>

#include "QRTVirtualPin.h"
#include "QRTVirtualTree.h"
#include "QRTVirtualTreeRange.h"
#include "common/StoreStatistics.h"

namespace {

constexpr std::size_t kNodes = 5000000;
constexpr std::size_t kFanOut = 10;
constexpr std::size_t kLevels = 7;
constexpr unsigned int kAllOfIt = 1024U << 20;                                        // bytes
constexpr unsigned int kAnEighth = kNodes * sizeof(QRTVirtualTreeNode) / 8 & ~4095U;  // bytes

/// Resident memory of the process in bytes, once the heap has given back what is free.
double residentBytes() {
  ::malloc_trim(0);
  std::size_t size = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

/// The tree of raw pointers, with the members that a stored node has.
class PointerTree {
 public:
  struct Node {
    virtual ~Node() = default;
    virtual std::size_t size() { return sizeof *this; }
    Node* self = nullptr;
    PointerTree* tree = nullptr;
    Node* parent = nullptr;
    Node* first = nullptr;
    Node* last = nullptr;
    Node* previous = nullptr;
    Node* next = nullptr;
    std::uint32_t children = 0;
  };

  explicit PointerTree(unsigned int) { m_nodes.reserve(kNodes); }
  ~PointerTree() {
    for (Node* const node : m_nodes) {
      delete node;
    }
  }
  PointerTree(const PointerTree&) = delete;
  PointerTree& operator=(const PointerTree&) = delete;

  using Position = Node*;
  Position root() { return &m_root; }
  Position append(Position parent) {
    Node* const node = new Node;
    node->self = node;
    node->tree = this;
    m_nodes.push_back(node);
    link(parent, node);
    return node;
  }
  void leave(Position) {}

  std::size_t walk() {
    std::size_t visited = 0;
    for (Node* at = m_root.first; at != nullptr;) {
      ++visited;
      if (at->first != nullptr) {
        at = at->first;
        continue;
      }
      while (at != nullptr && at->next == nullptr) {
        at = at->parent;
      }
      at = at == nullptr ? nullptr : at->next;
    }
    return visited;
  }

  void moveLeaf(std::size_t which, std::size_t below) {
    Node* const node = m_nodes[which];
    Node* const parent = m_nodes[below];
    if (node->children != 0 || node == parent) {
      return;
    }
    Node* const old = node->parent;
    (node->previous != nullptr ? node->previous->next : old->first) = node->next;
    (node->next != nullptr ? node->next->previous : old->last) = node->previous;
    --old->children;
    link(parent, node);
  }

  example::StoreStatistics statistics() { return {}; }

 private:
  static void link(Node* parent, Node* node) {
    node->parent = parent;
    node->next = nullptr;
    node->previous = parent->last;
    (parent->last != nullptr ? parent->last->next : parent->first) = node;
    parent->last = node;
    ++parent->children;
  }

  Node m_root;
  std::vector<Node*> m_nodes;  // what a program that picks nodes at random keeps
};

/// The tree in the store.
class StoredTree {
 public:
  using Pin = QRTVirtualPin<QRTVirtualTreeNode>;

  explicit StoredTree(unsigned int budget) : m_tree(budget, 0, 0) {
    m_tree.registerNodeCreator(QRTVirtualTreeNode::getClassId(), QRTVirtualTreeNode::create);
    m_offsets.reserve(kNodes);
  }

  using Position = QRTVirtualTreeNode*;
  Position root() { return m_tree.getRootNode(); }
  Position append(Position parent) {
    auto* const node = static_cast<Position>(m_tree.createNode(QRTVirtualTreeNode::getClassId()));
    m_offsets.push_back(node->getPageOffset());
    parent->appendChild(node);
    return node;
  }
  void leave(Position node) { node->dismiss(); }

  std::size_t walk() {
    std::size_t visited = 0;
    for (QRTVirtualTreeNode& node : QRTVirtualSubtree<>(*m_tree.getRootNode())) {
      visited += node.getContainer() == &m_tree ? 1 : 0;
    }
    return visited - 1;  // the root itself
  }

  void moveLeaf(std::size_t which, std::size_t below) {
    const Pin node(m_tree.getNode(m_offsets[which]));
    const Pin parent(m_tree.getNode(m_offsets[below]));
    if (node->hasChildren() != 0 || which == below) {
      return;
    }
    Pin(node->getParent(1))->removeChild(node.get());
    parent->appendChild(node.get());
  }

  example::StoreStatistics statistics() { return example::readStatistics(*m_tree.getMemoryMgr()); }

 private:
  QRTVirtualTree m_tree;
  std::vector<unsigned long long> m_offsets;
};

/// Appends below a node until the tree is full, in document order. The nodes on the way down stay
/// pinned, as in a parser.
template <class Tree>
void fill(Tree& tree, typename Tree::Position parent, std::size_t level, std::size_t& left) {
  for (std::size_t i = 0; left != 0 && (i < kFanOut || level == 1); ++i) {
    const auto node = tree.append(parent);
    --left;
    if (level < kLevels) {
      fill(tree, node, level + 1, left);
    }
    tree.leave(node);
  }
}

template <class Tree>
std::unique_ptr<Tree> build(unsigned int budget) {
  auto tree = std::make_unique<Tree>(budget);
  std::size_t left = kNodes;
  fill(*tree, tree->root(), 1, left);
  return tree;
}

template <class Tree>
void report(benchmark::State& state, Tree& tree, const example::StoreStatistics& before,
            std::size_t count) {
  const example::StoreStatistics after = tree.statistics();
  const double thousands =
      static_cast<double>(state.iterations()) * static_cast<double>(count) / 1000;
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(count));
  state.counters["ns"] = benchmark::Counter(
      static_cast<double>(state.iterations()) * static_cast<double>(count) * 1e-9,
      benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  state.counters["reads/k"] = static_cast<double>(after.pageReads - before.pageReads) / thousands;
  state.counters["writes/k"] =
      static_cast<double>(after.pageWrites - before.pageWrites) / thousands;
}

template <class Tree>
void Build(benchmark::State& state, unsigned int budget) {
  double resident = 0;
  std::unique_ptr<Tree> tree;
  for (auto _ : state) {
    state.PauseTiming();
    tree.reset();
    const double before = residentBytes();
    state.ResumeTiming();
    tree = build<Tree>(budget);
    state.PauseTiming();
    resident = (residentBytes() - before) / (1U << 20);
    state.ResumeTiming();
  }
  report(state, *tree, {}, kNodes);
  state.counters["MiB"] = resident;
}

template <class Tree>
void Walk(benchmark::State& state, unsigned int budget) {
  const auto tree = build<Tree>(budget);
  const auto before = tree->statistics();
  for (auto _ : state) {
    if (tree->walk() != kNodes) {
      state.SkipWithError("the walk missed nodes");
      break;
    }
  }
  report(state, *tree, before, kNodes);
}

// A hundred thousand moves to an iteration, of leaves only: they cannot end up below themselves.
template <class Tree>
void Move(benchmark::State& state, unsigned int budget) {
  constexpr std::size_t kMoves = 100000;
  const auto tree = build<Tree>(budget);
  const auto before = tree->statistics();
  std::mt19937_64 random(7);
  for (auto _ : state) {
    for (std::size_t i = 0; i < kMoves; ++i) {
      const std::size_t which = random() % kNodes;
      tree->moveLeaf(which, random() % kNodes);
    }
  }
  if (tree->walk() != kNodes) {
    state.SkipWithError("a move lost nodes");
  }
  report(state, *tree, before, kMoves);
}

// Every operation over pointers, over a store that holds all, over one that holds an eighth.
[[maybe_unused]] const bool kRegistered = [] {
  const auto add = [](const char* name, void (*operation)(benchmark::State&, unsigned int),
                      unsigned int budget) {
    benchmark::RegisterBenchmark(name, operation, budget)
        ->MinWarmUpTime(0.1)  // the first touch of a machine's memory is the machine's cost
        ->Unit(benchmark::kMillisecond);
  };
  add("Build/pointers", Build<PointerTree>, 0);
  add("Build/store", Build<StoredTree>, kAllOfIt);
  add("Build/eighth", Build<StoredTree>, kAnEighth);
  add("Walk/pointers", Walk<PointerTree>, 0);
  add("Walk/store", Walk<StoredTree>, kAllOfIt);
  add("Walk/eighth", Walk<StoredTree>, kAnEighth);
  add("Move/pointers", Move<PointerTree>, 0);
  add("Move/store", Move<StoredTree>, kAllOfIt);
  add("Move/eighth", Move<StoredTree>, kAnEighth);
  return true;
}();

}  // namespace
