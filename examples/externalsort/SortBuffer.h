#ifndef EXAMPLES_EXTERNALSORT_SORTBUFFER_H
#define EXAMPLES_EXTERNALSORT_SORTBUFFER_H

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace example {

/// Lines in memory, as many as fit into the bytes that it was given, and their order.
class SortBuffer {
 public:
  /// @param bytes  memory to use
  explicit SortBuffer(std::size_t bytes);

  /// The longest line that an empty buffer takes.
  std::size_t longestLine() const { return m_text.capacity(); }

  /// Adds a line. @return false when there is no room for it
  bool add(std::string_view line);

  bool empty() const { return m_lines.empty(); }
  void sort();
  void clear();

  /// Calls use(line) for every line in order.
  template <typename Use>
  void forEach(Use use) const {
    for (const Line& line : m_lines) {
      use(textOf(line));
    }
  }

 private:
  struct Line {
    std::uint64_t key;     // what lineKey gives
    std::uint32_t offset;  // of its text
    std::uint32_t size;    // bytes
  };

  std::string_view textOf(const Line& line) const {
    return {m_text.data() + line.offset, line.size};
  }

  std::vector<char> m_text;   // the lines' bytes; never grows beyond what was reserved
  std::vector<Line> m_lines;  // likewise
};

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_SORTBUFFER_H
