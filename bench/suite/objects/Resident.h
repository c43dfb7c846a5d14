#ifndef BENCH_SUITE_OBJECTS_RESIDENT_H
#define BENCH_SUITE_OBJECTS_RESIDENT_H

#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

#include "ObjectWork.h"
#include "common/Content.h"
#include "common/Meter.h"
#include "common/Random.h"

/// @file
/// Workloads hotpin and dependent: 64-byte objects, all in memory, are pinned, read and dismissed
/// one by one. In hotpin their order is known beforehand, so that a processor can look ahead; in
/// dependent each object tells the next one.

// Words of an object.
constexpr std::size_t kKeyWord = 0;
constexpr std::size_t kPositionWord = 1;  // in the cycle
constexpr std::size_t kNextWord = 2;      // handle of the object behind it

/// A cycle through all objects in random order.
struct Cycle {
  explicit Cycle(std::uint64_t n) : order(n), position(n) {
    std::iota(order.begin(), order.end(), 0U);
    suite::Random random(5);
    for (std::uint64_t i = n - 1; i > 0; --i) {
      std::swap(order[i], order[random.below(i + 1)]);
    }
    for (std::uint32_t i = 0; i < n; ++i) {
      position[order[i]] = i;
    }
  }
  std::uint64_t next(std::uint64_t key) const {
    const std::uint64_t behind = std::uint64_t{position[key]} + 1;
    return order[behind == order.size() ? 0 : behind];
  }
  std::vector<std::uint32_t> order;     // keys
  std::vector<std::uint32_t> position;  // by key
};

template <class P>
class Resident {
 public:
  explicit Resident(const Settings& settings)
      : m_settings(settings),
        m_peer({settings.objects.value, kObjectBytes, settings.budget.value}) {}

  void measureRandom() {
    char object[kObjectBytes] = {};
    for (std::uint64_t key = 0; key < m_settings.objects.value; ++key) {
      suite::setWordAt(object, kKeyWord, key);
      m_peer.add(object);
    }
    m_peer.finish();
    measure("random", &Resident::readRandom);
  }

  void measureDependent() {
    {
      const Cycle cycle(m_settings.objects.value);
      load(cycle);
      m_handle = m_peer.handle(cycle.order[0]);
    }
    measure("chain", &Resident::readDependent);
  }

 private:
  static constexpr std::uint32_t kObjectBytes = 64;
  static constexpr std::uint64_t kChunk = 50'000;   // accesses between looks at the clock
  static constexpr std::uint64_t kLeast = 200'000;  // accesses, however slow
  static constexpr std::uint64_t kMost = 20'000'000;

  void load(const Cycle& cycle) {
    char object[kObjectBytes] = {};
    for (std::uint64_t key = 0; key < m_settings.objects.value; ++key) {
      suite::setWordAt(object, kKeyWord, key);
      suite::setWordAt(object, kPositionWord, cycle.position[key]);
      suite::setWordAt(object, kNextWord, cycle.next(key));
      m_peer.add(object);
    }
    m_peer.finish();
    if constexpr (!P::kHandleIsKey) {
      for (std::uint64_t key = 0; key < m_settings.objects.value; ++key) {
        const std::uint64_t next = m_peer.handle(cycle.next(key));
        m_peer.update(m_peer.handle(key),
                      [next](void* stored) { suite::setWordAt(stored, kNextWord, next); });
      }
      m_peer.finish();
    }
  }

  void measure(std::string_view variant, void (Resident::*readChunk)()) {
    (this->*readChunk)();  // brings code and structures into the caches
    std::uint64_t accesses = 0;
    const suite::Meter meter;
    double seconds = 0;
    while (accesses < kLeast || (accesses < kMost && seconds < m_settings.seconds)) {
      (this->*readChunk)();
      accesses += kChunk;
      seconds = meter.cpuSeconds();
    }
    m_settings.check(m_difference == 0);
    m_settings.print(variant, "ns", seconds * 1e9 / static_cast<double>(accesses));
  }

  [[gnu::noinline]] void readRandom() {
    const std::uint64_t objects = m_settings.objects.value;
    std::uint64_t difference = 0;
    suite::Random random = m_random;
    for (std::uint64_t i = 0; i < kChunk; ++i) {
      const std::uint64_t key = random.below(objects);
      m_peer.read(m_peer.handle(key), [&difference, key](const void* object) {
        difference |= suite::wordAt(object, kKeyWord) ^ key;
      });
    }
    m_random = random;
    m_difference |= difference;
  }

  [[gnu::noinline]] void readDependent() {
    const std::uint64_t objects = m_settings.objects.value;
    std::uint64_t difference = 0;
    std::uint64_t handle = m_handle;
    std::uint64_t position = m_position;
    for (std::uint64_t i = 0; i < kChunk; ++i) {
      std::uint64_t next = 0;
      m_peer.read(handle, [&difference, &next, position](const void* object) {
        difference |= suite::wordAt(object, kPositionWord) ^ position;
        next = suite::wordAt(object, kNextWord);
      });
      handle = next;
      position = position + 1 == objects ? 0 : position + 1;
    }
    m_handle = handle;
    m_position = position;
    m_difference |= difference;
  }

  const Settings& m_settings;
  P m_peer;
  suite::Random m_random;
  std::uint64_t m_handle = 0;      // of the object that comes next in the cycle
  std::uint64_t m_position = 0;    // of that object
  std::uint64_t m_difference = 0;  // not 0 once something was read that is wrong
};

template <class P>
void addResident(const AddPeer& add, const char* peer) {
  add("hotpin", peer, [](const Settings& settings) { Resident<P>(settings).measureRandom(); });
  add("dependent", peer,
      [](const Settings& settings) { Resident<P>(settings).measureDependent(); });
}

#endif  // BENCH_SUITE_OBJECTS_RESIDENT_H
