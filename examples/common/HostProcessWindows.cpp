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
  PROCESS_MEMORY_COUNTERS counters{};
  counters.cb = sizeof counters;
  return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != FALSE
             ? counters.PeakPagefileUsage
             : 0;
}

bool limitMappedBytes(std::uint64_t bytes) {
  // The job lives as long as the process in it.
  const HANDLE job = CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_PROCESS_MEMORY;
  limits.ProcessMemoryLimit = static_cast<SIZE_T>(bytes);
  return job != nullptr &&
         SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits) !=
             FALSE &&
         AssignProcessToJobObject(job, GetCurrentProcess()) != FALSE;
}

namespace {

unsigned int columnsOf(DWORD standardHandle) {
  const HANDLE handle = GetStdHandle(standardHandle);
  DWORD mode = 0;
  if (GetConsoleMode(handle, &mode) == FALSE) {
    return 0;
  }
  CONSOLE_SCREEN_BUFFER_INFO info{};
  return GetConsoleScreenBufferInfo(handle, &info) != FALSE
             ? static_cast<unsigned int>(info.srWindow.Right - info.srWindow.Left + 1)
             : 80;
}

}  // namespace

unsigned int standardErrorColumns() {
  return columnsOf(STD_ERROR_HANDLE);
}

unsigned int standardOutputColumns() {
  return columnsOf(STD_OUTPUT_HANDLE);
}

}  // namespace example
