// Times pin and dismiss, and allocate and free, of objects in memory without any benchmark library,
// for the targets that have none. The best of eleven rounds counts.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "QRTVirtualMemoryMgr.h"

namespace {

constexpr unsigned kObjects = 256;  // with their pages they fit the first cache level
constexpr unsigned kRounds = 11;
constexpr unsigned kRepeats = 2000;

/// The nanoseconds that `step(i)` takes for each of the objects, at best.
template <typename Step>
double best(Step step) {
  double least = 1e9;
  for (unsigned round = 0; round < kRounds; ++round) {
    const auto begun = std::chrono::steady_clock::now();
    for (unsigned repeat = 0; repeat < kRepeats; ++repeat) {
      for (unsigned i = 0; i < kObjects; ++i) {
        step(i);
      }
    }
    const std::chrono::duration<double, std::nano> time = std::chrono::steady_clock::now() - begun;
    least = std::min(least, time.count() / (double{kRepeats} * kObjects));
  }
  return least;
}

}  // namespace

int main(int argc, char**) {
  if (argc > 1) {
    std::puts("pin_time: a pin and an allocation in nanoseconds. It takes no options.");
    return 0;
  }
  QRTVirtualMemoryMgr manager(16U << 20);
  std::vector<QRTVirtualPageItem> items(kObjects);
  for (QRTVirtualPageItem& item : items) {
    *static_cast<unsigned*>(manager.alloc(64, item)) = 1;
    manager.dismiss(item);
  }
  unsigned sum = 0;
  const double pin = best([&](unsigned i) {
    sum += *static_cast<unsigned*>(manager.getAddress(items[i].getOffset(), 1));
    manager.dismiss(items[i].getOffset());
  });
  const double allocate = best([&](unsigned) {
    QRTVirtualPageItem item;
    manager.alloc(64, item);
    manager.dismiss(item);
    manager.free(item);
  });
  std::printf("%u-bit process\n", static_cast<unsigned>(8 * sizeof(void*)));
  std::printf("pin, read, dismiss      %6.1f ns\n", pin);
  std::printf("allocate, dismiss, free %6.1f ns\n", allocate);
  return sum == kObjects * kRounds * kRepeats ? 0 : 1;
}
