#ifndef TESTS_MODEL_CONTENT_H
#define TESTS_MODEL_CONTENT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "model/Choices.h"

namespace model {

/// The content that belongs to a seed, of any length: a shorter one is a longer one's beginning.
/// @param data  receives `size` bytes
inline void fill(void* data, std::size_t size, std::uint32_t seed) {
  auto* at = static_cast<char*>(data);
  for (std::uint64_t word = 0; size > 0; ++word) {
    const std::uint64_t bytes = Choices::mix(word, seed);
    const std::size_t here = std::min(size, sizeof bytes);
    std::memcpy(at, &bytes, here);
    at += here;
    size -= here;
  }
}

/// Whether `size` bytes are the content that belongs to a seed.
inline bool holds(const void* data, std::size_t size, std::uint32_t seed) {
  const auto* at = static_cast<const char*>(data);
  for (std::uint64_t word = 0; size > 0; ++word) {
    const std::uint64_t bytes = Choices::mix(word, seed);
    const std::size_t here = std::min(size, sizeof bytes);
    if (std::memcmp(at, &bytes, here) != 0) {
      return false;
    }
    at += here;
    size -= here;
  }
  return true;
}

}  // namespace model

#endif  // TESTS_MODEL_CONTENT_H
