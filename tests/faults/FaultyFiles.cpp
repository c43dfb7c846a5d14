// The engine under the workloads: small, over files in memory, with everything that it asks of the
// operating system going through the FaultPlan.

#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "faults/FaultPlan.h"
#include "faults/Scene.h"
#include "faults/TestEngine.h"
#include "libtcmalloc_virtualmm/HostEngine.h"
#include "libtcmalloc_virtualmm/PageMemory.h"
#include "libtcmalloc_virtualmm/StoreFiles.h"

using tcmalloc::IoSlice;

namespace {

/// A file in memory whose calls go wrong as the plan says.
class FaultyFile final : public tcmalloc::PagingFile {
 public:
  FaultyFile(std::unique_ptr<ScriptedPagingFile> file, bool ofTable)
      : m_file(std::move(file)), m_ofTable(ofTable) {}

  int Open() override {
    const int error = FaultPlan::get().next(m_ofTable ? Site::eTableOpen : Site::eOpen).error;
    return error != 0 ? error : m_file->Open();
  }
  const char* Path() const override { return m_file->Path(); }
  bool InForeignProcess() const override { return m_file->InForeignProcess(); }

  std::int64_t ReadSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    return transfer(
        m_ofTable ? Site::eTableRead : Site::eRead, slices, count,
        [&](const IoSlice* of, std::size_t n) { return m_file->ReadSome(offset, of, n); });
  }
  std::int64_t WriteSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override {
    return transfer(
        m_ofTable ? Site::eTableWrite : Site::eWrite, slices, count,
        [&](const IoSlice* of, std::size_t n) { return m_file->WriteSome(offset, of, n); });
  }
  int Reserve(std::uint64_t begin, std::uint64_t end) override {
    const int error = FaultPlan::get().next(Site::eReserve).error;
    return error != 0 ? error : m_file->Reserve(begin, end);
  }
  int Discard(std::uint64_t offset, std::size_t bytes) override {
    const int error = FaultPlan::get().next(Site::eDiscard).error;
    const FaultPlan::Pause pause;
    return error != 0 ? error : m_file->Discard(offset, bytes);
  }
  int Truncate(std::uint64_t size) override {
    const int error = FaultPlan::get().next(Site::eTruncate).error;
    return error != 0 ? error : m_file->Truncate(size);
  }

 private:
  template <class Move>
  static std::int64_t transfer(Site site, const IoSlice* slices, std::size_t count, Move move) {
    const FaultPlan::Fate fate = FaultPlan::get().next(site);
    if (fate.error != 0) {
      return fate.error == FaultMode::kNoByte ? 0 : -fate.error;
    }
    const FaultPlan::Pause pause;  // the file in memory is no memory of the library's
    if (!fate.half) {
      return move(slices, count);
    }
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i) {
      bytes += slices[i].size;
    }
    IoSlice cut[tcmalloc::PagingFile::kMaxSlices];
    std::size_t taken = 0;
    for (std::size_t left = std::max<std::size_t>(bytes / 2, 1); left != 0; ++taken) {
      cut[taken] = {slices[taken].data, std::min(slices[taken].size, left), 0};
      left -= cut[taken].size;
    }
    return move(cut, taken);
  }

  std::unique_ptr<ScriptedPagingFile> m_file;
  bool m_ofTable;  // whether it is the page table's
};

TestEngine g_engine;

constexpr std::size_t kAll = FaultMode::kAll;

}  // namespace

