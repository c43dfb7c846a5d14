#ifndef BENCH_SUITE_VECTORS_VECTORWORK_H
#define BENCH_SUITE_VECTORS_VECTORWORK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/Amount.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"

struct VectorOptions {
  suite::Amount elements{"1e7"};
  suite::Budget budget;
};

/// Fills a vector of 8-byte numbers, scans it, reads and replaces some at random, sorts it; prints
/// what each took for an element. `Vector` is made from the number of elements and the budget in
/// bytes and has
///  - `add(number)`, which puts one behind the others;
///  - `sum()` of all, one after the other;
///  - `get(i)` and `set(i, number)`;
///  - `sort()`, unless `kSorts` is false.
template <class Vector>
void measureVector(const char* peer, const VectorOptions& options) {
  const std::size_t count = options.elements.value;
  const std::size_t bytes = count * sizeof(std::uint64_t);
  const bool isAmple = options.budget.isAmple();
  const auto print = [&](const char* what, const char* unit, double value) {
    suite::print({"vector", peer, options.budget.label(what), options.elements.text, unit, value});
  };
  const auto measure = [&](const char* what, std::size_t times, auto work) {
    const suite::Meter meter;
    work();
    print(what, "ns", options.budget.seconds(meter) * 1e9 / static_cast<double>(times));
  };
  // Element i, before the sort.
  const auto number = [](std::uint64_t i) { return (i * 0x9E3779B97F4A7C15ULL) >> 8; };

  if (isAmple) {
    suite::warmMemory(bytes * 3);
  }
  const std::uint64_t before = suite::residentBytes();
  Vector vector(count, options.budget.bytes(bytes));
  std::uint64_t sum = 0;
  measure("fill", count, [&] {
    for (std::uint64_t i = 0; i < count; ++i) {
      vector.add(number(i));
      sum += number(i);
    }
  });
  print("resident", "bytes/byte",
        static_cast<double>(suite::residentBytes() - before) / static_cast<double>(bytes));

  const std::size_t scans = isAmple ? 5 : 1;
  measure("scan", scans * count, [&] {
    for (std::size_t scan = 0; scan < scans; ++scan) {
      suite::require(vector.sum() == sum, "a scan");
    }
  });
  const std::size_t accesses = isAmple ? 5'000'000 : 200'000;
  suite::Uniform next(count);
  measure("get at random", accesses, [&] {
    for (std::size_t i = 0; i < accesses; ++i) {
      const std::uint64_t at = next();
      suite::require(vector.get(at) == number(at), "a read");
    }
  });
  measure("set at random", accesses, [&] {
    for (std::size_t i = 0; i < accesses; ++i) {
      const std::uint64_t at = next();
      vector.set(at, number(at));
    }
  });
  if constexpr (Vector::kSorts) {
    measure("sort", count, [&] { vector.sort(); });
    suite::require(vector.sum() == sum, "a sort, which lost elements");
    std::uint64_t last = 0;
    for (std::uint64_t i = 0; i < count; i += count / 100) {
      suite::require(last <= vector.get(i), "a sort");
      last = vector.get(i);
    }
  }
}

void measureStxxl(const VectorOptions& options);

#endif  // BENCH_SUITE_VECTORS_VECTORWORK_H
