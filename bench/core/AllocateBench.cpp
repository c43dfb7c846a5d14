// Allocate and free objects of 16 to 512 bytes (log-normal, as strings and tree nodes are), the
// store beside malloc: filling, churning in random order, and the memory that it takes.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <random>
#include <vector>

#include "QRTVirtualMemoryMgr.h"

namespace {

constexpr std::size_t kObjects = 1'000'000;
constexpr unsigned int kAmpleBudget = 2000U << 20;

/// Sizes with a median of 96 bytes, cut to 16..512.
std::vector<std::uint32_t> Sizes(std::size_t n) {
  std::mt19937 random(7);
  std::lognormal_distribution<double> distribution(4.56, 0.7);
  std::vector<std::uint32_t> sizes(n);
  for (std::uint32_t& size : sizes) {
    size = static_cast<std::uint32_t>(std::clamp(distribution(random), 16.0, 512.0));
  }
  return sizes;
}

std::uint64_t ResidentBytes() {
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * 4096;
}

class Malloc {
 public:
  using Handle = void*;
  Handle Make(std::uint32_t size) {
    auto* object = static_cast<char*>(std::malloc(size));
    object[0] = 1;
    object[size - 1] = 1;
    return object;
  }
  void End(Handle& object) { std::free(object); }
};

class Store {
 public:
  using Handle = QRTVirtualPageItem;
  Handle Make(std::uint32_t size) {
    Handle item;
    auto* object = static_cast<char*>(m_manager.alloc(size, item));
    object[0] = 1;
    object[size - 1] = 1;
    m_manager.dismiss(item);
    return item;
  }
  void End(Handle& item) { m_manager.free(item); }

 private:
  QRTVirtualMemoryMgr m_manager{kAmpleBudget, 0, 0};
};

/// One iteration fills a store with all objects; freeing them in random order is not timed.
template <typename Memory>
void Fill(benchmark::State& state) {
  const auto sizes = Sizes(kObjects);
  std::vector<typename Memory::Handle> objects(kObjects);
  double bytes = 0;
  for (const std::uint32_t size : sizes) {
    bytes += size;
  }
  double overhead = 0;
  for (auto _ : state) {
    malloc_trim(0);
    const std::uint64_t before = ResidentBytes();
    Memory memory;
    for (std::size_t i = 0; i < kObjects; ++i) {
      objects[i] = memory.Make(sizes[i]);
    }
    state.PauseTiming();
    overhead = static_cast<double>(ResidentBytes() - before) / bytes;
    for (auto& object : objects) {
      memory.End(object);
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kObjects));
  state.counters["bytes_per_byte"] = overhead;
}

/// One iteration frees all objects in random order; making them is not timed.
template <typename Memory>
void FreeRandom(benchmark::State& state) {
  const auto sizes = Sizes(kObjects);
  std::vector<typename Memory::Handle> objects(kObjects);
  for (auto _ : state) {
    state.PauseTiming();
    {
      Memory memory;
      for (std::size_t i = 0; i < kObjects; ++i) {
        objects[i] = memory.Make(sizes[i]);
      }
      std::shuffle(objects.begin(), objects.end(), std::mt19937(13));
      state.ResumeTiming();
      for (auto& object : objects) {
        memory.End(object);
      }
      state.PauseTiming();
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kObjects));
}

/// One iteration ends a random object and makes another one in its place.
template <typename Memory>
void Churn(benchmark::State& state) {
  const auto sizes = Sizes(kObjects);
  malloc_trim(0);
  const std::uint64_t before = ResidentBytes();
  Memory memory;
  std::vector<typename Memory::Handle> objects(kObjects);
  std::vector<std::uint32_t> held(sizes);
  for (std::size_t i = 0; i < kObjects; ++i) {
    objects[i] = memory.Make(sizes[i]);
  }
  std::mt19937 random(11);
  std::size_t next = 0;
  for (auto _ : state) {
    const std::size_t victim = random() % kObjects;
    memory.End(objects[victim]);
    held[victim] = sizes[next];
    objects[victim] = memory.Make(sizes[next]);
    next = next + 1 == kObjects ? 0 : next + 1;
  }
  const auto own = static_cast<double>(kObjects * (sizeof(objects[0]) + sizeof(held[0])));
  double bytes = 0;
  for (const std::uint32_t size : held) {
    bytes += size;
  }
  state.counters["bytes_per_byte"] = (static_cast<double>(ResidentBytes() - before) - own) / bytes;
  for (auto& object : objects) {
    memory.End(object);
  }
}

BENCHMARK(Fill<Malloc>)->Name("FillMalloc")->Unit(benchmark::kMillisecond);
BENCHMARK(Fill<Store>)->Name("FillStore")->Unit(benchmark::kMillisecond);
BENCHMARK(FreeRandom<Malloc>)->Name("FreeRandomMalloc")->Unit(benchmark::kMillisecond);
BENCHMARK(FreeRandom<Store>)->Name("FreeRandomStore")->Unit(benchmark::kMillisecond);
// A fixed number of steps, so that both have turned their objects over three times.
BENCHMARK(Churn<Malloc>)->Name("ChurnMalloc")->Iterations(3 * kObjects);
BENCHMARK(Churn<Store>)->Name("ChurnStore")->Iterations(3 * kObjects);

}  // namespace
