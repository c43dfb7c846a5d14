#include "ByteSize.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>
#include <stdexcept>

namespace example {

namespace {

/// The power of two a suffix stands for; throws for anything but "", K, M and G.
unsigned int suffixShift(const std::string& suffix, const std::string& text) {
  if (suffix.empty()) {
    return 0;
  }
  if (suffix == "K" || suffix == "k") {
    return 10;
  }
  if (suffix == "M" || suffix == "m") {
    return 20;
  }
  if (suffix == "G" || suffix == "g") {
    return 30;
  }
  throw std::invalid_argument("'" + text + "': unknown suffix '" + suffix + "', use K, M or G");
}

std::string formatted(const char* format, double value, const char* unit) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, value, unit);
  return text.data();
}

}  // namespace

std::uint64_t parseByteSize(const std::string& text) {
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc::invalid_argument) {
    throw std::invalid_argument("'" + text + "' is not a byte count such as 4096, 512K, 16M or 1G");
  }
  const unsigned int shift = suffixShift(std::string(rest, end), text);
  if (error == std::errc::result_out_of_range ||
      number > std::numeric_limits<std::uint64_t>::max() >> shift) {
    throw std::invalid_argument("'" + text + "' is more than 64 bits hold");
  }
  return number << shift;
}

unsigned int parseBudget(const std::string& text) {
  const std::uint64_t bytes = parseByteSize(text);
  if (bytes == 0 || bytes > std::numeric_limits<unsigned int>::max()) {
    throw std::invalid_argument("'" + text + "': a budget is 1 byte to 4095M");
  }
  return static_cast<unsigned int>(bytes);
}

std::string formatBytes(std::uint64_t bytes) {
  if (bytes < 1024) {
    return std::to_string(bytes) + " bytes";
  }
  constexpr std::array<const char*, 4> kUnits{"KiB", "MiB", "GiB", "TiB"};
  double value = static_cast<double>(bytes) / 1024;
  std::size_t unit = 0;
  while (value >= 1024 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  return formatted("%.1f %s", value, kUnits[unit]);
}

std::string formatCount(std::uint64_t count) {
  const std::string digits = std::to_string(count);
  std::string grouped;
  for (std::size_t place = 0; place < digits.size(); ++place) {
    if (place != 0 && (digits.size() - place) % 3 == 0) {
      grouped.push_back(',');
    }
    grouped.push_back(digits[place]);
  }
  return grouped;
}

std::string formatSpeed(std::uint64_t bytes, double seconds) {
  if (seconds <= 0) {
    return "-";
  }
  return formatted("%.0f %s", static_cast<double>(bytes) / 1e6 / seconds, "MB/s");
}

}  // namespace example
