// Preloaded into a program, records its allocations to the file that POOLMAP_TRACE names:
//   POOLMAP_TRACE=run.trace LD_PRELOAD=libpoolmap_record.so program arguments
//
// Stands in for the C runtime's allocation functions and passes every call on to it. Records are
// collected in a static buffer and written when it is full and at the end. Children that the
// program starts are not recorded.

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "Trace.h"

// The C runtime's own functions under the names it keeps for those who stand in for them.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using example::TraceRecord;

constexpr std::size_t kBuffered = 65536;

TraceRecord g_buffer[kBuffered];  // records not written yet
std::size_t g_count = 0;          // how many
int g_file = -1;                  // the trace; -1 before the start and after the end
std::atomic_flag g_lock;          // guards the three

class Lock {
 public:
  Lock() {
    while (g_lock.test_and_set(std::memory_order_acquire)) {
    }
  }
  ~Lock() { g_lock.clear(std::memory_order_release); }
};

/// Gives the trace up: what is there of it would be taken for all of it. Must not allocate.
void giveUp(int error) {
  constexpr char kMessage[] = "poolmap: the trace cannot be written: ";
  const char* const reason = strerrordesc_np(error);
  iovec parts[] = {{const_cast<char*>(kMessage), sizeof kMessage - 1},
                   {const_cast<char*>(reason), reason != nullptr ? std::strlen(reason) : 0},
                   {const_cast<char*>("\n"), 1}};
  static_cast<void>(writev(STDERR_FILENO, parts, 3) < 0);
  static_cast<void>(g_file >= 0 && ftruncate(g_file, 0) != 0);
  g_file = -1;
}

void writeAll(const void* data, std::size_t bytes) {
  const char* at = static_cast<const char*>(data);
  while (bytes > 0 && g_file >= 0) {
    const ssize_t written = write(g_file, at, bytes);
    if (written < 0 && errno != EINTR) {
      giveUp(errno);
    } else if (written > 0) {
      at += written;
      bytes -= static_cast<std::size_t>(written);
    }
  }
}

void record(const void* block, std::size_t size, bool isFree) {
  if (block == nullptr) {
    return;
  }
  const int savedErrno = errno;
  {
    const Lock lock;
    if (g_file >= 0) {
      const auto kept = size < 0xFFFFFFFF ? static_cast<std::uint32_t>(size) : 0xFFFFFFFF;
      g_buffer[g_count++] = {reinterpret_cast<std::uintptr_t>(block), kept, isFree ? 1u : 0u};
      if (g_count == kBuffered) {
        writeAll(g_buffer, sizeof g_buffer);
        g_count = 0;
      }
    }
  }
  errno = savedErrno;
}

[[gnu::constructor]] void begin() {
  const char* const name = std::getenv("POOLMAP_TRACE");
  if (name == nullptr) {
    return;
  }
  const Lock lock;
  g_file = open(name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (g_file < 0) {
    giveUp(errno);
  }
  writeAll(example::kTraceMagic, sizeof example::kTraceMagic);
  unsetenv("POOLMAP_TRACE");
  unsetenv("LD_PRELOAD");
}

[[gnu::destructor]] void end() {
  const Lock lock;
  writeAll(g_buffer, g_count * sizeof g_buffer[0]);
  g_count = 0;
  g_file = -1;
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] void* malloc(std::size_t size) {
  void* const block = __libc_malloc(size);
  record(block, size, false);
  return block;
}

[[gnu::visibility("default")]] void* calloc(std::size_t count, std::size_t size) {
  void* const block = __libc_calloc(count, size);
  record(block, count * size, false);
  return block;
}

[[gnu::visibility("default")]] void* realloc(void* old, std::size_t size) {
  // Noted first: once it is given back, another thread may be given the same address.
  record(old, 0, true);
  void* const block = __libc_realloc(old, size);
  record(block, size, false);
  return block;
}

[[gnu::visibility("default")]] void free(void* block) {
  record(block, 0, true);
  __libc_free(block);
}

[[gnu::visibility("default")]] void* memalign(std::size_t alignment, std::size_t size) {
  void* const block = __libc_memalign(alignment, size);
  record(block, size, false);
  return block;
}

[[gnu::visibility("default")]] void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return memalign(alignment, size);
}

[[gnu::visibility("default")]] int posix_memalign(void** block, std::size_t alignment,
                                                  std::size_t size) {
  if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0 || alignment == 0) {
    return EINVAL;
  }
  void* const got = memalign(alignment, size);
  if (got == nullptr) {
    return ENOMEM;
  }
  *block = got;
  return 0;
}

}  // extern "C"
