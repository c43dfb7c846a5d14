#ifndef BENCH_STRINGS_CORPUS_H
#define BENCH_STRINGS_CORPUS_H

#include <algorithm>
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

/// Real text for the string benchmarks: what /usr/share/doc holds uncompressed, made well-formed,
/// and a million pieces of 10 to 2,000 bytes of it, all lengths equally likely.
class Corpus {
 public:
  static constexpr std::size_t kStrings = 1'000'000;

  static const Corpus& Get() {
    static const Corpus corpus;
    return corpus;
  }

  std::string_view Text() const { return m_text; }
  const std::vector<std::string_view>& Strings() const { return m_strings; }
  double Bytes() const { return m_bytes; }

  /// The strings' numbers, in order or shuffled.
  static std::vector<std::uint32_t> Order(bool random) {
    std::vector<std::uint32_t> order(kStrings);
    for (std::size_t i = 0; i < order.size(); ++i) {
      order[i] = static_cast<std::uint32_t>(i);
    }
    if (random) {
      std::shuffle(order.begin(), order.end(), std::mt19937(7));
    }
    return order;
  }

 private:
  static constexpr std::size_t kTextBytes = std::size_t{32} << 20;

  static bool IsTrail(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

  Corpus() {
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
    m_text.resize(static_cast<std::size_t>(repaired.getUtf8Length()));
    repaired.copyUtf8(m_text.data());

    std::mt19937 random(1);
    for (std::size_t i = 0; i < kStrings; ++i) {
      std::size_t from = random() % (m_text.size() - 2000);
      while (IsTrail(m_text[from])) {
        --from;
      }
      std::size_t to = from + 10 + random() % 1991;
      while (IsTrail(m_text[to])) {
        --to;
      }
      m_strings.push_back(std::string_view(m_text).substr(from, to - from));
      m_bytes += static_cast<double>(to - from);
    }
  }

  std::string m_text;                       // all of it
  std::vector<std::string_view> m_strings;  // pieces of it
  double m_bytes = 0;                       // their lengths together
};

#endif  // BENCH_STRINGS_CORPUS_H
