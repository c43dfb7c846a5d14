#include "libtcmalloc_virtualmm/ObjectHandle.h"

#include <chrono>
#include <exception>
#include <random>

namespace tcmalloc {

std::uint16_t DrawFirstGeneration() noexcept {
  // Where stores lie and when they are made differs as well: where the system has no random numbers
  // to give, that has to do.
  static const char place = 0;
  const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  std::uint64_t seed = static_cast<std::uint64_t>(now) ^ reinterpret_cast<std::uintptr_t>(&place);
  try {
    std::random_device device;
    seed ^= static_cast<std::uint64_t>(device()) << 32 | device();
  } catch (const std::exception&) {
    // The clock and the address are left.
  }
  // The multiplier of Fibonacci hashing: each bit of the seed reaches the highest ones.
  seed = (seed ^ seed >> 32) * 0x9E3779B97F4A7C15U;
  return static_cast<std::uint16_t>((seed >> 48) % kFirstGenerations);
}

}  // namespace tcmalloc
