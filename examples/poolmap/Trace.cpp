#include "Trace.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

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

std::uint64_t recordsIn(const std::string& file, std::uint64_t limit) {
  return std::min<std::uint64_t>(limit, std::filesystem::file_size(file) / sizeof(TraceRecord));
}

}  // namespace

Trace Trace::load(const std::string& file, std::uint64_t limit) {
  std::ifstream in(file, std::ios::binary);
  char magic[sizeof kTraceMagic];
  if (!in) {
    throw std::runtime_error(file + " cannot be opened.");
  }
  if (!in.read(magic, sizeof magic) || std::memcmp(magic, kTraceMagic, sizeof magic) != 0) {
    throw std::runtime_error(file + " is no allocation trace. Record one with --record.");
  }
  Trace trace;
  LiveBlocks live(recordsIn(file, limit));
  std::vector<std::uint32_t> unused;
  std::uint64_t liveBytes = 0;
  TraceRecord record;
  for (std::uint64_t i = 0; i < limit && in.read(reinterpret_cast<char*>(&record), sizeof record);
       ++i) {
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
