#ifndef BENCH_SUITE_STRINGS_CORPUS_H
#define BENCH_SUITE_STRINGS_CORPUS_H

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "QRTCore/I18NString.h"

/// Real text: what /usr/share/doc holds uncompressed, made well-formed, and pieces of 10 to 2,000
/// bytes of it, all lengths equally likely.
class Corpus {
 public:
  /// Reads the text and cuts so many pieces out of it.
  /// @throws std::runtime_error when there is too little text
  explicit Corpus(std::size_t pieces) : m_text(readText()) {
    std::mt19937 random(1);
    m_pieces.reserve(pieces);
    for (std::size_t i = 0; i < pieces; ++i) {
      std::size_t from = random() % (m_text.size() - 2000);
      while (isTrail(m_text[from])) {
        --from;
      }
      std::size_t to = from + 10 + random() % 1991;
      while (isTrail(m_text[to])) {
        --to;
      }
      m_pieces.push_back(std::string_view(m_text).substr(from, to - from));
      m_bytes += to - from;
    }
  }
  Corpus(const Corpus&) = delete;
  Corpus& operator=(const Corpus&) = delete;

  std::string_view text() const { return m_text; }
  const std::vector<std::string_view>& pieces() const { return m_pieces; }
  /// The lengths of all pieces together.
  std::size_t bytes() const { return m_bytes; }

 private:
  static constexpr std::size_t kTextBytes = std::size_t{8} << 20;

  static bool isTrail(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

  static std::string readText() {
    namespace fs = std::filesystem;
    std::error_code ignored;
    std::string raw;
    for (fs::recursive_directory_iterator at("/usr/share/doc", ignored), end;
         at != end && raw.size() < kTextBytes; at.increment(ignored)) {
      if (at->is_regular_file(ignored) && at->path().extension() != ".gz") {
        std::ifstream file(at->path(), std::ios::binary);
        raw.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
      }
    }
    if (raw.size() < (std::size_t{1} << 20)) {
      throw std::runtime_error("/usr/share/doc holds too little text to measure with");
    }
    const I18NString repaired{std::string_view(raw)};
    std::string text(static_cast<std::size_t>(repaired.getUtf8Length()), '\0');
    repaired.copyUtf8(text.data());
    return text;
  }

  std::string m_text;                      // all of it
  std::vector<std::string_view> m_pieces;  // pieces of it
  std::size_t m_bytes = 0;                 // their lengths together
};

#endif  // BENCH_SUITE_STRINGS_CORPUS_H
