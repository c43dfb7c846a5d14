#ifndef EXAMPLES_LARGESTORE_PATTERN_H
#define EXAMPLES_LARGESTORE_PATTERN_H

#include <cstddef>
#include <cstdint>

namespace example {

/// A stretch of words that follows from a number: no two numbers below 2^32 give the same first
/// word, and no stretch compresses or repeats.
class Pattern {
 public:
  /// @param number   what it follows from
  /// @param version  0, or 1 for what stands there after an edit
  Pattern(std::uint32_t number, std::uint32_t version)
      : m_word(number * 2654435761U ^ (version != 0 ? 0x5BD1E995U : 0U)) {}

  void fill(std::uint32_t* words, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      words[i] = next();
    }
  }

  bool matches(const std::uint32_t* words, std::size_t count) {
    std::uint32_t difference = 0;
    for (std::size_t i = 0; i < count; ++i) {
      difference |= words[i] ^ next();
    }
    return difference == 0;
  }

 private:
  std::uint32_t next() {
    m_word = m_word * 1664525U + 1013904223U;
    return m_word;
  }

  std::uint32_t m_word;
};

}  // namespace example

#endif  // EXAMPLES_LARGESTORE_PATTERN_H
