// The paging file on POSIX systems, with the better calls that Linux offers.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

namespace {

/// Tells a process from the children it forks. Where the system can wipe a page on fork, the
/// test is one load; a system call at every transfer would cost a tenth of a page read.
class ForkDetector {
 public:
  ForkDetector() : m_owner(getpid()) {
#ifdef MADV_WIPEONFORK
    void* page = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page != MAP_FAILED) {
      if (madvise(page, 1, MADV_WIPEONFORK) == 0) {
        m_mark = static_cast<volatile char*>(page);
        *m_mark = 1;
      } else {
        munmap(page, 1);
      }
    }
#endif
  }
  ~ForkDetector() {
    if (m_mark != nullptr) {
      munmap(const_cast<char*>(m_mark), 1);
    }
  }
  ForkDetector(const ForkDetector&) = delete;
  ForkDetector& operator=(const ForkDetector&) = delete;

  bool InChild() const {
    return m_mark != nullptr ? *m_mark == 0 : getpid() != m_owner;
  }

 private:
  pid_t m_owner;                    // the process that made the detector
  volatile char* m_mark = nullptr;  // 1 in the owner, 0 in a child; null where not supported
};

/// The size that the process may give to a file. A write or reservation beyond it would raise a
/// signal that ends the process, so it is asked for each time: the host may lower it at any time,
/// and the call costs little beside a transfer.
std::uint64_t FileSizeLimit() {
  struct rlimit limit {};
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur
                                                                                 : UINT64_MAX;
}

/// Keeps signals from the calling thread as long as it lives.
class SignalPause {
 public:
  SignalPause() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_before);
  }
  ~SignalPause() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
  SignalPause(const SignalPause&) = delete;
  SignalPause& operator=(const SignalPause&) = delete;

 private:
  sigset_t m_before{};  // the signals that were blocked
};

class PosixPagingFile final : public PagingFile {
 public:
  explicit PosixPagingFile(const char* directory)
      : m_directory(directory != nullptr && directory[0] != '\0' ? directory : ".") {
    // Named now, so that naming it later cannot run out of memory.
    m_path.reserve(m_directory.size() + kNameRoom);
    m_path = m_directory;
  }

  ~PosixPagingFile() override {
    if (m_descriptor >= 0) {
      close(m_descriptor);
    }
  }

  PosixPagingFile(const PosixPagingFile&) = delete;
  PosixPagingFile& operator=(const PosixPagingFile&) = delete;

  int Open() override {
    m_descriptor = OpenNameless();
    if (m_descriptor < 0) {
      m_descriptor = OpenUnlinked();
    }
    if (m_descriptor < 0) {
      return errno;
    }
    m_fork.emplace();
    struct stat status {};
    if (fstat(m_descriptor, &status) == 0) {
      std::array<char, 24> inode{};
      std::to_chars(inode.data(), inode.data() + inode.size() - 1, status.st_ino);
      m_path = m_directory;
      m_path += "/#";
      m_path += inode.data();
    }
    return 0;
  }

  const char* Path() const override { return m_path.c_str(); }

  bool InForeignProcess() const override { return m_fork && m_fork->InChild(); }

  std::int64_t ReadSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    std::array<iovec, kMaxSlices> vectors;
    const ssize_t bytes = preadv(m_descriptor, vectors.data(), Convert(slices, count, vectors),
                                 static_cast<off_t>(offset));
    return bytes < 0 ? -errno : bytes;
  }

  std::int64_t WriteSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    // A transfer that begins below the limit is cut short there without a signal.
    if (offset >= FileSizeLimit()) {
      return -EFBIG;
    }
    std::array<iovec, kMaxSlices> vectors;
    const ssize_t bytes = pwritev(m_descriptor, vectors.data(), Convert(slices, count, vectors),
                                  static_cast<off_t>(offset));
    return bytes < 0 ? -errno : bytes;
  }

#ifdef POSIX_FADV_WILLNEED
  void Prefetch(std::uint64_t offset, std::size_t bytes) override {
    posix_fadvise(m_descriptor, static_cast<off_t>(offset), static_cast<off_t>(bytes),
                  POSIX_FADV_WILLNEED);
  }
#endif

  int Reserve(std::uint64_t begin, std::uint64_t end) override {
    if (end > FileSizeLimit()) {
      return EFBIG;
    }
#ifdef __linux__
    // Not posix_fallocate: where the file system cannot reserve, that one writes every block.
    const int result =
        fallocate(m_descriptor, 0, static_cast<off_t>(begin), static_cast<off_t>(end - begin));
    return result == 0 ? 0 : errno;
#else
    (void)begin;
    return EOPNOTSUPP;
#endif
  }

#ifdef FALLOC_FL_PUNCH_HOLE
  int Discard(std::uint64_t offset, std::size_t bytes) override {
    const int result = fallocate(m_descriptor, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                 static_cast<off_t>(offset), static_cast<off_t>(bytes));
    return result == 0 ? 0 : errno;
  }
#endif

  int Truncate(std::uint64_t size) override {
    return ftruncate(m_descriptor, static_cast<off_t>(size)) == 0 ? 0 : errno;
  }

 private:
  static constexpr std::size_t kNameRoom = 64;
  static constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

  int OpenNameless() const {
#ifdef O_TMPFILE
    return open(m_directory.c_str(), O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, kOwnerOnly);
#else
    return -1;
#endif
  }

  /// For file systems without nameless files: an exclusive random name, gone again at once. Between
  /// the two calls only a signal that cannot be blocked, or the end of the system, leaves a file.
  int OpenUnlinked() {
    m_path = m_directory;
    m_path += "/QRTPaging-XXXXXX";
    int error = 0;
    int descriptor = -1;
    {
      const SignalPause pause;
      descriptor = mkostemp(m_path.data(), O_CLOEXEC);
      error = descriptor < 0 || unlink(m_path.c_str()) != 0 ? errno : 0;
    }
    if (descriptor >= 0 && error != 0) {
      close(descriptor);  // a file that would stay is not to be filled
      descriptor = -1;
    }
    m_path = m_directory;
    errno = error;
    return descriptor;
  }

  static int Convert(const IoSlice* slices, std::size_t count,
                     std::array<iovec, kMaxSlices>& vectors) {
    for (std::size_t i = 0; i < count; ++i) {
      vectors[i] = {slices[i].data, slices[i].size};
    }
    return static_cast<int>(count);
  }

  std::string m_directory;             // where the file is made
  std::string m_path;                  // what Path tells
  std::optional<ForkDetector> m_fork;  // made with the file: a child may still make its own
  int m_descriptor = -1;               // the open file
};

}  // namespace

std::unique_ptr<PagingFile> MakePagingFile(const char* directory) {
  return std::make_unique<PosixPagingFile>(directory);
}

void DescribeSystemError(int error, char* text, std::size_t size) noexcept {
  // strerror_r comes in two kinds: one returns the text, the other fills the buffer.
  struct Result {
    static const char* Text(const char* returned, const char*) { return returned; }
    static const char* Text(int, const char* buffer) { return buffer; }
  };
  char buffer[128] = "";
  const char* message = Result::Text(strerror_r(error, buffer, sizeof buffer), buffer);
  std::snprintf(text, size, "%s%s", message,
                error == EFBIG ? " (a limit of the file system, or the process's: ulimit -f)" : "");
}

}  // namespace tcmalloc
