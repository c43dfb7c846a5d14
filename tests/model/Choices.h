#ifndef TESTS_MODEL_CHOICES_H
#define TESTS_MODEL_CHOICES_H

#include <cstddef>
#include <cstdint>

namespace model {

/// The decisions of one run, taken from a stream of bytes: either given, or drawn from a seed. The
/// same bytes, or the same seed, give the same decisions on every system. Small decisions take one
/// byte, so that a fuzzer which changes a byte changes one of them.
class Choices {
 public:
  /// Draws from a seed. @param bytes  how many there are
  Choices(std::uint64_t seed, std::size_t bytes) : m_left(bytes), m_seed(seed) {}

  /// Takes given bytes, which must outlive this.
  Choices(const std::uint8_t* data, std::size_t size) : m_data(data), m_left(size) {}

  /// Whether the stream is used up: every further byte is 0.
  bool atEnd() const { return m_left == 0; }

  std::uint8_t byte() {
    if (m_left == 0) {
      return 0;
    }
    --m_left;
    return m_data != nullptr ? *m_data++ : static_cast<std::uint8_t>(mix(++m_drawn, m_seed) >> 56U);
  }

  /// @param end  above 0
  /// @return a number from 0 to end - 1
  std::uint32_t below(std::uint32_t end) {
    std::uint32_t value = byte();
    for (std::uint32_t reach = 256; reach != 0 && reach < end; reach <<= 8U) {
      value = value << 8U | byte();
    }
    return value % end;
  }

  bool oneIn(std::uint32_t times) { return below(times) == 0; }

  /// @return a size from 0 to `most`, all magnitudes alike
  std::uint32_t size(std::uint32_t most) {
    std::uint32_t magnitude = 1;
    for (std::uint32_t bits = below(25); bits > 0 && magnitude < most; --bits) {
      magnitude *= 2;
    }
    return below(magnitude < most ? magnitude + 1 : most + 1);
  }

  /// The decisions that follow from one of these: for texts and the like, which would use the
  /// stream up.
  Choices fork() { return Choices(number(), SIZE_MAX); }

  /// @return any number of 64 bits
  std::uint64_t number() {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) {
      value = value << 8U | byte();
    }
    return value;
  }

  /// A well mixed function of two numbers.
  static std::uint64_t mix(std::uint64_t a, std::uint64_t b) {
    std::uint64_t word = a * 0x9E3779B97F4A7C15U + b;
    word = (word ^ (word >> 30U)) * 0xBF58476D1CE4E5B9U;
    word = (word ^ (word >> 27U)) * 0x94D049BB133111EBU;
    return word ^ (word >> 31U);
  }

 private:
  const std::uint8_t* m_data = nullptr;  // the next byte given; null when they are drawn
  std::size_t m_left;                    // bytes left
  std::uint64_t m_seed = 0;              // of those drawn
  std::uint64_t m_drawn = 0;             // bytes drawn so far
};

}  // namespace model

#endif  // TESTS_MODEL_CHOICES_H
