#ifndef BENCH_SUITE_COMMON_CONTENT_H
#define BENCH_SUITE_COMMON_CONTENT_H

#include <cstdint>
#include <cstring>

namespace suite {

/// Reads the word at `index` of an object that may stand at any address.
inline std::uint64_t wordAt(const void* object, std::size_t index) {
  std::uint64_t word = 0;
  std::memcpy(&word, static_cast<const char*>(object) + index * sizeof word, sizeof word);
  return word;
}

inline void setWordAt(void* object, std::size_t index, std::uint64_t word) {
  std::memcpy(static_cast<char*>(object) + index * sizeof word, &word, sizeof word);
}

/// The first of the words that object number `key` holds after its `version`th update; they count
/// up from there.
inline std::uint64_t firstWord(std::uint64_t key, std::uint8_t version) {
  return (key + 1) * 0x9E3779B97F4A7C15ULL + (std::uint64_t{version} << 40);
}

/// Fills an object of `bytes`, a multiple of 8.
inline void fillContent(void* object, std::size_t bytes, std::uint64_t key, std::uint8_t version) {
  const std::uint64_t first = firstWord(key, version);
  for (std::size_t i = 0; i < bytes / sizeof first; ++i) {
    setWordAt(object, i, first + i);
  }
}

/// Whether an object holds what fillContent wrote, to the last byte.
inline bool hasContent(const void* object, std::size_t bytes, std::uint64_t key,
                       std::uint8_t version) {
  const std::uint64_t first = firstWord(key, version);
  std::uint64_t difference = 0;
  for (std::size_t i = 0; i < bytes / sizeof first; ++i) {
    difference |= wordAt(object, i) ^ (first + i);
  }
  return difference == 0;
}

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_CONTENT_H
