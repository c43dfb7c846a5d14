// More data than memory: 2 GiB of 256-byte objects under a budget of 256 MiB. Every read is
// checked. The counters are pages for each thousand operations.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "common/StoreStatistics.h"

namespace {

constexpr std::uint32_t kObjectBytes = 256;
constexpr std::size_t kObjects = (std::size_t{2} << 30) / kObjectBytes;
constexpr unsigned int kBudget = 256U << 20;
constexpr std::size_t kWords = kObjectBytes / sizeof(std::uint64_t);

/// The store that all benchmarks of this file share, filled when the first one asks for it.
class Objects {
 public:
  static Objects& Shared() {
    static Objects objects;
    return objects;
  }

  void Load() {
    m_manager = std::make_unique<QRTVirtualMemoryMgr>(kBudget, 0, 0);
    for (std::size_t i = 0; i < kObjects; ++i) {
      QRTVirtualPageItem item;
      Write(static_cast<std::uint64_t*>(m_manager->alloc(kObjectBytes, item)), i, 0);
      m_manager->dismiss(item);
      m_offsets[i] = item.getOffset();
    }
  }

  void EnsureLoaded() {
    if (m_manager == nullptr) {
      Load();
    }
  }

  /// Reads an object through a pin for writing. @return whether its content is right
  bool Read(std::size_t i) {
    const auto* words = static_cast<const std::uint64_t*>(m_manager->getAddress(m_offsets[i], 1));
    if (words == nullptr) {
      return false;
    }
    bool right = words[0] == i && words[1] - i * kMix < kMaxVersion;
    for (std::size_t w = 2; w < kWords; ++w) {
      right &= words[w] == words[1] + w - 1;
    }
    m_manager->dismiss(m_offsets[i]);
    return right;
  }

  void Update(std::size_t i, std::uint64_t version) {
    Write(static_cast<std::uint64_t*>(m_manager->getAddress(m_offsets[i], 1)), i, version);
    m_manager->dismiss(m_offsets[i]);
  }

  example::StoreStatistics Statistics() { return example::readStatistics(*m_manager); }

 private:
  Objects() : m_offsets(kObjects) {}

  static constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15ULL;
  static constexpr std::uint64_t kMaxVersion = 1ULL << 32;

  // Word 0 is the object's number, word 1 follows from it and a version, the rest from word 1.
  static void Write(std::uint64_t* words, std::size_t i, std::uint64_t version) {
    words[0] = i;
    for (std::size_t w = 1; w < kWords; ++w) {
      words[w] = i * kMix + version + w - 1;
    }
  }

  std::unique_ptr<QRTVirtualMemoryMgr> m_manager;
  std::vector<std::uint64_t> m_offsets;
};

/// Zipf over the objects with the 80/20 shape (exponent 0.86), spread over the store.
class Zipf {
 public:
  std::size_t operator()() {
    // Inverse of the continuous distribution's integral.
    constexpr double kPower = 1 - 0.86;
    const double u = std::uniform_real_distribution<double>(0, 1)(m_random);
    const double n = static_cast<double>(kObjects);
    const double rank = std::pow(u * (std::pow(n, kPower) - 1) + 1, 1 / kPower) - 1;
    // Popular objects stand far from each other.
    return static_cast<std::size_t>(rank) * 2654435761U % kObjects;
  }

 private:
  std::mt19937_64 m_random{3};
};

class Uniform {
 public:
  std::size_t operator()() { return m_random() % kObjects; }

 private:
  std::mt19937_64 m_random{5};
};

class Sequential {
 public:
  std::size_t operator()() { return m_next = m_next + 1 == kObjects ? 0 : m_next + 1; }

 private:
  std::size_t m_next = 0;
};

void Report(benchmark::State& state, const example::StoreStatistics& before) {
  const example::StoreStatistics after = Objects::Shared().Statistics();
  const double thousands = static_cast<double>(state.iterations()) / 1000;
  state.SetItemsProcessed(state.iterations());
  state.counters["reads/k"] = static_cast<double>(after.pageReads - before.pageReads) / thousands;
  state.counters["writes/k"] =
      static_cast<double>(after.pageWrites - before.pageWrites) / thousands;
  state.counters["saved/k"] =
      static_cast<double>(after.writesSaved() - before.writesSaved()) / thousands;
}

void Load(benchmark::State& state) {
  for (auto _ : state) {
    Objects::Shared().Load();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(kObjects));
}

template <typename Pick>
void Read(benchmark::State& state) {
  Objects& objects = Objects::Shared();
  objects.EnsureLoaded();
  const auto before = objects.Statistics();
  Pick pick;
  for (auto _ : state) {
    if (!objects.Read(pick())) {
      state.SkipWithError("an object came back different");
      break;
    }
  }
  Report(state, before);
}

template <typename Pick>
void Update(benchmark::State& state) {
  Objects& objects = Objects::Shared();
  objects.EnsureLoaded();
  const auto before = objects.Statistics();
  Pick pick;
  std::uint64_t version = 1;
  for (auto _ : state) {
    objects.Update(pick(), ++version);
  }
  Report(state, before);
}

// In this order: the reads come before the first update, so a page written during them was written
// for nothing (writes/k tells).
BENCHMARK(Load)->Name("PagedLoad")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Read<Sequential>)->Name("PagedReadSequential")->Iterations(2 * kObjects);
BENCHMARK(Read<Uniform>)->Name("PagedReadUniform")->Iterations(1'000'000);
BENCHMARK(Read<Zipf>)->Name("PagedReadZipf")->Iterations(2'000'000);
BENCHMARK(Update<Sequential>)->Name("PagedUpdateSequential")->Iterations(kObjects);
BENCHMARK(Update<Uniform>)->Name("PagedUpdateUniform")->Iterations(500'000);
BENCHMARK(Update<Zipf>)->Name("PagedUpdateZipf")->Iterations(1'000'000);

}  // namespace
