#ifndef EXAMPLES_POOLMAP_TRACE_H
#define EXAMPLES_POOLMAP_TRACE_H

#include <cstdint>
#include <string>
#include <vector>

namespace example {

/// A record of a trace file as the recorder writes it, in the machine's byte order. The file starts
/// with kTraceMagic and consists of nothing else.
struct TraceRecord {
  std::uint64_t address;  // bytes 0-7: the block
  std::uint32_t size;     // bytes 8-11: bytes asked for; 0 when freed
  std::uint32_t isFree;   // bytes 12-15: 1 when the block was freed, 0 when it was allocated
};
static_assert(sizeof(TraceRecord) == 16, "records are exchanged as bytes");

constexpr char kTraceMagic[16] = "QRT allocations";

/// What a program did with its heap: allocations and frees in order. Addresses are replaced by
/// slots, small numbers that are used again once their block is freed.
class Trace {
 public:
  struct Event {
    std::uint32_t slot;
    std::uint32_t size;  // kFree for a free
  };
  static constexpr std::uint32_t kFree = 0xFFFFFFFF;

  /// Reads a trace file.
  /// @param limit  records to read at most
  /// @throws std::runtime_error with a text for the user: the file cannot be read or is no trace
  static Trace load(const std::string& file, std::uint64_t limit);

  const std::vector<Event>& events() const { return m_events; }

  /// Slots that are in use at once at most.
  std::uint32_t slots() const { return m_slots; }

  /// Allocations, and the bytes they asked for.
  std::uint64_t allocations() const { return m_allocations; }
  std::uint64_t bytes() const { return m_bytes; }

  /// Bytes live at once at most, and the event that made them so.
  std::uint64_t peakBytes() const { return m_peakBytes; }
  std::size_t peakEvent() const { return m_peakEvent; }

 private:
  std::vector<Event> m_events;
  std::uint32_t m_slots = 0;
  std::uint64_t m_allocations = 0;
  std::uint64_t m_bytes = 0;
  std::uint64_t m_peakBytes = 0;
  std::size_t m_peakEvent = 0;
};

}  // namespace example

#endif  // EXAMPLES_POOLMAP_TRACE_H
