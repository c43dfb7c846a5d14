#include "SourceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace example {

namespace {

std::string systemMessage() {
  return std::system_category().message(errno);
}

FileStatus convert(const struct stat& from) {
  FileStatus status;
  status.device = static_cast<std::uint64_t>(from.st_dev);
  status.inode = static_cast<std::uint64_t>(from.st_ino);
  status.links = static_cast<std::uint64_t>(from.st_nlink);
  status.size = static_cast<std::uint64_t>(from.st_size);
  status.modified = static_cast<std::int64_t>(from.st_mtim.tv_sec) * 1'000'000'000 +
                    static_cast<std::int64_t>(from.st_mtim.tv_nsec);
  status.isDirectory = S_ISDIR(from.st_mode);
  status.isRegularFile = S_ISREG(from.st_mode);
  return status;
}

}  // namespace

bool readStatus(const std::string& path, FileStatus& status, std::string& error) {
  struct stat raw {};
  if (::lstat(path.c_str(), &raw) != 0) {
    error = systemMessage();
    return false;
  }
  status = convert(raw);
  return true;
}

SourceFile::~SourceFile() {
  close();
}

bool SourceFile::open(const std::string& path) {
  return openWith(path, O_NOFOLLOW);
}

bool SourceFile::openNamed(const std::string& path) {
  return openWith(path, 0);
}

// Looked at before it is opened, for opening alone makes some devices act; and after, without
// waiting, for something else may have taken its place.
bool SourceFile::openWith(const std::string& path, int flags) {
  close();
  m_error.clear();
  struct stat raw {};
  FileStatus status;
  if (::fstatat(AT_FDCWD, path.c_str(), &raw, flags != 0 ? AT_SYMLINK_NOFOLLOW : 0) != 0) {
    m_error = systemMessage();
    return false;
  }
  status = convert(raw);
  if (status.isRegularFile) {
    m_descriptor = ::open(path.c_str(), flags | O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (m_descriptor < 0) {
      m_error = systemMessage();
      return false;
    }
    if (!readStatus(status)) {
      close();
      return false;
    }
  }
  if (!status.isRegularFile) {
    m_error = status.isDirectory ? "it is a directory" : "it is not a regular file";
    close();
  }
  return status.isRegularFile;
}

int SourceFile::release() {
  return std::exchange(m_descriptor, -1);
}

bool SourceFile::readStatus(FileStatus& status) {
  struct stat raw {};
  if (::fstat(m_descriptor, &raw) != 0) {
    m_error = systemMessage();
    return false;
  }
  status = convert(raw);
  return true;
}

std::size_t SourceFile::read(std::uint64_t offset, std::byte* buffer, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count =
        ::pread(m_descriptor, buffer + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0) {
      m_error = systemMessage();
    }
    if (count <= 0) {
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

void SourceFile::close() {
  if (m_descriptor >= 0) {
    ::close(m_descriptor);
    m_descriptor = -1;
  }
}

}  // namespace example
