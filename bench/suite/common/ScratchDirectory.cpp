#include "common/ScratchDirectory.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace suite {

namespace {

/// Waits until nobody can write to the pipe any more, then removes the directory. What ends the
/// other process from a terminal does not end this one.
[[noreturn]] void tidyUp(int pipe, const std::string& directory) {
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    std::signal(signal, SIG_IGN);
  }
  char none = 0;
  while (::read(pipe, &none, 1) < 0 && errno == EINTR) {
  }
  std::error_code error;
  std::filesystem::remove_all(directory, error);
  ::_exit(error ? EXIT_FAILURE : EXIT_SUCCESS);
}

}  // namespace

ScratchDirectory::ScratchDirectory(const std::filesystem::path& parent) {
  std::string directory = (parent / "qrt-suite-XXXXXX").string();
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  if (::mkdtemp(directory.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), directory);
  }
  m_child = ::fork();
  if (m_child < 0) {
    const int error = errno;
    std::filesystem::remove(directory);
    throw std::system_error(error, std::generic_category(), "fork");
  }
  ::close(ends[m_child == 0 ? 1 : 0]);
  if (m_child == 0) {
    tidyUp(ends[0], directory);
  }
  m_alive = ends[1];
  ::setenv("TMPDIR", directory.c_str(), 1);
}

ScratchDirectory::~ScratchDirectory() {
  ::close(m_alive);
  while (::waitpid(m_child, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace suite
