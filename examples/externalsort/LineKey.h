#ifndef EXAMPLES_EXTERNALSORT_LINEKEY_H
#define EXAMPLES_EXTERNALSORT_LINEKEY_H

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace example {

/// The first eight bytes of a line as a number that sorts as they do; most comparisons need no
/// more.
inline std::uint64_t lineKey(std::string_view line) {
  std::uint64_t key = 0;
  for (std::size_t i = 0; i < 8; ++i) {
    key = key << 8 | (i < line.size() ? static_cast<unsigned char>(line[i]) : 0U);
  }
  return key;
}

/// Whether line a sorts before line b.
inline bool lineBefore(std::uint64_t keyA, std::string_view a, std::uint64_t keyB,
                       std::string_view b) {
  return keyA != keyB ? keyA < keyB : a < b;
}

}  // namespace example

#endif  // EXAMPLES_EXTERNALSORT_LINEKEY_H
