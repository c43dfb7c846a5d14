// Writing 64 MiB of package lists, or of program text where there are none, through a compressing
// file, beside the compression library fed directly with the same level and output buffer, zlib's
// level 6, and what reading the result back takes. The ratio is compressed to plain bytes.

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualMemoryMgr.h"
#ifdef QRT_BENCH_ISAL
#include <isa-l/igzip_lib.h>
#endif

namespace {

constexpr std::size_t kTextBytes = std::size_t{64} << 20;
constexpr std::size_t kOutput = 32U << 10;  // as HZSGZIPOutputStream has it

/// Lists of packages and their files, again and again until there is enough. Repeats lie further
/// apart than gzip looks back.
const std::string& text() {
  static const std::string all = [] {
    std::string bytes;
    std::vector<std::filesystem::path> paths{"/var/lib/dpkg/status"};
    for (const auto& entry : std::filesystem::directory_iterator("/var/lib/dpkg/info")) {
      paths.push_back(entry.path());
    }
    std::sort(paths.begin() + 1, paths.end());
    for (const std::filesystem::path& path : paths) {
      std::ifstream file(path, std::ios::binary);
      bytes.append(std::istreambuf_iterator<char>(file), {});
    }
    for (std::size_t i = 0; bytes.size() < kTextBytes; ++i) {
      bytes.append(bytes, 0, std::max<std::size_t>(bytes.size(), 1));
    }
    bytes.resize(kTextBytes);
    return bytes;
  }();
  return all;
}

void report(benchmark::State& state, std::size_t compressed) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kTextBytes));
  state.counters["ratio"] = static_cast<double>(compressed) / static_cast<double>(kTextBytes);
}

/// Calls feed(data, size, isLast) for the whole text in calls of one size.
template <typename Feed>
void inCalls(std::size_t call, Feed feed) {
  for (std::size_t at = 0; at < kTextBytes; at += call) {
    feed(text().data() + at, std::min(call, kTextBytes - at), at + call >= kTextBytes);
  }
}

void CompressingFile(benchmark::State& state) {
  QRTVirtualMemoryMgr manager(64U << 20, 0U, 64);
  std::size_t compressed = 0;
  text();
  for (auto _ : state) {
    QRTVirtualFile file;
    file.open(&manager, 0, 0, true);
    inCalls(static_cast<std::size_t>(state.range(0)), [&](const char* data, std::size_t n, bool) {
      file.write(data, static_cast<unsigned int>(n));
    });
    file.close();
    compressed = static_cast<std::size_t>(file.getLength());
  }
  report(state, compressed);
}

void InflatingReader(benchmark::State& state) {
  QRTVirtualFile file;
  file.open(64U << 20, 0, 0, true);
  file.write(text().data(), static_cast<unsigned int>(kTextBytes));
  file.close();
  std::vector<char> block(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    file.seek(0, QRTFmFile::eSeekSet);
    QRTVirtualFileGZIPReader reader(file);
    std::size_t total = 0;
    while (const unsigned int got =
               reader.read(block.data(), static_cast<unsigned int>(block.size()))) {
      total += got;
    }
    if (total != kTextBytes) {
      state.SkipWithError("the content came back different");
    }
  }
  report(state, static_cast<std::size_t>(file.getLength()));
}

void Zlib(benchmark::State& state) {
  std::vector<unsigned char> output(kOutput);
  std::size_t compressed = 0;
  text();
  for (auto _ : state) {
    z_stream stream{};
    deflateInit2(&stream, static_cast<int>(state.range(1)), Z_DEFLATED, 15 + 16, 8,
                 Z_DEFAULT_STRATEGY);
    inCalls(static_cast<std::size_t>(state.range(0)),
            [&](const char* data, std::size_t n, bool last) {
              stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
              stream.avail_in = static_cast<uInt>(n);
              do {
                stream.next_out = output.data();
                stream.avail_out = kOutput;
                deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
                benchmark::DoNotOptimize(output.data());
              } while (stream.avail_out == 0);
            });
    compressed = stream.total_out;
    deflateEnd(&stream);
  }
  report(state, compressed);
}

#ifdef QRT_BENCH_ISAL
void Isal(benchmark::State& state) {
  std::vector<std::uint8_t> output(kOutput);
  std::vector<std::uint8_t> levelBuffer(ISAL_DEF_LVL1_DEFAULT);
  auto stream = std::make_unique<isal_zstream>();
  text();
  for (auto _ : state) {
    isal_deflate_init(stream.get());
    stream->gzip_flag = IGZIP_GZIP;
    stream->level = 1;
    stream->level_buf = levelBuffer.data();
    stream->level_buf_size = ISAL_DEF_LVL1_DEFAULT;
    inCalls(static_cast<std::size_t>(state.range(0)),
            [&](const char* data, std::size_t n, bool last) {
              stream->next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(data));
              stream->avail_in = static_cast<std::uint32_t>(n);
              stream->end_of_stream = last ? 1 : 0;
              do {
                stream->next_out = output.data();
                stream->avail_out = kOutput;
                isal_deflate(stream.get());
                benchmark::DoNotOptimize(output.data());
              } while (stream->avail_out == 0);
            });
  }
  report(state, stream->total_out);
}
BENCHMARK(Isal)->Arg(100)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(CompressingFile)->Arg(100)->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(Zlib)->ArgsProduct({{4096}, {1, 6}})->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(InflatingReader)->Arg(100)->Arg(4096)->Unit(benchmark::kMillisecond);

}  // namespace
