#ifndef BENCH_SUITE_COMMON_AMOUNT_H
#define BENCH_SUITE_COMMON_AMOUNT_H

#include <cstddef>
#include <string>

#include "common/Meter.h"

namespace suite {

/// A count or a number of bytes together with how it was written, which names the row it belongs
/// to: "1000", "5e6", "64M".
struct Amount {
  std::string text;
  std::size_t value = 0;

  Amount() = default;
  /// Reads a number with K, M or G, of either case, behind it for powers of 1,024; ends the program
  /// when that is none or not whole.
  explicit Amount(const std::string& text);
};

/// How much memory a peer may use: "ample", an amount such as "16M", or a part such as "1/8" of
/// what it has to keep.
class Budget {
 public:
  /// Ends the program when the text is none of the three.
  explicit Budget(const std::string& text = "ample");

  bool isAmple() const { return m_text == "ample"; }

  /// The budget in bytes for so much data: when ample, more than any peer makes of it.
  std::size_t bytes(std::size_t dataBytes) const;

  /// What a stretch of work took in seconds: processor time, or time on the wall when peers may
  /// have to wait for a disk.
  double seconds(const Meter& meter) const {
    return isAmple() ? meter.cpuSeconds() : meter.wallSeconds();
  }

  /// The name of a figure: `what` alone, or "walk in 1/8".
  std::string label(const std::string& what) const;

 private:
  std::string m_text;
  std::size_t m_bytes = 0;    // when it is an amount
  std::size_t m_divisor = 0;  // when it is a part
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_AMOUNT_H
