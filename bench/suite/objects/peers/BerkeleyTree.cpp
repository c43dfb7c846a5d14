// Berkeley DB as a B-tree by key, without log and transactions.

#include "ByKey.h"
#include "common/BerkeleyEnvironment.h"

namespace {

class BerkeleyTree : public ByKey {
 public:
  explicit BerkeleyTree(const Space& space) : ByKey(space), m_environment(space.budget) {
    suite::checkBerkeley(::db_create(&m_tree, m_environment.get(), 0));
    suite::checkBerkeley(m_tree->set_pagesize(m_tree, suite::BerkeleyEnvironment::kPageBytes));
    suite::checkBerkeley(
        m_tree->open(m_tree, nullptr, "objects.db", nullptr, DB_BTREE, DB_CREATE, 0600));
    suite::checkBerkeley(m_tree->cursor(m_tree, nullptr, &m_cursor, 0));
  }
  ~BerkeleyTree() {
    m_cursor->close(m_cursor);
    m_tree->close(m_tree, DB_NOSYNC);
  }

  void add(const void* object) {
    Key key(m_added++);
    DBT value = valueAt(const_cast<void*>(object));
    suite::checkBerkeley(m_tree->put(m_tree, nullptr, &key.dbt, &value, 0));
  }

  template <class Use>
  void read(std::uint64_t handle, Use use) {
    char object[suite::BerkeleyEnvironment::kPageBytes];
    Key key(handle);
    DBT value = valueAt(object);
    suite::checkBerkeley(m_tree->get(m_tree, nullptr, &key.dbt, &value, 0));
    use(static_cast<void*>(object));
  }

  template <class Use>
  void scan(Use use) {
    char object[suite::BerkeleyEnvironment::kPageBytes];
    Key key(0);
    DBT value = valueAt(object);
    suite::checkBerkeley(m_cursor->get(m_cursor, &key.dbt, &value, DB_FIRST));
    while (use(static_cast<const void*>(object))) {
      suite::checkBerkeley(m_cursor->get(m_cursor, &key.dbt, &value, DB_NEXT));
    }
  }

  template <class Change>
  void update(std::uint64_t handle, Change change) {
    char object[suite::BerkeleyEnvironment::kPageBytes];
    Key key(handle);
    DBT value = valueAt(object);
    suite::checkBerkeley(m_cursor->get(m_cursor, &key.dbt, &value, DB_SET));
    change(static_cast<void*>(object));
    suite::checkBerkeley(m_cursor->put(m_cursor, &key.dbt, &value, DB_CURRENT));
  }

 private:
  /// Keys are compared as bytes, so the high one comes first.
  struct Key {
    explicit Key(std::uint64_t number) : bytes(__builtin_bswap64(number)) {
      dbt.data = &bytes;
      dbt.size = dbt.ulen = sizeof bytes;
      dbt.flags = DB_DBT_USERMEM;
    }
    std::uint64_t bytes;
    DBT dbt{};
  };

  DBT valueAt(void* object) const {
    DBT dbt{};
    dbt.data = object;
    dbt.size = dbt.ulen = m_objectBytes;
    dbt.flags = DB_DBT_USERMEM;
    return dbt;
  }

  suite::BerkeleyEnvironment m_environment;
  DB* m_tree = nullptr;
  DBC* m_cursor = nullptr;  // for scans and updates
};

}  // namespace

void addBerkeleyTree(const AddPeer& add) {
  addByKey<BerkeleyTree>(add, "bdb btree");
}
