// Package lists, or program text where there are none, written through a compressing file, beside
// the compression libraries fed directly with the same output buffer. What comes out is
// decompressed and compared. Processor time.

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FileWork.h"
#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualMemoryMgr.h"
#include "common/Figure.h"
#include "common/Meter.h"
#ifdef SUITE_ISAL
#include <isa-l/igzip_lib.h>
#endif

namespace {

constexpr std::size_t kOutput = 32U << 10;  // as HZSGZIPOutputStream has it

/// Lists of packages and their files, again and again until there is enough. Repeats lie further
/// apart than gzip looks back.
std::string readText(std::size_t size) {
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
  if (bytes.size() < kOutput) {
    suite::fail("/var/lib/dpkg holds too little text to measure with");
  }
  while (bytes.size() < size) {
    bytes.append(bytes, 0, size - bytes.size());
  }
  bytes.resize(size);
  return bytes;
}

// The compressors take text by `feed(data, size, isLast)`. What they make goes to a block of memory
// that is used again, and to `m_kept` as well when it is to be compared.
using Kept = std::vector<unsigned char>;

void keep(Kept* kept, const unsigned char* output, std::size_t made) {
  if (kept != nullptr) {
    kept->insert(kept->end(), output, output + made);
  }
}

class Zlib {
 public:
  Zlib(int level, Kept* kept) : m_kept(kept) {
    if (deflateInit2(&m_stream, level, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
      suite::fail("zlib cannot be had");
    }
  }
  ~Zlib() { deflateEnd(&m_stream); }
  Zlib(const Zlib&) = delete;
  Zlib& operator=(const Zlib&) = delete;

  void feed(const char* data, std::size_t size, bool isLast) {
    m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    m_stream.avail_in = static_cast<uInt>(size);
    do {
      m_stream.next_out = m_output.data();
      m_stream.avail_out = kOutput;
      deflate(&m_stream, isLast ? Z_FINISH : Z_NO_FLUSH);
      keep(m_kept, m_output.data(), kOutput - m_stream.avail_out);
    } while (m_stream.avail_out == 0);
  }
  std::size_t made() const { return m_stream.total_out; }

 private:
  z_stream m_stream{};
  Kept m_output = Kept(kOutput);
  Kept* m_kept;  // null for nowhere
};

#ifdef SUITE_ISAL
class Isal {
 public:
  explicit Isal(Kept* kept) : m_kept(kept) {
    isal_deflate_init(m_stream.get());
    m_stream->gzip_flag = IGZIP_GZIP;
    m_stream->level = 1;
    m_stream->level_buf = m_levelBuffer.data();
    m_stream->level_buf_size = ISAL_DEF_LVL1_DEFAULT;
  }

  void feed(const char* data, std::size_t size, bool isLast) {
    m_stream->next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(data));
    m_stream->avail_in = static_cast<std::uint32_t>(size);
    m_stream->end_of_stream = isLast ? 1 : 0;
    do {
      m_stream->next_out = m_output.data();
      m_stream->avail_out = kOutput;
      isal_deflate(m_stream.get());
      keep(m_kept, m_output.data(), kOutput - m_stream->avail_out);
    } while (m_stream->avail_out == 0);
  }
  std::size_t made() const { return m_stream->total_out; }

 private:
  std::unique_ptr<isal_zstream> m_stream = std::make_unique<isal_zstream>();
  Kept m_levelBuffer = Kept(ISAL_DEF_LVL1_DEFAULT);
  Kept m_output = Kept(kOutput);
  Kept* m_kept;  // null for nowhere
};
#endif

/// The compressing file in a store that holds all it makes.
class Stored {
 public:
  explicit Stored(Kept*) { m_file.open(&m_manager, 0, 0, true); }
  void feed(const char* data, std::size_t size, bool isLast) {
    m_file.write(data, static_cast<unsigned int>(size));
    if (isLast) {
      m_file.close();
    }
  }
  std::size_t made() { return static_cast<std::size_t>(m_file.getLength()); }
  QRTVirtualFile& file() { return m_file; }

