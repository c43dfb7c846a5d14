// A scratch file of 1 GiB: written and read in 4 KiB calls, then at random in 100-byte calls. A
// virtual file with a budget of 64 MiB and one that fits its memory, tmpfile with stdio, and a
// nameless file with pread and pwrite. Every read is checked.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>

#include "QRTVirtualFile.h"
#include "common/HostProcess.h"

namespace {

constexpr std::size_t kFileBytes = std::size_t{1} << 30;
constexpr unsigned int kCall = 4096;
constexpr unsigned int kSmallCall = 100;

template <unsigned int kBudget, unsigned int kPageSize>
class VirtualScratch {
 public:
  VirtualScratch() { m_file.open(kBudget, 0, kPageSize, false); }
  void write(const char* data, unsigned int n) { m_file.write(data, n); }
  unsigned int read(char* data, unsigned int n) {
    return static_cast<unsigned int>(m_file.read(data, n));
  }
  void seek(std::size_t at) { m_file.seek(static_cast<int>(at), QRTFmFile::eSeekSet); }

 private:
  QRTVirtualFile m_file;
};

class StdioScratch {
 public:
  void write(const char* data, unsigned int n) { std::fwrite(data, 1, n, m_file.get()); }
  unsigned int read(char* data, unsigned int n) {
    return static_cast<unsigned int>(std::fread(data, 1, n, m_file.get()));
  }
  void seek(std::size_t at) { fseeko(m_file.get(), static_cast<off_t>(at), SEEK_SET); }

 private:
  struct Closer {
    void operator()(FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<FILE, Closer> m_file{std::tmpfile()};
};

class SystemScratch {
 public:
  SystemScratch() {
    char name[] = "/tmp/file_bench-XXXXXX";
    m_descriptor = mkstemp(name);
    unlink(name);
  }
  ~SystemScratch() { close(m_descriptor); }
  SystemScratch(const SystemScratch&) = delete;
  SystemScratch& operator=(const SystemScratch&) = delete;
  void write(const char* data, unsigned int n) { m_at += pwrite(m_descriptor, data, n, m_at); }
  unsigned int read(char* data, unsigned int n) {
    const ssize_t got = pread(m_descriptor, data, n, m_at);
    m_at += got;
    return static_cast<unsigned int>(got);
  }
  void seek(std::size_t at) { m_at = static_cast<off_t>(at); }

 private:
  int m_descriptor;
  off_t m_at = 0;
};

// Byte i of the file is byte i of the words mix(0), mix(1) ...
std::uint64_t mix(std::size_t word) {
  std::uint64_t value = (word + 1) * 0x9E3779B97F4A7C15ULL;
  return value ^ (value >> 29);
}

void fillBlock(char* block, std::size_t at, unsigned int n) {
  for (unsigned int i = 0; i < n; i += sizeof(std::uint64_t)) {
    const std::uint64_t word = mix((at + i) / sizeof word);
    std::memcpy(block + i, &word, sizeof word);
  }
}

/// The file that the four benchmarks of one kind share; it goes with the last of them.
template <typename Scratch>
std::unique_ptr<Scratch>& shared() {
  static std::unique_ptr<Scratch> scratch;
  return scratch;
}

void report(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
  state.counters["residentMiB"] = static_cast<double>(example::residentBytes() >> 20);
}

template <typename Scratch>
void writeNew() {
  char block[kCall];
  shared<Scratch>().reset();
  shared<Scratch>() = std::make_unique<Scratch>();
  for (std::size_t at = 0; at < kFileBytes; at += kCall) {
    fillBlock(block, at, kCall);
    shared<Scratch>()->write(block, kCall);
  }
}

// A file goes before the one that is measured: memory that a virtual machine touches for the first
// time is slow, whoever asks for it.
template <typename Scratch>
void WriteSequential(benchmark::State& state) {
  writeNew<Scratch>();
  for (auto _ : state) {
    writeNew<Scratch>();
  }
  report(state, kFileBytes);
}

template <typename Scratch>
void ReadSequential(benchmark::State& state) {
  char block[kCall];
  bool right = true;
  for (auto _ : state) {
    shared<Scratch>()->seek(0);
    for (std::size_t at = 0; at < kFileBytes; at += kCall) {
      right &= shared<Scratch>()->read(block, kCall) == kCall;
      std::uint64_t word = 0;
      std::memcpy(&word, block + at / kCall % 512 * sizeof word, sizeof word);
      right &= word == mix(at / sizeof word + at / kCall % 512);
    }
  }
  if (!right) {
    state.SkipWithError("the file came back different");
  }
  report(state, kFileBytes);
}

template <typename Scratch, bool kWrite>
void Random(benchmark::State& state) {
  std::mt19937_64 random(7);
  char bytes[kSmallCall + 4] = {};
  bool right = true;
  for (auto _ : state) {
    const std::size_t at = random() % (kFileBytes - kSmallCall) / 8 * 8;
    shared<Scratch>()->seek(at);
    if (kWrite) {
      fillBlock(bytes, at, kSmallCall);
      shared<Scratch>()->write(bytes, kSmallCall);
    } else {
      shared<Scratch>()->read(bytes, kSmallCall);
      std::uint64_t word = 0;
      std::memcpy(&word, bytes + 48, sizeof word);
      right &= word == mix(at / sizeof word + 6);
    }
  }
  if (!right) {
    state.SkipWithError("the file came back different");
  }
  report(state, static_cast<std::size_t>(state.iterations()) * kSmallCall);
  if (kWrite) {
    shared<Scratch>().reset();
  }
}

#define SCRATCH_BENCH(name, ...)                                                        \
  BENCHMARK(WriteSequential<__VA_ARGS__>)                                               \
      ->Name("WriteSequential/" name)                                                   \
      ->Iterations(1)                                                                   \
      ->Unit(benchmark::kMillisecond);                                                  \
  BENCHMARK(ReadSequential<__VA_ARGS__>)                                                \
      ->Name("ReadSequential/" name)                                                    \
      ->Iterations(1)                                                                   \
      ->Unit(benchmark::kMillisecond);                                                  \
  BENCHMARK(Random<__VA_ARGS__, false>)->Name("ReadRandom/" name)->Iterations(400'000); \
  BENCHMARK(Random<__VA_ARGS__, true>)->Name("WriteRandom/" name)->Iterations(400'000)

using Paged = VirtualScratch<64U << 20, 0>;
using PagedSmall = VirtualScratch<64U << 20, 4096>;
using PagedLarge = VirtualScratch<64U << 20, 65536>;
using Resident = VirtualScratch<1200U << 20, 0>;
SCRATCH_BENCH("virtual, 64 MiB", Paged);
SCRATCH_BENCH("virtual, 64 MiB, 4 KiB pages", PagedSmall);
SCRATCH_BENCH("virtual, 64 MiB, 64 KiB pages", PagedLarge);
SCRATCH_BENCH("virtual, resident", Resident);
SCRATCH_BENCH("tmpfile", StdioScratch);
SCRATCH_BENCH("pread", SystemScratch);

}  // namespace
