#ifndef LIBTCMALLOC_VIRTUALMM_READAHEAD_H
#define LIBTCMALLOC_VIRTUALMM_READAHEAD_H

#include <algorithm>
#include <array>
#include <cstdint>

namespace tcmalloc {

/// Recognises sequential scans, which miss at one page number after the other, several scans at a
/// time, and tells how many pages are worth reading at once.
class ReadAhead {
 public:
  /// @param maxWindow  most pages to read at once, at least 1
  explicit ReadAhead(std::uint32_t maxWindow) : m_maxWindow(maxWindow) {}

  /// Takes another limit, from the next step of each scan on.
  void SetMaxWindow(std::uint32_t maxWindow) { m_maxWindow = maxWindow; }

  /// Notes a miss at `page` that has to read `count` pages.
  /// @return the pages to read from `page` on, at least `count`
  std::uint32_t OnMiss(std::uint32_t page, std::uint32_t count) {
    for (Stream& stream : m_streams) {
      // A step may end early at a page that is in memory, or skip over a few.
      if (page - stream.begin < stream.window + kTolerance && stream.window != 0) {
        stream.window = std::max(count, std::min(2 * stream.window, m_maxWindow));
        stream.begin = page;
        return stream.window;
      }
    }
    // Not part of a known scan: it may be the first step of a new one.
    m_streams[m_oldest] = {page, count};
    m_oldest = (m_oldest + 1) % m_streams.size();
    return count;
  }

 private:
  static constexpr std::uint32_t kTolerance = 4;  // pages a scan may skip: they were in memory

  struct Stream {
    std::uint32_t begin = 0;   // first page of the last step
    std::uint32_t window = 0;  // pages of the last step; 0 in an unused place
  };

  std::uint32_t m_maxWindow;          // most pages to read at once
  std::array<Stream, 8> m_streams{};  // scans under way
  std::size_t m_oldest = 0;           // the stream to give up next
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_READAHEAD_H
