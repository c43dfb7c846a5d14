#include "HostProcess.h"

#include <sys/ioctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace example {

namespace {

/// A figure of /proc/self/status in bytes; 0 when it is not there.
std::uint64_t statusBytes(const char* wanted) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    std::istringstream fields(line);
    std::string name;
    std::uint64_t kibibytes = 0;
    if (fields >> name && name == wanted && fields >> kibibytes) {
      return kibibytes * 1024;
    }
  }
  return 0;
}

}  // namespace

std::uint64_t peakResidentBytes() {
  return statusBytes("VmHWM:");
}

std::uint64_t peakMappedBytes() {
  return statusBytes("VmPeak:");
}

bool limitMappedBytes(std::uint64_t bytes) {
  const rlimit limit{static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
  return setrlimit(RLIMIT_AS, &limit) == 0;
}

std::uint64_t residentBytes() {
  return statusBytes("VmRSS:");
}

namespace {

unsigned int columnsOf(int file) {
  if (isatty(file) == 0) {
    return 0;
  }
  winsize size{};
  return ioctl(file, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

}  // namespace

unsigned int standardErrorColumns() {
  return columnsOf(STDERR_FILENO);
}

unsigned int standardOutputColumns() {
  return columnsOf(STDOUT_FILENO);
}

}  // namespace example
