// Times two fixed pieces of work that use nothing of the library: steps in registers, each waiting
// for the one before, and reads that each wait for the one before, over more memory than a
// processor caches for itself. Two runs that differ say that the machine did not keep still between
// them.

#include <cstdint>
#include <vector>

#include "common/Figure.h"
#include "common/Meter.h"

namespace {

constexpr std::uint32_t kSteps = 100'000'000;
constexpr std::uint32_t kReads = 2'000'000;
constexpr std::uint32_t kCells = 16U << 20;  // 64 MiB of them

std::uint64_t next(std::uint64_t state) {
  state ^= state << 13;
  state ^= state >> 7;
  return state ^ state << 17;
}

/// One cycle through all cells in no order that a processor foresees: cell i holds i's successor by
/// a congruential generator of full period.
std::vector<std::uint32_t> cycle() {
  std::vector<std::uint32_t> cells(kCells);
  for (std::uint32_t i = 0; i < kCells; ++i) {
    cells[i] = (i * 1664525U + 1013904223U) % kCells;
  }
  return cells;
}

void print(const char* variant, double seconds, std::uint32_t steps) {
  suite::print({"calibration", "machine", variant, "fixed", "ns", seconds * 1e9 / steps});
}

}  // namespace

int main() {
  std::uint64_t state = 1;
  const suite::Meter compute;
  for (std::uint32_t i = 0; i < kSteps; ++i) {
    state = next(state);
  }
  print("compute", compute.wallSeconds(), kSteps);

  const std::vector<std::uint32_t> cells = cycle();
  std::uint32_t at = 0;
  const suite::Meter memory;
  for (std::uint32_t i = 0; i < kReads; ++i) {
    at = cells[at];
  }
  print("memory", memory.wallSeconds(), kReads);
  return state == 0 || at >= kCells ? 1 : 0;  // so that neither loop is left out
}
