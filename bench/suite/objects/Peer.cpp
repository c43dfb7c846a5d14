#include "objects/Peer.h"

#include "common/Figure.h"

namespace objects {

std::vector<Peer>& peers() {
  static std::vector<Peer> peers;
  return peers;
}

void require(bool good, const char* what) {
  if (!good) {
    suite::fail(std::string("failed: ") + what);
  }
}

std::string countLabel(std::uint64_t count) {
  int zeros = 0;
  std::uint64_t digits = count;
  for (; digits > 0 && digits % 10 == 0; digits /= 10) {
    ++zeros;
  }
  if (digits >= 10 || zeros == 0) {
    return std::to_string(count);
  }
  std::string label = std::to_string(digits);
  label += 'e';
  label += std::to_string(zeros);
  return label;
}

std::string bytesLabel(std::uint64_t bytes) {
  static constexpr std::string_view kUnits = "BKMG";
  std::size_t unit = 0;
  for (; unit + 1 < kUnits.size() && bytes > 0 && bytes % 1024 == 0; bytes /= 1024) {
    ++unit;
  }
  return std::to_string(bytes) + kUnits[unit];
}

}  // namespace objects
