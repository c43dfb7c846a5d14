// Pin, read, dismiss: 64-byte objects in memory, in random order. The peers do the same reads:
// a plain pointer, and a table of pointers with pin counts, which is the least that any store of
// movable objects has to do.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <numeric>
#include <vector>

#include "QRTVirtualMemoryMgr.h"

namespace {

constexpr std::uint32_t kObjectBytes = 64;
constexpr unsigned int kAmpleBudget = 4000U << 20;

/// Picks the next object: xorshift64* scaled to the range, about a nanosecond.
class RandomIndex {
 public:
  explicit RandomIndex(std::size_t n) : m_n(n) {}
  std::size_t operator()() {
    m_state ^= m_state >> 12;
    m_state ^= m_state << 25;
    m_state ^= m_state >> 27;
    return ((m_state * 0x2545F4914F6CDD1DULL) >> 32) * m_n >> 32;
  }

 private:
  std::size_t m_n;
  std::uint64_t m_state = 88172645463325252ULL;
};

struct Payload {
  std::uint64_t words[kObjectBytes / sizeof(std::uint64_t)];
};

void PlainPointer(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Payload>> objects(n);
  for (std::size_t i = 0; i < n; ++i) {
    objects[i] = std::make_unique<Payload>();
    objects[i]->words[0] = i;
  }
  RandomIndex pick(n);
  std::uint64_t sum = 0;
  for (auto _ : state) {
    sum += objects[pick()]->words[0];
  }
  benchmark::DoNotOptimize(sum);
}

void PointerTable(benchmark::State& state) {
  struct Entry {
    Payload* object;
    std::uint32_t pins;
  };
  const auto n = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Payload>> objects(n);
  std::vector<Entry> table(n);
  for (std::size_t i = 0; i < n; ++i) {
    objects[i] = std::make_unique<Payload>();
    objects[i]->words[0] = i;
    table[i] = {objects[i].get(), 0};
  }
  std::vector<std::uint64_t> handles(n);  // hosts keep handles; here a handle is a table index
  std::iota(handles.begin(), handles.end(), 0U);
  RandomIndex pick(n);
  std::uint64_t sum = 0;
  for (auto _ : state) {
    const std::uint64_t handle = handles[pick()];
    Entry& pinned = table[handle];
    ++pinned.pins;
    sum += pinned.object->words[0];
    benchmark::ClobberMemory();  // the host may do anything between pin and dismiss
    --table[handle].pins;
  }
  benchmark::DoNotOptimize(sum);
}

/// The same table behind calls, as a library has to offer it.
class PointerTableLibrary {
 public:
  explicit PointerTableLibrary(std::size_t n) : m_table(n) {}
  void Set(std::size_t handle, Payload* object) { m_table[handle].object = object; }
  [[gnu::noinline]] void* Pin(std::uint64_t handle) {
    if (handle >= m_table.size()) {
      return nullptr;
    }
    ++m_table[handle].pins;
    return m_table[handle].object;
  }
  [[gnu::noinline]] void Unpin(std::uint64_t handle) {
    if (handle < m_table.size() && m_table[handle].pins > 0) {
      --m_table[handle].pins;
    }
  }

 private:
  struct Entry {
    Payload* object = nullptr;
    std::uint32_t pins = 0;
  };
  std::vector<Entry> m_table;
};

void PointerTableCalls(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  std::vector<std::unique_ptr<Payload>> objects(n);
  PointerTableLibrary table(n);
  for (std::size_t i = 0; i < n; ++i) {
    objects[i] = std::make_unique<Payload>();
    objects[i]->words[0] = i;
    table.Set(i, objects[i].get());
  }
  std::vector<std::uint64_t> handles(n);
  std::iota(handles.begin(), handles.end(), 0U);
  RandomIndex pick(n);
  std::uint64_t sum = 0;
  for (auto _ : state) {
    const std::uint64_t handle = handles[pick()];
    sum += static_cast<const Payload*>(table.Pin(handle))->words[0];
    table.Unpin(handle);
  }
  benchmark::DoNotOptimize(sum);
}

void Store(benchmark::State& state) {
  const auto n = static_cast<std::size_t>(state.range(0));
  QRTVirtualMemoryMgr manager(kAmpleBudget, 0, 0);
  std::vector<std::uint64_t> handles(n);
  for (std::size_t i = 0; i < n; ++i) {
    QRTVirtualPageItem item;
    static_cast<Payload*>(manager.alloc(kObjectBytes, item))->words[0] = i;
    manager.dismiss(item);
    handles[i] = item.getOffset();
  }
  RandomIndex pick(n);
  std::uint64_t sum = 0;
  for (auto _ : state) {
    const std::uint64_t handle = handles[pick()];
    sum += static_cast<const Payload*>(manager.getAddress(handle, 1))->words[0];
    manager.dismiss(handle);
  }
  benchmark::DoNotOptimize(sum);
}

BENCHMARK(PlainPointer)->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(PointerTable)->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(PointerTableCalls)->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);
BENCHMARK(Store)->Name("StorePin")->Arg(1'000)->Arg(100'000)->Arg(1'000'000)->Arg(10'000'000);

}  // namespace
