#include "ExitStatus.h"

#include <cstdio>
#include <iostream>

namespace example {

int exitStatus(const char* program, int status) {
  std::cout.flush();
  const bool flushed = std::fflush(stdout) == 0;
  if (flushed && std::cout.good() && std::ferror(stdout) == 0) {
    return status;
  }
  std::cerr << program << ": standard output could not be written\n";
  return status == 0 ? 1 : status;
}

}  // namespace example