 private:
  QRTVirtualMemoryMgr m_manager{64U << 20};
  QRTVirtualFile m_file;
};

void feedAll(auto& compressor, const std::string& text, std::size_t call) {
  for (std::size_t at = 0; at < text.size(); at += call) {
    compressor.feed(text.data() + at, std::min(call, text.size() - at), at + call >= text.size());
  }
}

/// Compares what `read(block, size)` gives with the text.
bool givesBack(const std::string& text, auto read) {
  std::vector<char> block(4096);
  std::size_t at = 0;
  while (const std::size_t got = read(block.data(), static_cast<unsigned int>(block.size()))) {
    if (got > text.size() - at ||
        std::string_view(text).substr(at, got) != std::string_view(block.data(), got)) {
      return false;
    }
    at += got;
  }
  return at == text.size();
}

bool givesBack(const std::string& text, Kept& kept) {
  z_stream stream{};
  inflateInit2(&stream, 15 + 16);
  stream.next_in = kept.data();
  stream.avail_in = static_cast<uInt>(kept.size());
  const bool same = givesBack(text, [&](char* block, unsigned int size) -> std::size_t {
    stream.next_out = reinterpret_cast<Bytef*>(block);
    stream.avail_out = size;
    const int result = inflate(&stream, Z_NO_FLUSH);
    return result == Z_OK || result == Z_STREAM_END ? size - stream.avail_out : 0;
  });
  inflateEnd(&stream);
  return same;
}

/// @param make  makes a compressor that keeps its output in a Kept or, for null, nowhere
template <class Make>
void measure(const char* peer, const FileOptions& options, Make make) {
  const std::string text = readText(options.textBytes.value);
  const auto print = [&](const std::string& variant, const char* unit, double value) {
    suite::print({"gzip", peer, variant, options.textBytes.text, unit, value});
  };
  const auto printSpeed = [&](const std::string& variant, const suite::Meter& meter) {
    print(variant, "MB/s", static_cast<double>(text.size()) * 1e-6 / meter.cpuSeconds());
  };
  const std::pair<const char*, std::size_t> calls[] = {
      {"100 B calls", 100}, {"4 KiB calls", 4096}, {"1 MiB calls", 1U << 20}};
  for (const auto& [variant, call] : calls) {
    const suite::Meter meter;
    auto compressor = make(nullptr);
    feedAll(compressor, text, call);
    printSpeed(variant, meter);
  }
  Kept kept;
  auto compressor = make(&kept);
  feedAll(compressor, text, 4096);
  print("made", "bytes/byte",
        static_cast<double>(compressor.made()) / static_cast<double>(text.size()));
  bool same = false;
  if constexpr (requires { compressor.file(); }) {
    compressor.file().seek(0, QRTFmFile::eSeekSet);
    const suite::Meter meter;
    QRTVirtualFileGZIPReader reader(compressor.file());
    same = givesBack(text, [&](char* block, unsigned int size) -> std::size_t {
      return reader.read(block, size);
    });
    printSpeed("read back", meter);
  } else {
    same = givesBack(text, kept);
  }
  if (!same) {
    suite::fail(std::string(peer) + ": the text came back different");
  }
}

}  // namespace

void addGzipPeers(suite::Program& program, const FileOptions& options) {
  program.add("gzip", "zlib -6",
              [&] { measure("zlib -6", options, [](Kept* kept) { return Zlib(6, kept); }); });
  program.add("gzip", "zlib -1",
              [&] { measure("zlib -1", options, [](Kept* kept) { return Zlib(1, kept); }); });
#ifdef SUITE_ISAL
  program.add("gzip", "isal",
              [&] { measure("isal", options, [](Kept* kept) { return Isal(kept); }); });
#endif
  program.add("gzip", "store",
              [&] { measure("store", options, [](Kept* kept) { return Stored(kept); }); });
}
