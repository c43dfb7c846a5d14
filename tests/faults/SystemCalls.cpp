// The engine under the workloads over the system's own files. The calls of the C library that the
// files make come here (--wrap), and go wrong as the FaultPlan says.

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "faults/FaultPlan.h"
#include "faults/Scene.h"
#include "faults/TestEngine.h"
#include "libtcmalloc_virtualmm/HostEngine.h"
#include "libtcmalloc_virtualmm/StoreFiles.h"

namespace {

constexpr std::size_t kAll = FaultMode::kAll;

TestEngine g_engine;

/// Sets errno. @return whether the call fails
bool fails(Site site) {
  const int error = FaultPlan::get().next(site).error;
  errno = error != 0 ? error : errno;
  return error != 0;
}

/// Makes a transfer, a part of it or none.
template <class Call>
ssize_t transfer(Site site, const iovec* vectors, int count, Call call) {
  const FaultPlan::Fate fate = FaultPlan::get().next(site);
  if (fate.error != 0) {
    errno = fate.error;
    return fate.error == FaultMode::kNoByte ? 0 : -1;
  }
  if (!fate.half) {
    return call(vectors, count);
  }
  std::size_t bytes = 0;
  for (int i = 0; i < count; ++i) {
    bytes += vectors[i].iov_len;
  }
  std::array<iovec, tcmalloc::PagingFile::kMaxSlices> cut;
  std::size_t taken = 0;
  for (std::size_t left = std::max<std::size_t>(bytes / 2, 1); left != 0; ++taken) {
    cut[taken] = {vectors[taken].iov_base, std::min(vectors[taken].iov_len, left)};
    left -= cut[taken].iov_len;
  }
  return call(cut.data(), static_cast<int>(taken));
}

}  // namespace

extern "C" {

// The names are the linker's, the C library's for files beyond 2 GiB.
// NOLINTBEGIN(bugprone-reserved-identifier)
ssize_t __real_preadv64(int file, const iovec* vectors, int count, long long offset);
ssize_t __real_pwritev64(int file, const iovec* vectors, int count, long long offset);
int __real_fallocate64(int file, int mode, long long offset, long long bytes);
int __real_ftruncate64(int file, long long size);
ssize_t __wrap_preadv64(int file, const iovec* vectors, int count, long long offset);
ssize_t __wrap_pwritev64(int file, const iovec* vectors, int count, long long offset);
int __wrap_fallocate64(int file, int mode, long long offset, long long bytes);
int __wrap_ftruncate64(int file, long long size);

ssize_t __wrap_preadv64(int file, const iovec* vectors, int count, long long offset) {
  return transfer(Site::eRead, vectors, count,
                  [&](const iovec* of, int n) { return __real_preadv64(file, of, n, offset); });
}

ssize_t __wrap_pwritev64(int file, const iovec* vectors, int count, long long offset) {
  return transfer(Site::eWrite, vectors, count,
                  [&](const iovec* of, int n) { return __real_pwritev64(file, of, n, offset); });
}

int __wrap_fallocate64(int file, int mode, long long offset, long long bytes) {
  return fails(mode == 0 ? Site::eReserve : Site::eDiscard)
             ? -1
             : __real_fallocate64(file, mode, offset, bytes);
}

int __wrap_ftruncate64(int file, long long size) {
  return fails(Site::eTruncate) ? -1 : __real_ftruncate64(file, size);
}
// NOLINTEND(bugprone-reserved-identifier)
}

const std::vector<FaultMode> kFaultModes = {
    {Site::eRead, "read fails once", EIO, 1, 0, false},
    {Site::eRead, "reads fail half-way", EIO, kAll, 1, false},
    {Site::eRead, "read finds the file's end", FaultMode::kNoByte, 2, 0, false},
    {Site::eRead, "short reads", 0, 0, kAll, true},
    {Site::eRead, "read interrupted", EINTR, 3, 0, true},
    {Site::eWrite, "disk full half-way once", ENOSPC, 1, 1, false},
    {Site::eWrite, "disk full half-way", ENOSPC, kAll, 1, false},
    {Site::eWrite, "write takes no byte", FaultMode::kNoByte, 1, 0, false},
    {Site::eWrite, "short writes", 0, 0, kAll, true},
    {Site::eWrite, "write interrupted", EINTR, 3, 0, true},
    {Site::eReserve, "no disk space any more", ENOSPC, kAll, 0, false},
    {Site::eReserve, "no disk space set aside", EOPNOTSUPP, kAll, 0, true},
    {Site::eReserve, "reservation interrupted", EINTR, 3, 0, true},
    {Site::eDiscard, "no discards", EOPNOTSUPP, kAll, 0, true},
    {Site::eTruncate, "file cannot be cut", EIO, kAll, 0, true},
};

TestEngine& TestEngine::get() {
  return g_engine;
}

std::unique_ptr<tcmalloc::Engine> tcmalloc::MakeHostEngine(unsigned int memorySize,
                                                           const char* directory, bool) {
  EngineOptions options;
  options.budgetBytes = memorySize;
  options.minimumFrames = 1;
  options.pageSize = 4096;
  options.tableLeaves = 1;
  options.firstGeneration = g_engine.firstGeneration;
  options.encrypted = g_engine.encrypted;
  StoreFiles files = MakeStoreFiles(options, directory);
  auto engine = std::make_unique<Engine>(options, std::move(files.pages), std::move(files.table));
  g_engine.engine = engine.get();
  return engine;
}
