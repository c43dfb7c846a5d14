// Bytes of pages for each byte of objects, with the engine's classes and with coarser spacings of
// the same construction.

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>

#include "libtcmalloc_virtualmm/SizeClasses.h"
#include "libtcmalloc_virtualmm/SlabPage.h"

using tcmalloc::SizeClass;
using tcmalloc::SizeClasses;

namespace {

constexpr std::uint32_t kPage = 4096;
constexpr int kSamples = 1'000'000;

/// Bytes that an object of `size` bytes takes with the engine's classes, its share of the span's
/// unused end included.
double EngineBytes(const SizeClasses& classes, std::uint32_t size) {
  const std::uint8_t sizeClass = classes.ClassFor(size);
  if (sizeClass == SizeClasses::kLarge) {
    return (size + kPage - 1) / kPage * kPage;
  }
  const SizeClass& c = classes[sizeClass];
  return static_cast<double>(c.pages) * kPage / c.slots;
}

/// The same with `perOctave` classes an octave, at least 8 bytes apart, in pages of their own.
double SpacedBytes(std::uint32_t perOctave, std::uint32_t size) {
  const std::uint32_t step = std::max(std::bit_floor(size - 1) / perOctave, 8U);
  const std::uint32_t capacity = (size + step - 1) / step * step;
  const std::uint32_t stride = capacity + tcmalloc::kObjectHeaderBytes;
  return static_cast<double>(kPage) / ((kPage - 8) / stride);
}

double Overhead(const std::function<std::uint32_t()>& size,
                const std::function<double(std::uint32_t)>& bytes) {
  double asked = 0;
  double taken = 0;
  for (int i = 0; i < kSamples; ++i) {
    const std::uint32_t s = size();
    asked += s;
    taken += bytes(s);
  }
  return taken / asked;
}

}  // namespace

void PrintSizeClassStudy() {
  const SizeClasses classes(kPage);
  std::printf("\nBytes of pages for each byte of objects (%u classes)\n", classes.Count());
  std::printf("%-34s %8s %8s %8s %8s\n", "sizes", "engine", "2/oct", "4/oct", "8/oct");
  struct Mix {
    const char* name;
    double mu, sigma, low, high;
  };
  for (const Mix& mix : {Mix{"log-normal 16..512, median 64", 4.16, 0.7, 16, 512},
                         Mix{"log-normal 16..512, median 96", 4.56, 0.7, 16, 512},
                         Mix{"log-normal 10..2000, median 300", 5.70, 1.0, 10, 2000}}) {
    const auto sizes = [&mix] {
      return [random = std::mt19937(1), d = std::lognormal_distribution<double>(mix.mu, mix.sigma),
              &mix]() mutable {
        return static_cast<std::uint32_t>(std::clamp(d(random), mix.low, mix.high));
      };
    };
    std::printf("%-34s %8.3f", mix.name,
                Overhead(sizes(), [&](std::uint32_t s) { return EngineBytes(classes, s); }));
    for (const std::uint32_t perOctave : {2U, 4U, 8U}) {
      std::printf(" %8.3f",
                  Overhead(sizes(), [&](std::uint32_t s) { return SpacedBytes(perOctave, s); }));
    }
    std::printf("\n");
  }
  std::printf("%-34s", "powers of two 16..65536, each");
  for (std::uint32_t size = 16; size <= 65536; size *= 2) {
    std::printf(" %.2f", EngineBytes(classes, size) / size);
  }
  std::printf("\n");
}
