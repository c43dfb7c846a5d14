// A scratch file written and read in 4 KiB calls, then read and written at random in 100-byte
// calls. A virtual file with as much memory as it has bytes and with a sixteenth of that, tmpfile
// with stdio, and a nameless file and one in memory with pread and pwrite. Time on the wall, since
// all of them hand data to the system. Every read is checked.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "FileWork.h"
#include "QRTVirtualFile.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/ScratchDirectory.h"

namespace {

constexpr unsigned int kCall = 4096;
constexpr unsigned int kSmallCall = 100;

class VirtualScratch {
 public:
  VirtualScratch(const FileOptions& options, std::size_t divisor) {
    // Where all is to fit, what a page costs in the store besides has to as well.
    const std::size_t budget = options.bytes.value / divisor;
    m_file.open(static_cast<unsigned int>(divisor == 1 ? budget + budget / 8 : budget), 0,
                static_cast<unsigned int>(options.pageBytes.value), false);
  }
  bool write(const char* data, unsigned int n) {
    return m_file.write(data, n) == static_cast<int>(n);
  }
  bool read(char* data, unsigned int n) { return m_file.read(data, n) == static_cast<int>(n); }
  bool seek(std::size_t at) {
    return m_file.seek(static_cast<int>(at), QRTFmFile::eSeekSet) == static_cast<int>(at);
  }

 private:
  QRTVirtualFile m_file;
};

class StdioScratch {
 public:
  StdioScratch() {
    if (m_file == nullptr) {
      suite::fail("tmpfile makes no file");
    }
  }
  bool write(const char* data, unsigned int n) {
    return std::fwrite(data, 1, n, m_file.get()) == n;
  }
  bool read(char* data, unsigned int n) { return std::fread(data, 1, n, m_file.get()) == n; }
  bool seek(std::size_t at) { return fseeko(m_file.get(), static_cast<off_t>(at), SEEK_SET) == 0; }

 private:
  struct Closer {
    void operator()(FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<FILE, Closer> m_file{std::tmpfile()};
};

/// A descriptor read and written with positions.
class SystemScratch {
 public:
  explicit SystemScratch(int descriptor) : m_descriptor(descriptor) {
    if (descriptor < 0) {
      suite::fail("the system makes no file");
    }
  }
  ~SystemScratch() { ::close(m_descriptor); }
  SystemScratch(const SystemScratch&) = delete;
  SystemScratch& operator=(const SystemScratch&) = delete;

  /// A file that gives its blocks back when it is closed.
  static int unlinked() {
    const std::string path = suite::scratchPath("file");
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ::unlink(path.c_str());
    return descriptor;
  }
  bool write(const char* data, unsigned int n) {
    return step(::pwrite(m_descriptor, data, n, m_at), n);
  }
  bool read(char* data, unsigned int n) { return step(::pread(m_descriptor, data, n, m_at), n); }
  bool seek(std::size_t at) {
    m_at = static_cast<off_t>(at);
    return true;
  }

 private:
  bool step(ssize_t done, unsigned int n) {
    m_at += done;
    return done == static_cast<ssize_t>(n);
  }

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

bool holds(const char* block, std::size_t at, std::size_t offset) {
  std::uint64_t word = 0;
  std::memcpy(&word, block + offset, sizeof word);
  return word == mix((at + offset) / sizeof word);
}

/// @param open  makes a new file
template <class Open>
void measure(const char* peer, const FileOptions& options, Open open) {
  const std::size_t size = options.bytes.value / kCall * kCall;
  if (size < kCall || size > INT32_MAX) {
    suite::fail("A scratch file takes 4K to 2G - 4K bytes");
  }
  const auto print = [&](const char* variant, const char* unit, double value) {
    suite::print({"scratch", peer, variant, options.bytes.text, unit, value});
  };
  const auto check = [&](bool right) {
    if (!right) {
      suite::fail(std::string(peer) + ": the file does not hold what was written");
    }
  };
  char block[kCall];
  const auto fill = [&](auto& file) {
    for (std::size_t at = 0; at < size; at += kCall) {
      fillBlock(block, at, kCall);
      check(file->write(block, kCall));
    }
  };

  // A file goes before the one that is measured: memory that a virtual machine touches for the
  // first time is slow, whoever asks for it.
  auto file = open();
  fill(file);
  file.reset();
  const std::uint64_t before = suite::residentBytes();
  const suite::Meter writing;
  file = open();
  fill(file);
  print("write", "MB/s", static_cast<double>(size) * 1e-6 / writing.wallSeconds());
  print("resident", "bytes", static_cast<double>(suite::residentBytes() - before));

  const suite::Meter reading;
  check(file->seek(0));
  for (std::size_t at = 0; at < size; at += kCall) {
    check(file->read(block, kCall) && holds(block, at, at / kCall % 512 * 8));
  }
  print("read", "MB/s", static_cast<double>(size) * 1e-6 / reading.wallSeconds());

  std::mt19937_64 random(7);
  const auto atRandom = [&](const char* variant, auto access) {
    const suite::Meter meter;
    for (std::size_t i = 0; i < options.accesses.value; ++i) {
      const std::size_t at = random() % (size - kSmallCall) / 8 * 8;
      check(file->seek(at) && access(at));
    }
    print(variant, "ns", meter.wallSeconds() * 1e9 / static_cast<double>(options.accesses.value));
  };
  char bytes[kSmallCall + 4] = {};
  const auto read = [&](std::size_t at) {
    return file->read(bytes, kSmallCall) && holds(bytes, at, 48);
  };
  atRandom("random read", read);
  atRandom("random write", [&](std::size_t at) {
    fillBlock(bytes, at, kSmallCall);
    return file->write(bytes, kSmallCall);
  });
}

}  // namespace

void addScratchPeers(suite::Program& program, const FileOptions& options) {
  const auto add = [&](const char* peer, auto open) {
    program.add("scratch", peer, [&options, peer, open] { measure(peer, options, open); });
  };
  add("stdio", [] { return std::make_unique<StdioScratch>(); });
  add("pread", [] { return std::make_unique<SystemScratch>(SystemScratch::unlinked()); });
  add("memfd", [] { return std::make_unique<SystemScratch>(::memfd_create("suite", 0)); });
  add("store", [&] { return std::make_unique<VirtualScratch>(options, 1); });
  add("store 1/16", [&] { return std::make_unique<VirtualScratch>(options, 16); });
}
