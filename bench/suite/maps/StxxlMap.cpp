// STXXL: a B-tree of 4 KiB blocks in a file, with caches of inner blocks and of leaves.

#include <stxxl/map>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>

#include "MapWork.h"
#include "common/ScratchDirectory.h"

namespace {

struct Less {
  bool operator()(std::uint64_t a, std::uint64_t b) const { return a < b; }
  static std::uint64_t max_value() { return std::numeric_limits<std::uint64_t>::max(); }
};

class StxxlMap {
 public:
  static constexpr bool kHasBudget = true;

  // At least what it works with, and not more than it can count.
  StxxlMap(std::uint64_t, std::size_t budget)
      : StxxlMap(std::clamp<std::size_t>(budget, 1U << 20, 1U << 30)) {}

  void insert(std::uint64_t key, std::uint64_t value) { m_map.insert({key, value}); }
  bool find(std::uint64_t key, std::uint64_t& value) {
    const Map& map = m_map;  // reads through it do not mark the block as changed
    auto found = map.find(key);
    if (found == map.end()) {
      return false;
    }
    value = found->second;
    return true;
  }
  void assign(std::uint64_t key, std::uint64_t value) { m_map.find(key)->second = value; }
  template <class Use>
  void forEach(Use use) {
    const Map& map = m_map;
    for (auto at = map.begin(); at != map.end(); ++at) {
      use(at->first, at->second);
    }
  }
  void finish() {}

 private:
  using Map = stxxl::map<std::uint64_t, std::uint64_t, Less, 4096, 4096>;

  // A sixteenth for the inner blocks, of which there is one for 250 leaves.
  explicit StxxlMap(std::size_t budget)
      : m_configured(configure()), m_map(budget / 16, budget - budget / 16) {}

  /// Makes a file that goes with the process, and keeps its messages off the figures.
  static bool configure() {
    ::setenv("STXXLLOGFILE", "/dev/null", 1);
    ::setenv("STXXLERRLOGFILE", "/dev/null", 1);
    std::cout.rdbuf(nullptr);
    stxxl::disk_config disk(suite::scratchPath("map"), 0, "syscall unlink direct=off");
    disk.autogrow = true;
    stxxl::config::get_instance()->add_disk(disk);
    return true;
  }

  bool m_configured;
  Map m_map;
};

}  // namespace

void measureStxxl(const MapOptions& options) {
  measureMap<StxxlMap>("stxxl", options);
}
