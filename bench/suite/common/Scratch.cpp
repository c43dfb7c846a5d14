#include "common/Scratch.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>
#include <system_error>

#include "common/Figure.h"

namespace suite {

namespace {

volatile pid_t g_child = 0;

/// Ends the child; the parent then sees it end, and tidies up.
void endChild(int signal) {
  if (g_child > 0) {
    ::kill(g_child, signal == SIGINT ? SIGTERM : signal);
  }
}

[[noreturn]] void runChild(const std::string& directory, const std::function<void()>& work) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
  ::setenv("TMPDIR", directory.c_str(), 1);
  try {
    work();
  } catch (const std::exception& error) {
    fail(error.what());
  }
  std::exit(EXIT_SUCCESS);
}

}  // namespace

int runInScratchDirectory(const std::filesystem::path& parent, const std::function<void()>& work) {
  std::string directory = (parent / "qrt-suite-XXXXXX").string();
  if (::mkdtemp(directory.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), directory);
  }
  std::signal(SIGINT, endChild);
  std::signal(SIGTERM, endChild);
  const pid_t child = ::fork();
  if (child == 0) {
    runChild(directory, work);
  }
  const int error = errno;
  g_child = child;
  int status = 0;
  while (child > 0 && ::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  std::filesystem::remove_all(directory);
  if (child < 0) {
    throw std::system_error(error, std::generic_category(), "fork");
  }
  if (WIFSIGNALED(status)) {
    std::signal(WTERMSIG(status), SIG_DFL);
    std::raise(WTERMSIG(status));
  }
  return WEXITSTATUS(status);
}

}  // namespace suite
