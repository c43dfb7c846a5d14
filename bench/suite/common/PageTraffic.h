#ifndef BENCH_SUITE_COMMON_PAGETRAFFIC_H
#define BENCH_SUITE_COMMON_PAGETRAFFIC_H

#include <cstdint>
#include <cstdio>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <string>

#include "QRTVirtualMemoryMgr.h"

/// Pages that moved between memory and a manager's paging file so far.
struct PageTraffic {
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
};

/// Takes the figures from the manager's statistics text.
/// @throws std::runtime_error when they are not in it
inline PageTraffic pageTrafficOf(QRTVirtualMemoryMgr& manager) {
  std::ostringstream dump;
  dump.imbue(std::locale::classic());  // plain digits, whatever the process's locale
  manager.dumpMapper(dump, QRTVirtualMemoryMgr::eDumpStatistics);
  const std::string text = dump.str();
  const std::size_t line = text.find("Paging Statistics - ");
  unsigned long long reads = 0;
  unsigned long long writes = 0;
  if (line == std::string::npos ||
      std::sscanf(text.c_str() + line, "Paging Statistics - Reads: %llu, Writes: %llu", &reads,
                  &writes) != 2) {
    throw std::runtime_error("the statistics text has no page reads and writes");
  }
  return {reads, writes};
}

#endif  // BENCH_SUITE_COMMON_PAGETRAFFIC_H
