// Nodes as records of LMDB, by their number. A write transaction takes thousands of changes.

#include <utility>

#include "LinkedTree.h"
#include "TreeNode.h"
#include "TreeWork.h"
#include "common/LmdbEnvironment.h"

namespace {

template <class>
using Number = std::uint64_t;  // from 1 on

class LmdbNodes {
 public:
  static constexpr bool kReadsAreFree = false;
  using Node = TreeNode<Number>;
  using Handle = std::uint64_t;

  /// A copy of a node, put back when it goes if it was changed.
  class Pin {
   public:
    Pin(LmdbNodes& nodes, const Node& node) : m_nodes(nodes), m_node(node) {}
    Pin(Pin&& other) noexcept
        : m_nodes(other.m_nodes),
          m_node(other.m_node),
          m_changed(std::exchange(other.m_changed, false)) {}
    Pin& operator=(Pin&&) = delete;
    ~Pin() {
      if (m_changed) {
        m_nodes.put(m_node, 0);
      }
    }
    Node* operator->() {
      m_changed = true;
      return &m_node;
    }
    const Node& operator*() const { return m_node; }

   private:
    LmdbNodes& m_nodes;
    Node m_node;
    bool m_changed = false;
  };

  LmdbNodes(std::size_t nodes, std::size_t) : m_environment(nodes * kBytesEach + (64U << 20)) {
    begin();
    suite::checkLmdb(mdb_dbi_open(m_transaction, nullptr, MDB_INTEGERKEY, &m_database));
  }
  ~LmdbNodes() { mdb_txn_abort(m_transaction); }
  LmdbNodes(const LmdbNodes&) = delete;
  LmdbNodes& operator=(const LmdbNodes&) = delete;

  static Handle handle(Handle number) { return number; }
  Pin create(Handle parent, Handle previous) {
    Node node;
    node.self = ++m_last;
    node.parent = parent;
    node.previous = previous;
    put(node, MDB_APPEND);
    return Pin(*this, node);
  }
  Pin edit(Handle number) { return Pin(*this, *read(number)); }
  const Node* read(Handle number) {
    MDB_val key{sizeof number, &number};
    MDB_val value{};
    suite::checkLmdb(mdb_get(m_transaction, m_database, &key, &value));
    return static_cast<const Node*>(value.mv_data);
  }

 private:
  static constexpr std::size_t kBytesEach = 4 * sizeof(Node);  // changed pages are copies
  static constexpr unsigned kBatch = 10'000;                   // changes to a transaction

  void begin() { suite::checkLmdb(mdb_txn_begin(m_environment.get(), nullptr, 0, &m_transaction)); }

  void put(const Node& node, unsigned flags) {
    Node copy = node;
    MDB_val key{sizeof copy.self, &copy.self};
    MDB_val value{sizeof copy, &copy};
    suite::checkLmdb(mdb_put(m_transaction, m_database, &key, &value, flags));
    if (++m_changes % kBatch == 0) {
      suite::checkLmdb(mdb_txn_commit(std::exchange(m_transaction, nullptr)));
      begin();
    }
  }

  suite::LmdbEnvironment m_environment;
  MDB_txn* m_transaction = nullptr;  // the write transaction, owned
  MDB_dbi m_database = 0;
  Handle m_last = 0;  // the node that was created last
  std::size_t m_changes = 0;
};

}  // namespace

void measureLmdb(const TreeOptions& options) {
  measureTree<LinkedTree<LmdbNodes>>("lmdb", options);
}
