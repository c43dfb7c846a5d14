// STXXL: a vector in blocks of a file, with a least-recently-used cache of blocks, and its external
// sort.

#include <stxxl/sort>
#include <stxxl/vector>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <memory>

#include "VectorWork.h"
#include "common/ScratchDirectory.h"

namespace {

// Blocks of the library's vector: 4 KiB, so that random access reads no more than it must.
constexpr std::size_t kBlockBytes = 4096;

// What its sort asks for at the least.
constexpr std::size_t kLeastToSort = 1U << 20;

struct Ascending {
  bool operator()(std::uint64_t a, std::uint64_t b) const { return a < b; }
  std::uint64_t min_value() const { return 0; }
  std::uint64_t max_value() const { return std::numeric_limits<std::uint64_t>::max(); }
};

class StxxlVector {
 public:
  static constexpr bool kSorts = true;
  StxxlVector(std::size_t count, std::size_t budget) : m_budget(std::min(budget, 2 * count * 8)) {
    // A file that goes with the process, and no messages among the figures.
    ::setenv("STXXLLOGFILE", "/dev/null", 1);
    ::setenv("STXXLERRLOGFILE", "/dev/null", 1);
    std::cout.rdbuf(nullptr);
    stxxl::disk_config disk(suite::scratchPath("vector"), 0, "syscall unlink direct=off");
    disk.autogrow = true;
    stxxl::config::get_instance()->add_disk(disk);
    m_numbers = std::make_unique<Vector>(0, m_budget / kBlockBytes);
  }

  void add(std::uint64_t number) { m_numbers->push_back(number); }
  std::uint64_t sum() const {
    const Vector& numbers = *m_numbers;
    std::uint64_t sum = 0;
    for (auto at = numbers.begin(); at != numbers.end(); ++at) {
      sum += *at;
    }
    return sum;
  }
  std::uint64_t get(std::uint64_t i) const { return static_cast<const Vector&>(*m_numbers)[i]; }
  void set(std::uint64_t i, std::uint64_t number) { (*m_numbers)[i] = number; }
  void sort() {
    stxxl::sort(m_numbers->begin(), m_numbers->end(), Ascending(),
                std::max(m_budget, kLeastToSort));
  }

 private:
  using Vector = stxxl::vector<std::uint64_t, 1, stxxl::lru_pager<>, kBlockBytes>;

  std::size_t m_budget;  // bytes
  std::unique_ptr<Vector> m_numbers;
};

}  // namespace

void measureStxxl(const VectorOptions& options) {
  measureVector<StxxlVector>("stxxl", options);
}
