#include "objects/Growth.h"

#include <deque>
#include <limits>
#include <string>
#include <vector>

#include "common/Content.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"
#include "objects/PackedHandles.h"
#include "objects/Store.h"

namespace objects {

namespace {

constexpr std::uint64_t kChunk = 20'000;  // operations between looks at the clock

class Growth {
 public:
  Growth(const Settings& settings, std::string size)
      : m_settings(settings), m_size(std::move(size)), m_before(suite::residentBytes()) {}

  void print(std::string_view variant, std::string_view unit, double value) const {
    suite::print({m_settings.workload, m_settings.peer, variant, m_size, unit, value});
  }

  /// Memory taken since the start beyond `known` bytes.
  double residentBeyond(std::uint64_t known) const {
    return static_cast<double>(suite::residentBytes()) - static_cast<double>(m_before + known);
  }

  /// Calls `read(key)` for random keys below `n` until the time is over, at least once for each
  /// of a chunk. `clock` gives the seconds of a meter. @return nanoseconds for a call
  template <class Read>
  double nanosecondsOf(double (suite::Meter::*clock)() const, std::uint64_t n, Read read) const {
    suite::Random random;
    std::uint64_t reads = 0;
    const suite::Meter meter;
    do {
      for (std::uint64_t i = 0; i < kChunk; ++i) {
        read(random.below(n));
      }
      reads += kChunk;
    } while ((meter.*clock)() < m_settings.seconds);
    return (meter.*clock)() * 1e9 / static_cast<double>(reads);
  }

 private:
  const Settings& m_settings;
  std::string m_size;      // as a label
  std::uint64_t m_before;  // resident bytes at the start
};

/// A budget has 32 bits, so more objects than this are spread over several stores.
constexpr std::uint64_t kObjectsInStore = 50'000'000;

void growResident(const Settings& settings) {
  constexpr std::uint32_t kObjectBytes = 64;
  const std::uint64_t n = settings.objects;
  std::vector<std::uint64_t> handles(n);
  std::deque<Store> stores;
  suite::warmMemory(2 * n * kObjectBytes);
  const Growth growth(settings, countLabel(n));

  const suite::Meter meter;
  for (std::uint64_t key = 0; key < n; ++key) {
    if (key % kObjectsInStore == 0) {
      stores.emplace_back(std::numeric_limits<unsigned>::max());
    }
    handles[key] = stores.back().make(
        kObjectBytes, [key](void* object) { suite::fillContent(object, kObjectBytes, key, 0); });
  }
  growth.print("allocate", "ns", meter.cpuSeconds() * 1e9 / static_cast<double>(n));
  const auto stored = static_cast<double>(n * kObjectBytes);
  growth.print("metadata a byte", "bytes/byte", growth.residentBeyond(0) / stored - 1);

  std::uint64_t wrong = 0;
  const auto read = [&](std::uint64_t key) {
    stores[key / kObjectsInStore].read(handles[key], [&wrong, key](const void* object) {
      wrong |= suite::wordAt(object, 0) ^ suite::firstWord(key, 0);
    });
  };
  growth.print("pin", "ns", growth.nanosecondsOf(&suite::Meter::cpuSeconds, n, read));
  require(wrong == 0, "an object came back different");
}

void growPaged(const Settings& settings) {
  constexpr std::uint32_t kObjectBytes = 256;
  const std::uint64_t n = settings.bytes / kObjectBytes;
  const Growth growth(settings, bytesLabel(settings.bytes));
  PackedHandles handles;
  handles.reserve(n);
  suite::warmMemory(settings.budget);
  Store store(settings.budget);
  const suite::Meter meter;
  for (std::uint64_t key = 0; key < n; ++key) {
    handles.push_back(store.make(
        kObjectBytes, [key](void* object) { suite::fillContent(object, kObjectBytes, key, 0); }));
  }
  growth.print("load", "ns", meter.wallSeconds() * 1e9 / static_cast<double>(n));

  bool right = true;
  const auto read = [&](std::uint64_t key) {
    store.read(handles[key], [&right, key](const void* object) {
      right &= suite::hasContent(object, kObjectBytes, key, 0);
    });
  };
  growth.print("uniform read", "ns", growth.nanosecondsOf(&suite::Meter::wallSeconds, n, read));
  require(right, "an object came back different");
  const std::uint64_t known = settings.budget + PackedHandles::bytesFor(n);
  growth.print("metadata a byte", "bytes/byte",
               growth.residentBeyond(known) / static_cast<double>(settings.bytes));
}

}  // namespace

void measureGrowth(const Settings& settings) {
  if (settings.bytes > 0) {
    growPaged(settings);
  } else {
    growResident(settings);
  }
}

}  // namespace objects
