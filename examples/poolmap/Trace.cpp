#include "Trace.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include "SourceFile.h"

namespace example {

namespace {

/// Which block stands at an address. One array: a map of nodes would leave the heap full of holes
/// that malloc could serve the trace from without asking the system.
class LiveBlocks {
 public:
  struct Entry {
    std::uint64_t address;
    std::uint32_t slot;
    std::uint32_t size;  // 0 while no block is there
  };

  explicit LiveBlocks(std::uint64_t addresses)
      : m_entries(std::bit_ceil(static_cast<std::size_t>(addresses * 2 + 2))) {}

  Entry& find(std::uint64_t address) {
    std::size_t at = static_cast<std::size_t>(address * 0x9E3779B97F4A7C15u >> 20);
    for (;; ++at) {
      Entry& entry = m_entries[at & (m_entries.size() - 1)];
      if (entry.address == 0) {
        entry.address = address;
      }
      if (entry.address == address) {
        return entry;
      }
    }
  }

 private:
  std::vector<Entry> m_entries;  // open addressing; address 0 is an empty entry
};

/// Reads the records of a trace file one by one, through one buffer.
class Records {
 public:
  explicit Records(const std::string& path) : m_path(path), m_buffer(kBuffered) {
    FileStatus status;
    if (!m_file.openNamed(path) || !m_file.readStatus(status)) {
      throw std::runtime_error(path + ": " + m_file.error());
    }
    m_size = status.size;
    char magic[sizeof kTraceMagic];
    m_offset = m_file.read(0, reinterpret_cast<std::byte*>(magic), sizeof magic);
    if (m_offset != sizeof magic || std::memcmp(magic, kTraceMagic, sizeof magic) != 0) {
      throw std::runtime_error(path + " is no allocation trace. Record one with --record.");
    }
  }

  /// How many there are, as far as the file's size tells.
  std::uint64_t count() const { return m_size / sizeof(TraceRecord); }

  /// @return false at the end
  bool next(TraceRecord& record) {
    if (m_next == m_filled) {
      const std::size_t got = m_file.read(m_offset, reinterpret_cast<std::byte*>(m_buffer.data()),
                                          m_buffer.size() * sizeof(TraceRecord));
      if (!m_file.error().empty()) {
        throw std::runtime_error(m_path + ": " + m_file.error());
      }
      m_offset += got;
      m_next = 0;
      m_filled = got / sizeof(TraceRecord);
    }
    if (m_next == m_filled) {
      return false;
    }
    record = m_buffer[m_next++];
    return true;
  }

 private:
  static constexpr std::size_t kBuffered = 4096;

  std::string m_path;                 // for errors
  SourceFile m_file;                  // open for reading
  std::uint64_t m_size = 0;           // bytes of it
  std::uint64_t m_offset = 0;         // bytes read of it
  std::vector<TraceRecord> m_buffer;  // records on their way
  std::size_t m_next = 0;             // the next of them
  std::size_t m_filled = 0;           // how many there are
};

}  // namespace

Trace Trace::load(const std::string& file, std::uint64_t limit) {
  Records records(file);
  Trace trace;
  LiveBlocks live(std::min(limit, records.count()));
  std::vector<std::uint32_t> unused;
  std::uint64_t liveBytes = 0;
  TraceRecord record;
  for (std::uint64_t i = 0; i < limit && records.next(record); ++i) {
    LiveBlocks::Entry& block = live.find(record.address);
    if (block.size != 0) {
      // Freed; or handed out again without a free that was seen, which comes to the same.
      trace.m_events.push_back({block.slot, kFree});
      liveBytes -= block.size;
      unused.push_back(block.slot);
      block.size = 0;
    }
    if (record.isFree != 0) {
      continue;
    }
    if (unused.empty()) {
      unused.push_back(trace.m_slots++);
    }
    // The arena has no block of size 0, and kFree is taken.
    block.size = std::clamp(record.size, 1u, kFree - 1);
    block.slot = unused.back();
    unused.pop_back();
    trace.m_events.push_back({block.slot, block.size});
    ++trace.m_allocations;
    trace.m_bytes += block.size;
    liveBytes += block.size;
    if (liveBytes > trace.m_peakBytes) {
      trace.m_peakBytes = liveBytes;
      trace.m_peakEvent = trace.m_events.size();
    }
  }
  if (trace.m_events.empty()) {
    throw std::runtime_error(file + " holds no allocation.");
  }
  return trace;
}

}  // namespace example
