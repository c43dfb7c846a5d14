// Maps of pairs of 16 bytes whose keys have no order: filling, finding, changing, going over all of
// it. The standard library's, the store's, and those of other libraries that keep pairs on disk.

#include <algorithm>
#include <cstdint>
#include <unordered_map>

#include "MapWork.h"
#include "QRTVirtualHashMap.h"
#include "common/Program.h"

namespace {

class StdMap {
 public:
  static constexpr bool kHasBudget = false;
  StdMap(std::uint64_t, std::size_t) {}
  void insert(std::uint64_t key, std::uint64_t value) { m_map.emplace(key, value); }
  bool find(std::uint64_t key, std::uint64_t& value) const {
    const auto found = m_map.find(key);
    if (found == m_map.end()) {
      return false;
    }
    value = found->second;
    return true;
  }
  void assign(std::uint64_t key, std::uint64_t value) { m_map[key] = value; }
  template <class Use>
  void forEach(Use use) const {
    for (const auto& [key, value] : m_map) {
      use(key, value);
    }
  }
  void finish() {}

 private:
  std::unordered_map<std::uint64_t, std::uint64_t> m_map;
};

class StoredMap {
 public:
  static constexpr bool kHasBudget = true;
  StoredMap(std::uint64_t, std::size_t budget)
      : m_manager(static_cast<unsigned int>(std::min(budget, std::size_t{0xFFFFF000U}))),
        m_map(m_manager) {}
  void insert(std::uint64_t key, std::uint64_t value) { m_map.insert(key, value); }
  bool find(std::uint64_t key, std::uint64_t& value) const { return m_map.find(key, value); }
  void assign(std::uint64_t key, std::uint64_t value) { m_map.insertOrAssign(key, value); }
  template <class Use>
  void forEach(Use use) const {
    m_map.forEach(use);
  }
  void finish() {}

 private:
  QRTVirtualMemoryMgr m_manager;
  QRTVirtualHashMap<std::uint64_t, std::uint64_t> m_map;
};

}  // namespace

int main(int argc, char** argv) {
  MapOptions options;
  suite::Program program("Maps beside other ways to keep one");
  program.option("--pairs", options.pairs, "pairs of the map, 16 bytes each");
  program.option("--budget", options.budget, "memory: ample, 16M, or 1/8 of the pairs");
  program.option("--seconds", options.seconds, "after which a phase of random accesses ends");
  program.add("map", "std::unordered_map",
              [&] { measureMap<StdMap>("std::unordered_map", options); });
  program.add("map", "store", [&] { measureMap<StoredMap>("store", options); });
#ifdef SUITE_LMDB
  program.add("map", "lmdb", [&] { measureLmdb(options); });
#endif
#ifdef SUITE_SQLITE
  program.add("map", "sqlite", [&] { measureSqlite(options); });
#endif
#ifdef SUITE_STXXL
  program.add("map", "stxxl", [&] { measureStxxl(options); });
#endif
  return program.main(argc, argv);
}
