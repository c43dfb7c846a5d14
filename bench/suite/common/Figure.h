#ifndef BENCH_SUITE_COMMON_FIGURE_H
#define BENCH_SUITE_COMMON_FIGURE_H

#include <string>
#include <string_view>

namespace suite {

/// One measured value. A run of a suite program prints each as a line of its own, a JSON object;
/// the driver repeats runs and takes medians over the lines that differ in nothing but their value.
struct Figure {
  std::string_view workload;  ///< such as "hotpin"
  std::string_view peer;      ///< such as "store" or "lmdb"
  std::string_view variant;   ///< what was done, such as "random" or "uniform read"
  std::string_view size;      ///< how much of it, such as "1e6"; sorts and labels a row
  std::string_view unit;      ///< "ns", "1/s", "MB/s", "bytes", "bytes/byte" or "pages"
  double value = 0;           ///< in that unit
};

/// Prints the line on standard output and flushes it.
void print(const Figure& figure);

/// Ends the program with `message` on standard error and status 1: a peer that loses or damages
/// what it was given has no time.
[[noreturn]] void fail(const std::string& message);

/// Ends the program unless `good`, naming what failed.
inline void require(bool good, const char* what) {
  if (!good) [[unlikely]] {
    fail(std::string("failed: ") + what);
  }
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_FIGURE_H
