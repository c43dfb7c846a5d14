#include <deque>
#include <limits>
#include <vector>

#include "ObjectWork.h"
#include "PackedHandles.h"
#include "Store.h"
#include "common/Content.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"

namespace {

using Clock = double (suite::Meter::*)() const;

/// Calls `read(key)` for random keys below `n` until the time is over, at least once for each of a
/// chunk. @return nanoseconds for a call
template <class Read>
double nanosecondsOf(Clock clock, double seconds, std::uint64_t n, Read read) {
  constexpr std::uint64_t kChunk = 20'000;  // calls between looks at the clock
  suite::Random random;
  std::uint64_t reads = 0;
  const suite::Meter meter;
  do {
    for (std::uint64_t i = 0; i < kChunk; ++i) {
      read(random.below(n));
    }
    reads += kChunk;
  } while ((meter.*clock)() < seconds);
  return (meter.*clock)() * 1e9 / static_cast<double>(reads);
}

/// Memory taken since it was `before`, for each of `bytes`.
double residentBeyond(std::uint64_t before, std::uint64_t bytes) {
  return (static_cast<double>(suite::residentBytes()) - static_cast<double>(before)) /
         static_cast<double>(bytes);
}

/// A budget has 32 bits, so more objects than this are spread over several stores.
constexpr std::uint64_t kObjectsInStore = 50'000'000;

void growResident(const Settings& settings) {
  constexpr std::uint32_t kObjectBytes = 64;
  const std::uint64_t n = settings.objects.value;
  std::vector<std::uint64_t> handles(n);
  std::deque<Store> stores;
  suite::warmMemory(2 * n * kObjectBytes);
  const std::uint64_t before = suite::residentBytes();

  const suite::Meter meter;
  for (std::uint64_t key = 0; key < n; ++key) {
    if (key % kObjectsInStore == 0) {
      stores.emplace_back(std::numeric_limits<unsigned>::max());
    }
    handles[key] = stores.back().make(
        kObjectBytes, [key](void* object) { suite::fillContent(object, kObjectBytes, key, 0); });
  }
  settings.print("allocate", "ns", meter.cpuSeconds() * 1e9 / static_cast<double>(n));
  settings.print("metadata a byte", "bytes/byte", residentBeyond(before, n * kObjectBytes) - 1);

  std::uint64_t wrong = 0;
  const auto read = [&](std::uint64_t key) {
    stores[key / kObjectsInStore].read(handles[key], [&wrong, key](const void* object) {
      wrong |= suite::wordAt(object, 0) ^ suite::firstWord(key, 0);
    });
  };
  settings.print("pin", "ns", nanosecondsOf(&suite::Meter::cpuSeconds, settings.seconds, n, read));
  settings.check(wrong == 0);
}

void growPaged(const Settings& settings) {
  constexpr std::uint32_t kObjectBytes = 256;
  const std::uint64_t n = settings.bytes.value / kObjectBytes;
  const std::uint64_t before = suite::residentBytes();
  PackedHandles handles;
  handles.reserve(n);
  suite::warmMemory(settings.budget.value);
  Store store(settings.budget.value);
  const suite::Meter meter;
  for (std::uint64_t key = 0; key < n; ++key) {
    handles.push_back(store.make(
        kObjectBytes, [key](void* object) { suite::fillContent(object, kObjectBytes, key, 0); }));
  }
  settings.print("load", "ns", meter.wallSeconds() * 1e9 / static_cast<double>(n));

  bool right = true;
  const auto read = [&](std::uint64_t key) {
    store.read(handles[key], [&right, key](const void* object) {
      right &= suite::hasContent(object, kObjectBytes, key, 0);
    });
  };
  settings.print("uniform read", "ns",
                 nanosecondsOf(&suite::Meter::wallSeconds, settings.seconds, n, read));
  settings.check(right);
  const std::uint64_t known = settings.budget.value + PackedHandles::bytesFor(n);
  settings.print("metadata a byte", "bytes/byte",
                 residentBeyond(before + known, settings.bytes.value));
}

}  // namespace

void measureGrowth(const Settings& settings) {
  settings.objects.value != 0 ? growResident(settings) : growPaged(settings);
}
