// A million strings of real text, 10 to 2,000 bytes, the store beside std::string: putting them in,
// fetching them in order and at random, comparing. "bytes_per_byte" is the resident memory that the
// strings took, for each byte of text.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Corpus.h"
#include "QRTCore/I18NString.h"
#include "QRTVirtualI18NString.h"
#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualUTF8Reader.h"
#include "QRTVirtualUTF8String.h"

namespace {

constexpr unsigned int kAmpleBudget = 4000U << 20;
constexpr unsigned int kSmallBudget = 256U << 20;

std::uint64_t ResidentBytes() {
  std::uint64_t total = 0;
  std::uint64_t resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * 4096;
}

/// What the strings cost the process since it was made.
class MemoryMeter {
 public:
  MemoryMeter() {
    malloc_trim(0);
    m_before = ResidentBytes();
  }
  void Report(benchmark::State& state) const {
    state.counters["bytes_per_byte"] =
        static_cast<double>(ResidentBytes() - m_before) / Corpus::Get().Bytes();
  }

 private:
  std::uint64_t m_before = 0;
};

class StdStrings {
 public:
  void Fill() {
    m_strings.reserve(Corpus::kStrings);
    for (const std::string_view text : Corpus::Get().Strings()) {
      m_strings.emplace_back(text);
    }
  }
  std::size_t Copy(std::size_t i) const {
    const std::string copy(m_strings[i]);
    benchmark::DoNotOptimize(copy.data());
    return copy.size();
  }
  std::size_t Convert(std::size_t i) const {
    const std::string copy(m_strings[i]);
    const I18NString text{std::string_view(copy)};
    return static_cast<std::size_t>(text.size());
  }
  bool Equal(std::size_t i, std::string_view text) const { return m_strings[i] == text; }

 private:
  std::vector<std::string> m_strings;
};

template <unsigned int kBudget>
class StoredStrings {
 public:
  void Fill() {
    m_strings.reserve(Corpus::kStrings);
    for (const std::string_view text : Corpus::Get().Strings()) {
      m_strings.emplace_back().setString(text, &m_manager);
    }
  }
  std::size_t Copy(std::size_t i) {
    const QRTVirtualUTF8Reader reader(m_strings[i], &m_manager);
    const std::string copy(reader.view());
    benchmark::DoNotOptimize(copy.data());
    return copy.size();
  }
  std::size_t Convert(std::size_t i) {
    return static_cast<std::size_t>(m_strings[i].getString(&m_manager).size());
  }
  bool Equal(std::size_t i, std::string_view text) {
    return m_strings[i].isEqual(text, &m_manager) != 0;
  }
  bool Equal(std::size_t i, const I18NString& text) {
    return m_strings[i].isEqual(text, &m_manager) != 0;
  }

 private:
  QRTVirtualMemoryMgr m_manager{kBudget, 0, 0};
  std::vector<QRTVirtualUTF8String> m_strings;
};

using Resident = StoredStrings<kAmpleBudget>;
using Paged = StoredStrings<kSmallBudget>;

/// One iteration stores all strings.
template <typename Strings>
void Fill(benchmark::State& state) {
  Corpus::Get();
  for (auto _ : state) {
    state.PauseTiming();
    {
      const MemoryMeter meter;
      Strings strings;
      state.ResumeTiming();
      strings.Fill();
      state.PauseTiming();
      meter.Report(state);
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(Corpus::kStrings));
}

/// One iteration fetches all strings as std::string; the argument: in order 0, at random 1.
template <typename Strings>
void Copy(benchmark::State& state) {
  const std::vector<std::uint32_t> order = Corpus::Order(state.range(0) != 0);
  Strings strings;
  strings.Fill();
  for (auto _ : state) {
    for (const std::uint32_t i : order) {
      benchmark::DoNotOptimize(strings.Copy(i));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(order.size()));
}

/// The same as I18NString.
template <typename Strings>
void Convert(benchmark::State& state) {
  const std::vector<std::uint32_t> order = Corpus::Order(state.range(0) != 0);
  Strings strings;
  strings.Fill();
  for (auto _ : state) {
    for (const std::uint32_t i : order) {
      benchmark::DoNotOptimize(strings.Convert(i));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(order.size()));
}

/// Compares every string with its text.
template <typename Strings>
void CompareEqual(benchmark::State& state) {
  const std::vector<std::uint32_t> order = Corpus::Order(true);
  const auto& texts = Corpus::Get().Strings();
  Strings strings;
  strings.Fill();
  for (auto _ : state) {
    for (const std::uint32_t i : order) {
      benchmark::DoNotOptimize(strings.Equal(i, texts[i]));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(order.size()));
}

/// Compares every string with one I18NString, which differs in length (0) or at its end (1).
void CompareI18N(benchmark::State& state) {
  const auto& texts = Corpus::Get().Strings();
  const std::vector<std::uint32_t> order = Corpus::Order(true);
  Resident strings;
  strings.Fill();
  std::string other(texts[order[0]]);
  other.back() = other.back() == 'x' ? 'y' : 'x';
  const I18NString text{std::string_view(other)};
  const bool sameLength = state.range(0) != 0;
  for (auto _ : state) {
    for (const std::uint32_t i : order) {
      benchmark::DoNotOptimize(strings.Equal(sameLength ? order[0] : i, text));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(order.size()));
}

BENCHMARK(Fill<StdStrings>)->Name("FillStd")->Unit(benchmark::kMillisecond);
BENCHMARK(Fill<Resident>)->Name("FillStore")->Unit(benchmark::kMillisecond);
BENCHMARK(Fill<Paged>)->Name("FillStorePaged")->Unit(benchmark::kMillisecond);
BENCHMARK(Copy<StdStrings>)->Name("CopyStd")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy<Resident>)->Name("CopyStore")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Copy<Paged>)->Name("CopyStorePaged")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Convert<StdStrings>)->Name("ConvertStd")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(Convert<Resident>)->Name("ConvertStore")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(CompareEqual<StdStrings>)->Name("EqualStd")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareEqual<Resident>)->Name("EqualStore")->Unit(benchmark::kMillisecond);
BENCHMARK(CompareI18N)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