const std::vector<FaultMode> kFaultModes = {
    // site, name, error, calls that fail, transfers cut short before them, made up for
    {Site::eHeap, "no memory once", ENOMEM, 1, 0, false},
    {Site::eHeap, "no memory any more", ENOMEM, kAll, 0, false},
    {Site::ePageMemory, "no page memory once", ENOMEM, 1, 0, false},
    {Site::ePageMemory, "no page memory any more", ENOMEM, kAll, 0, false},
    {Site::eOpen, "no file once", EACCES, 1, 0, false},
    {Site::eOpen, "no file ever", EMFILE, kAll, 0, false},
    {Site::eRead, "read fails once", EIO, 1, 0, false},
    {Site::eRead, "reads fail", EIO, kAll, 0, false},
    {Site::eRead, "read fails half-way", EIO, 1, 1, false},
    {Site::eRead, "read finds the file's end", FaultMode::kNoByte, 2, 0, false},
    {Site::eRead, "short read", 0, 0, 1, true},
    {Site::eRead, "short reads", 0, 0, kAll, true},
    {Site::eRead, "read interrupted", EINTR, 3, 0, true},
    {Site::eWrite, "write fails once", EIO, 1, 0, false},
    {Site::eWrite, "disk full", ENOSPC, kAll, 0, false},
    {Site::eWrite, "disk full half-way once", ENOSPC, 1, 1, false},
    {Site::eWrite, "disk full half-way", ENOSPC, kAll, 1, false},
    {Site::eWrite, "write takes no byte", FaultMode::kNoByte, 1, 0, false},
    {Site::eWrite, "short write", 0, 0, 1, true},
    {Site::eWrite, "short writes", 0, 0, kAll, true},
    {Site::eWrite, "write interrupted", EINTR, 3, 0, true},
    {Site::eReserve, "no disk space once", ENOSPC, 1, 0, true},  // less is asked for then
    {Site::eReserve, "no disk space twice", ENOSPC, 2, 0, false},
    {Site::eReserve, "no disk space any more", ENOSPC, kAll, 0, false},
    {Site::eReserve, "no disk space set aside", EOPNOTSUPP, kAll, 0, true},
    {Site::eReserve, "reservation interrupted", EINTR, 3, 0, true},
    {Site::eDiscard, "discard fails once", EIO, 1, 0, true},
    {Site::eDiscard, "no discards", EOPNOTSUPP, kAll, 0, true},
    {Site::eTruncate, "file cannot be cut", EIO, kAll, 0, true},
    {Site::eTableOpen, "no table file once", EACCES, 1, 0, true},  // the table stays in memory
    {Site::eTableOpen, "no table file ever", EMFILE, kAll, 0, true},
    {Site::eTableRead, "table read fails once", EIO, 1, 0, false},
    {Site::eTableRead, "table reads fail", EIO, kAll, 0, false},
    {Site::eTableRead, "short table reads", 0, 0, kAll, true},
    {Site::eTableRead, "table read interrupted", EINTR, 3, 0, true},
    {Site::eTableWrite, "table write fails once", EIO, 1, 0, true},
    {Site::eTableWrite, "table file full", ENOSPC, kAll, 0, true},
    {Site::eTableWrite, "table file full half-way", ENOSPC, kAll, 1, true},
    {Site::eTableWrite, "short table writes", 0, 0, kAll, true},
    {Site::eTableWrite, "table write interrupted", EINTR, 3, 0, true},
};

TestEngine& TestEngine::get() {
  return g_engine;
}

namespace tcmalloc {

std::unique_ptr<Engine> MakeHostEngine(unsigned int memorySize, const char*, bool) {
  EngineOptions options;
  options.budgetBytes = memorySize;
  options.minimumFrames = 1;
  options.pageSize = ScriptedPagingFile::kBlock;
  options.tableLeaves = 1;
  options.firstGeneration = g_engine.firstGeneration;
  options.encrypted = g_engine.encrypted;
  auto file = std::make_unique<ScriptedPagingFile>();
  auto tableFile = std::make_unique<ScriptedPagingFile>();
  g_engine.file = file.get();
  g_engine.tableFile = tableFile.get();
  StoreFiles files =
      EncryptIfWanted(options, {std::make_unique<FaultyFile>(std::move(file), false),
                                std::make_unique<FaultyFile>(std::move(tableFile), true)});
  auto engine = std::make_unique<Engine>(options, std::move(files.pages), std::move(files.table));
  g_engine.engine = engine.get();
  return engine;
}

// The system's, which tests/faults/CMakeLists.txt compiles under this name.
char* MapSystemPageMemory(std::size_t bytes, bool huge) noexcept;

char* MapPageMemory(std::size_t bytes, bool huge) noexcept {
  return FaultPlan::get().next(Site::ePageMemory).error != 0 ? nullptr
                                                             : MapSystemPageMemory(bytes, huge);
}

}  // namespace tcmalloc
