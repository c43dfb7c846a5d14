#ifndef BENCH_SUITE_COMMON_METER_H
#define BENCH_SUITE_COMMON_METER_H

#include <cstdint>

namespace suite {

/// Measures a stretch of work from its construction on.
class Meter {
 public:
  Meter();
  /// Processor time of the process since then, user and system, in seconds: for work in memory.
  double cpuSeconds() const;
  /// Time on the wall since then in seconds: for work that waits for a disk.
  double wallSeconds() const;

 private:
  double m_cpu;
  double m_wall;
};

/// Resident memory of the process in bytes, after the heap has given back what is free.
std::uint64_t residentBytes();

/// The same as it is, with what is free in the heap.
std::uint64_t residentBytesNow();

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_METER_H
