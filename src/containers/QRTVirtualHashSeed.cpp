#include "QRTVirtualHashSeed.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <random>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace {

// A device for each map would be a call of the system for each.
std::uint64_t drawForProcess() noexcept {
  try {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
  } catch (const std::exception&) {
    // Better than a constant: whoever chooses keys would have to know the nanosecond.
    const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
    return XXH3_64bits(&now, sizeof now);
  }
}

}  // namespace

QRTVirtualHashSeed::QRTVirtualHashSeed() noexcept {
  static const std::uint64_t ofProcess = drawForProcess();
  static std::atomic<std::uint64_t> drawn{0};
  const std::uint64_t number = drawn.fetch_add(1, std::memory_order_relaxed);
  m_seed = XXH3_64bits_withSeed(&number, sizeof number, ofProcess);
}

unsigned long long QRTVirtualHashSeed::ofNumber(unsigned long long number) const noexcept {
  return XXH3_64bits_withSeed(&number, sizeof number, m_seed);
}

unsigned long long QRTVirtualHashSeed::ofBytes(const void* bytes, std::size_t size) const noexcept {
  return XXH3_64bits_withSeed(bytes, size, m_seed);
}
