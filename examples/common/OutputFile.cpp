#include "OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <system_error>

namespace example {

namespace {

constexpr mode_t kNewFile = 0666;        // less what the process masks
constexpr mode_t kPermissions = 0777;    // of a file's mode: who may read, write and run it
constexpr unsigned int kMostNames = 10;  // tried beyond the first, which is as good as never taken

/// A name in the directory of `path` that does not depend on the file's own, which may be as long
/// as names can be.
std::string freshName(const std::string& path) {
  std::random_device random;
  std::array<char, 32> name{};
  std::snprintf(name.data(), name.size(), ".%08x%08x.part", random(), random());
  const std::size_t slash = path.rfind('/');
  return (slash == std::string::npos ? std::string() : path.substr(0, slash + 1)) + name.data();
}

/// Gives a file the permissions of another, and its owner where the system allows that. Bits that
/// run a program as its owner are not passed on.
void copyOwnership(const struct stat& from, int to) {
  static_cast<void>(::fchown(to, from.st_uid, from.st_gid) == 0);
  static_cast<void>(::fchmod(to, from.st_mode & kPermissions) == 0);
}

}  // namespace

// A file that the user may not write is refused, although the directory would let it be replaced.
OutputFile::OutputFile(const std::string& path) : m_path(path) {
  struct stat status {};
  const bool exists = !path.empty() && ::lstat(path.c_str(), &status) == 0;
  if (path.empty()) {
    m_descriptor = STDOUT_FILENO;
  } else if (exists && !S_ISREG(status.st_mode)) {
    openInPlace();
  } else if (exists && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) {
    raise();
  } else {
    openBeside();
    if (exists) {
      copyOwnership(status, m_descriptor);
    }
  }
}

OutputFile::~OutputFile() {
  close();
  if (!m_fresh.empty()) {
    ::unlink(m_fresh.c_str());
  }
}

// A link may lead to a file that is not there yet, or to one that is longer than what comes.
void OutputFile::openInPlace() {
  m_descriptor =
      ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY, kNewFile);
  if (m_descriptor < 0) {
    raise();
  }
}

void OutputFile::openBeside() {
  for (unsigned int tried = 0; m_descriptor < 0; ++tried) {
    m_fresh = freshName(m_path);
    m_descriptor =
        ::open(m_fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kNewFile);
    if (m_descriptor < 0 && (errno != EEXIST || tried == kMostNames)) {
      raise();
    }
  }
}

void OutputFile::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(m_descriptor, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      raise();
    }
    text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
  }
}

void OutputFile::finish() {
  if (m_path.empty()) {
    return;
  }
  const int descriptor = m_descriptor;
  m_descriptor = -1;
  if (::close(descriptor) != 0) {
    raise();
  }
  if (!m_fresh.empty()) {
    if (::rename(m_fresh.c_str(), m_path.c_str()) != 0) {
      raise();
    }
    m_fresh.clear();
  }
}

void OutputFile::close() {
  if (m_descriptor >= 0 && !m_path.empty()) {
    ::close(m_descriptor);
  }
  m_descriptor = -1;
}

void OutputFile::raise() const {
  const std::string reason = std::system_category().message(errno);
  throw std::runtime_error((m_path.empty() ? "standard output" : m_path) +
                           " cannot be written: " + reason);
}

}  // namespace example
