#ifndef BENCH_SUITE_MAPS_MAPWORK_H
#define BENCH_SUITE_MAPS_MAPWORK_H

#include <cstdint>
#include <string>

#include "common/Amount.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"

struct MapOptions {
  suite::Amount pairs{"1e7"};
  suite::Budget budget;
  double seconds = 5;
};

/// Keys of 64 bits without any order, each another: the number scrambled one to one.
inline std::uint64_t mapKey(std::uint64_t number) {
  number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9ULL;
  number = (number ^ number >> 27) * 0x94D049BB133111EBULL;
  return (number ^ number >> 31) & ~(1ULL << 63);  // what is a positive number to every peer
}

/// Fills a map with pairs of 16 bytes, looks keys up, changes values, goes over all pairs, and
/// prints what each took. Whatever comes back is checked. `Map` has
///  - `Map(pairs, budget)`, and whether it keeps to that: `kHasBudget`;
///  - `insert(key, value)` of a key that is not there, `bool find(key, value)`, `assign(key,
///  value)`
///    of one that is;
///  - `forEach(use)`, which calls use(key, value);
///  - `finish()`, which ends a series of changes.
template <class Map>
void measureMap(const char* peer, const MapOptions& options) {
  constexpr std::uint64_t kChunk = 200;  // operations between looks at the clock
  constexpr std::uint64_t kChange = 77;
  const std::uint64_t pairs = options.pairs.value;
  const std::size_t data = options.pairs.value * 16;
  const std::size_t budget = options.budget.bytes(data);
  const auto print = [&](const std::string& what, const char* unit, double value) {
    suite::print({"map", peer, options.budget.label(what), options.pairs.text, unit, value});
  };
  const auto check = [&](bool right) {
    if (!right) {
      suite::fail(std::string(peer) + ": a pair came back different");
    }
  };

  suite::warmMemory(options.budget.isAmple() ? data * 4 : budget);
  const std::uint64_t before = suite::residentBytes();
  Map map(pairs, budget);
  const suite::Meter filling;
  for (std::uint64_t i = 0; i < pairs; ++i) {
    map.insert(mapKey(i), i);
  }
  map.finish();
  print("insert", "ns", options.budget.seconds(filling) * 1e9 / static_cast<double>(pairs));

  suite::Uniform uniform(pairs, suite::Random(3));
  const auto repeat = [&](const char* what, auto operation) {
    const suite::Meter meter;
    std::uint64_t operations = 0;
    for (; meter.wallSeconds() < options.seconds; operations += kChunk) {
      for (std::uint64_t i = 0; i < kChunk; ++i) {
        operation(uniform());
      }
    }
    map.finish();
    print(what, "ns", options.budget.seconds(meter) * 1e9 / static_cast<double>(operations));
  };
  repeat("find", [&](std::uint64_t i) {
    std::uint64_t value = 0;
    check(map.find(mapKey(i), value) && value == i);
  });
  repeat("find what is not there", [&](std::uint64_t i) {
    std::uint64_t value = 0;
    check(!map.find(mapKey(pairs + i), value));
  });
  repeat("assign", [&](std::uint64_t i) { map.assign(mapKey(i), i + kChange); });

  std::uint64_t seen = 0;
  std::uint64_t wrong = 0;
  std::uint64_t keys = 0;
  const suite::Meter walking;
  map.forEach([&](std::uint64_t key, std::uint64_t value) {
    ++seen;
    keys += key;
    wrong += mapKey(value) != key && mapKey(value - kChange) != key ? 1 : 0;
  });
  print("walk", "ns", options.budget.seconds(walking) * 1e9 / static_cast<double>(pairs));
  for (std::uint64_t i = 0; i < pairs; ++i) {
    keys -= mapKey(i);
  }
  check(seen == pairs && wrong == 0 && keys == 0);
  const auto resident = static_cast<double>(suite::residentBytes() - before);
  if (options.budget.isAmple()) {
    print("resident", "bytes/byte", resident / static_cast<double>(data));
  } else if (Map::kHasBudget) {
    print("resident beside the budget", "bytes", resident - static_cast<double>(budget));
  }
}

void measureLmdb(const MapOptions& options);
void measureSqlite(const MapOptions& options);
void measureStxxl(const MapOptions& options);

#endif  // BENCH_SUITE_MAPS_MAPWORK_H
