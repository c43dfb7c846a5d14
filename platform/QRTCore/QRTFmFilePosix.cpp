// Files on POSIX systems.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>

#include "QRTCore/QRTFmDir.h"
#include "QRTCore/QRTFmFileSystem.h"

static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

namespace qrtfile {

namespace {

// The most that Linux moves in one call; other systems take it as well.
constexpr unsigned int kMostBytes = 0x7FFFF000;

int descriptorOf(Handle handle) {
  return static_cast<int>(handle);
}

unsigned int errorOf(bool succeeded) {
  return succeeded ? 0 : lastError();
}

int flagsOf(QRTFmFile::createmode mode) {
  switch (mode) {
    case QRTFmFile::eCreateNew:
      return O_CREAT | O_EXCL;
    case QRTFmFile::eCreateAlways:
      return O_CREAT | O_TRUNC;
    case QRTFmFile::eOpenAlways:
      return O_CREAT;
    case QRTFmFile::eTruncateExisting:
      return O_TRUNC;
    default:
      return 0;
  }
}

/// Repeats a transfer that a signal interrupted.
template <typename Transfer>
unsigned int transferSome(unsigned int& moved, Transfer transfer) {
  ssize_t result = 0;
  do {
    result = transfer();
  } while (result < 0 && errno == EINTR);
  moved = result > 0 ? static_cast<unsigned int>(result) : 0;
  return errorOf(result >= 0);
}

}  // namespace

unsigned int lastError() {
  return static_cast<unsigned int>(errno);
}

unsigned int invalidArgument() {
  return EINVAL;
}

unsigned int invalidHandle() {
  return EBADF;
}

unsigned int transferFailed() {
  return EIO;
}

I18NString message(unsigned int error) {
  return I18NString(std::generic_category().message(static_cast<int>(error)).c_str());
}

unsigned int open(const I18NString& path, QRTFmFile::createmode mode, bool readOnly,
                  Handle& handle) {
  const std::string name = QRTFmDir::getNarrowPath(path);
  if (name.find('\0') != std::string::npos) {
    return EINVAL;  // it would cut the name short
  }
  int descriptor = -1;
  do {
    descriptor = ::open(
        name.c_str(), flagsOf(mode) | (readOnly ? O_RDONLY : O_RDWR) | O_CLOEXEC | O_NOCTTY, 0666);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    return lastError();
  }
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || S_ISDIR(status.st_mode)) {
    const unsigned int error = S_ISDIR(status.st_mode) ? EISDIR : lastError();
    ::close(descriptor);
    return error;
  }
  handle = descriptor;
  return 0;
}

unsigned int openStandard(QRTFmFile::stdiotypes type, Handle& handle) {
  static constexpr int kDescriptors[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
  if (type < QRTFmFile::eStdIn || type > QRTFmFile::eStdErr) {
    return EINVAL;
  }
  if (::fcntl(kDescriptors[type], F_GETFD) < 0) {
    return lastError();
  }
  handle = kDescriptors[type];
  return 0;
}

unsigned int close(Handle handle) {
  // Linux has closed the descriptor when a signal interrupts this; again would hit another file.
  return errorOf(::close(descriptorOf(handle)) == 0 || errno == EINTR);
}

unsigned int readSome(Handle handle, void* data, unsigned int n, unsigned int& moved) {
  return transferSome(moved,
                      [&] { return ::read(descriptorOf(handle), data, std::min(n, kMostBytes)); });
}

unsigned int writeSome(Handle handle, const void* data, unsigned int n, unsigned int& moved) {
  return transferSome(moved,
                      [&] { return ::write(descriptorOf(handle), data, std::min(n, kMostBytes)); });
}

unsigned int seek(Handle handle, std::int64_t offset, QRTFmFile::seekorigin origin,
                  std::int64_t& position) {
  static constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (origin < QRTFmFile::eSeekSet || origin > QRTFmFile::eSeekEnd) {
    return EINVAL;
  }
  const off_t result = ::lseek(descriptorOf(handle), offset, kOrigins[origin]);
  position = result;
  return errorOf(result >= 0);
}

unsigned int length(Handle handle, std::int64_t& bytes) {
  struct stat status {};
  if (::fstat(descriptorOf(handle), &status) != 0) {
    return lastError();
  }
  bytes = status.st_size;
  return S_ISREG(status.st_mode) ? 0 : ESPIPE;
}

unsigned int flush(Handle handle) {
  return errorOf(::fsync(descriptorOf(handle)) == 0);
}

unsigned int truncate(Handle handle, std::int64_t bytes) {
  return errorOf(::ftruncate(descriptorOf(handle), bytes) == 0);
}

}  // namespace qrtfile
