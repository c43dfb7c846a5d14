#include "UpdatePattern.h"

#include <algorithm>
#include <cstring>

namespace example {

namespace {

constexpr std::uint64_t kGolden = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio

/// Spreads every bit of a number over all of the result.
std::uint64_t mix(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

}  // namespace

bool UpdatePattern::selects(std::uint64_t object) const {
  return mix(m_seed + mix(object * kGolden + 1)) % 10 == 0;
}

void UpdatePattern::apply(std::uint64_t object, std::byte* bytes, std::size_t size) const {
  std::uint64_t state = mix(m_seed ^ mix(object + kGolden));
  for (std::size_t place = 0; place < size; place += sizeof(std::uint64_t)) {
    state += kGolden;
    const std::size_t width = std::min(sizeof(std::uint64_t), size - place);
    // Odd in every byte: each byte of the object changes.
    const std::uint64_t mask = mix(state) | 0x0101010101010101;
    std::uint64_t word = 0;
    std::memcpy(&word, bytes + place, width);
    word ^= mask;
    std::memcpy(bytes + place, &word, width);
  }
}

}  // namespace example
