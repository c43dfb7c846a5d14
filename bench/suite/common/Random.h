#ifndef BENCH_SUITE_COMMON_RANDOM_H
#define BENCH_SUITE_COMMON_RANDOM_H

#include <cmath>
#include <cstdint>

namespace suite {

/// xorshift64*: about a nanosecond a number, so that it does not hide what is measured.
class Random {
 public:
  explicit Random(std::uint64_t seed = 88172645463325252ULL) : m_state(seed) {}

  std::uint64_t operator()() {
    m_state ^= m_state >> 12;
    m_state ^= m_state << 25;
    m_state ^= m_state >> 27;
    return m_state * 0x2545F4914F6CDD1DULL;
  }

  /// A number from 0 to `n` - 1; `n` is 1 to 2^32.
  std::uint64_t below(std::uint64_t n) { return ((*this)() >> 32) * n >> 32; }

  /// A number from 0 to 1, 1 excluded.
  double fraction() { return static_cast<double>((*this)() >> 11) * 0x1p-53; }

 private:
  std::uint64_t m_state;
};

/// Numbers from 0 to n - 1, one as often as another.
class Uniform {
 public:
  explicit Uniform(std::uint64_t n, Random random = Random()) : m_random(random), m_n(n) {}

  std::uint64_t operator()() { return m_random.below(m_n); }

 private:
  Random m_random;
  std::uint64_t m_n;
};

/// Numbers from 0 to n - 1 of which a fifth get four fifths of the draws: zipf with exponent 0.86.
/// The popular ones are spread over the whole range.
class Zipf {
 public:
  explicit Zipf(std::uint64_t n, std::uint64_t seed = 0x9E3779B97F4A7C15ULL)
      : m_random(seed), m_n(n), m_scale(std::pow(static_cast<double>(n), kPower) - 1) {}

  std::uint64_t operator()() {
    // Inverse of the integral of the continuous distribution.
    const double rank = std::pow(m_random.fraction() * m_scale + 1, 1 / kPower) - 1;
    return static_cast<std::uint64_t>(rank) * kPrime % m_n;
  }

 private:
  static constexpr double kPower = 1 - 0.86;
  static constexpr std::uint64_t kPrime = 2654435761U;  // above any n, so that no two ranks meet

  Random m_random;
  std::uint64_t m_n;
  double m_scale;
};

}  // namespace suite

#endif  // BENCH_SUITE_COMMON_RANDOM_H
