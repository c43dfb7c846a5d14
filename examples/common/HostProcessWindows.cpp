#include <windows.h>
// windows.h comes first.
#include <psapi.h>

#include "HostProcess.h"

namespace example {

std::uint64_t peakResidentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != FALSE
             ? counters.PeakWorkingSetSize
             : 0;
}

std::uint64_t residentBytes() {
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != FALSE
             ? counters.WorkingSetSize
             : 0;
}

std::uint64_t peakMappedBytes() {
  return 0;
}

bool standardErrorIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
}

}  // namespace example
