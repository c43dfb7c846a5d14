#include "HostProcess.h"

#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace example {

std::uint64_t peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    std::istringstream fields(line);
    std::string name;
    std::uint64_t kibibytes = 0;
    if (fields >> name && name == "VmHWM:" && fields >> kibibytes) {
      return kibibytes * 1024;
    }
  }
  return 0;
}

bool standardErrorIsTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

}  // namespace example
