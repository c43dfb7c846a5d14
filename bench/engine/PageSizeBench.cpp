// The curve behind the page size: 512 MiB of 256-byte objects under a budget of 64 MiB, the paging
// file in the system's page cache. Arguments: page size, pages read ahead, spans written at once.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "libtcmalloc_virtualmm/Engine.h"

namespace {

constexpr std::uint32_t kObjectBytes = 256;
constexpr std::size_t kObjects = (std::size_t{512} << 20) / kObjectBytes;

class PagedObjects {
 public:
  explicit PagedObjects(const benchmark::State& state)
      : m_engine(Options(state), tcmalloc::MakePagingFile("/tmp"),
                 tcmalloc::MakePagingFile("/tmp")),
        m_offsets(kObjects) {
    for (std::size_t i = 0; i < kObjects; ++i) {
      std::memset(m_engine.Allocate(kObjectBytes, m_offsets[i]), static_cast<int>(i), kObjectBytes);
      m_engine.Dismiss(m_offsets[i]);
    }
  }

  std::uint64_t Read(std::size_t i) {
    std::uint64_t word = 0;
    std::memcpy(&word, m_engine.GetAddress(m_offsets[i], true), sizeof word);
    m_engine.Dismiss(m_offsets[i]);
    return word;
  }

  void Update(std::size_t i, std::uint64_t value) {
    std::memcpy(m_engine.GetAddress(m_offsets[i], true), &value, sizeof value);
    m_engine.Dismiss(m_offsets[i]);
  }

 private:
  static tcmalloc::EngineOptions Options(const benchmark::State& state) {
    tcmalloc::EngineOptions options;
    options.budgetBytes = 64U << 20;
    options.pageSize = static_cast<std::uint32_t>(state.range(0));
    options.readAhead = static_cast<std::uint32_t>(state.range(1));
    options.batch = static_cast<std::uint32_t>(state.range(2));
    return options;
  }

  tcmalloc::Engine m_engine;
  std::vector<std::uint64_t> m_offsets;
};

void Load(benchmark::State& state) {
  for (auto _ : state) {
    const PagedObjects objects(state);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kObjects));
}

void ReadSequential(benchmark::State& state) {
  PagedObjects objects(state);
  std::size_t next = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(objects.Read(next));
    next = next + 1 == kObjects ? 0 : next + 1;
  }
  state.SetItemsProcessed(state.iterations());
}

void ReadUniform(benchmark::State& state) {
  PagedObjects objects(state);
  std::mt19937_64 random(1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(objects.Read(random() % kObjects));
  }
  state.SetItemsProcessed(state.iterations());
}

void UpdateUniform(benchmark::State& state) {
  PagedObjects objects(state);
  std::mt19937_64 random(1);
  for (auto _ : state) {
    const std::uint64_t value = random();
    objects.Update(value % kObjects, value);
  }
  state.SetItemsProcessed(state.iterations());
}

void Arguments(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"page", "ahead", "batch"});
  for (const std::int64_t page : {4096, 8192, 16384}) {
    bench->Args({page, 16, 8});
  }
  for (const std::int64_t ahead : {1, 4, 64}) {
    bench->Args({4096, ahead, 8});
  }
  for (const std::int64_t batch : {1, 2, 4, 16}) {
    bench->Args({4096, 16, batch});
  }
}

BENCHMARK(Load)->Apply(Arguments)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadSequential)->Apply(Arguments)->Iterations(3'000'000);
BENCHMARK(ReadUniform)->Apply(Arguments)->Iterations(300'000);
BENCHMARK(UpdateUniform)->Apply(Arguments)->Iterations(200'000);

}  // namespace
