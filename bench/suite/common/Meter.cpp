#include "common/Meter.h"

#include <malloc.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

namespace suite {

namespace {

double now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

Meter::Meter() : m_cpu(now(CLOCK_PROCESS_CPUTIME_ID)), m_wall(now(CLOCK_MONOTONIC)) {}

double Meter::cpuSeconds() const {
  return now(CLOCK_PROCESS_CPUTIME_ID) - m_cpu;
}

double Meter::wallSeconds() const {
  return now(CLOCK_MONOTONIC) - m_wall;
}

std::uint64_t residentBytes() {
  ::malloc_trim(0);
  return residentBytesNow();
}

std::uint64_t residentBytesNow() {
  std::uint64_t size = 0;
  std::uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> size >> resident;
  return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace suite
