#ifndef BENCH_SUITE_OBJECTS_CHURN_H
#define BENCH_SUITE_OBJECTS_CHURN_H

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "ObjectWork.h"
#include "common/Content.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"

/// @file
/// Workload churn: allocate objects of 16 to 512 bytes (log-normal, as strings and tree nodes are),
/// free them in random order, replace random ones, and the memory that this takes.
///
/// Its peers have `make(bytes, fill)`, which calls fill(void*) and gives a handle, `end(handle)`
/// and `read(handle, use)`. Objects are checked between what is timed: a free needs no look at
/// them.

template <class P>
class Churn {
 public:
  explicit Churn(const Settings& settings)
      : m_settings(settings),
        m_sizes(drawSizes(settings.objects.value)),
        m_held(m_sizes),
        m_handles(settings.objects.value) {}

  void measure() {
    suite::warmMemory(kMostBytes / 2 * m_sizes.size());
    const std::uint64_t before = suite::residentBytes();
    const std::uint64_t n = m_sizes.size();
    {
      P peer(space());
      time("allocate", n, [&] { fill(peer); });
      m_settings.print("bytes a byte fresh", "bytes/byte", overhead(before));
      check(peer);
      std::shuffle(m_handles.begin(), m_handles.end(), std::mt19937(13));
      time("free random", n, [&] {
        for (const std::uint64_t handle : m_handles) {
          peer.end(handle);
        }
      });
    }
    P peer(space());
    fill(peer);
    suite::Random random(11);
    time("replace random", kTurns * n, [&] {
      for (std::uint64_t turn = 0; turn < kTurns; ++turn) {
        for (const std::uint32_t size : m_sizes) {
          const std::uint64_t victim = random.below(n);
          peer.end(m_handles[victim]);
          m_held[victim] = size;
          make(peer, victim);
        }
      }
    });
    m_settings.print("bytes a byte churned", "bytes/byte", overhead(before));
    check(peer);
  }

 private:
  static constexpr std::uint32_t kLeastBytes = 16;
  static constexpr std::uint32_t kMostBytes = 512;
  static constexpr std::uint64_t kTurns = 3;  // replacements for each object

  /// Sizes with a median of 96 bytes.
  static std::vector<std::uint32_t> drawSizes(std::uint64_t n) {
    std::mt19937 random(7);
    std::lognormal_distribution<double> distribution(4.56, 0.7);
    std::vector<std::uint32_t> sizes(n);
    for (std::uint32_t& size : sizes) {
      size = static_cast<std::uint32_t>(
          std::clamp<double>(distribution(random), kLeastBytes, kMostBytes));
    }
    return sizes;
  }

  Space space() const { return {0, 0, m_settings.budget.value}; }

  /// Makes an object that holds its number at both ends.
  void make(P& peer, std::uint64_t i) {
    const std::uint32_t size = m_held[i];
    m_handles[i] = peer.make(size, [i, size](void* object) {
      suite::setWordAt(object, 0, i);
      suite::setWordAt(static_cast<char*>(object) + size - sizeof i, 0, i);
    });
  }

  /// Does `work` and prints what each of its `operations` took.
  template <class Work>
  void time(const char* variant, std::uint64_t operations, Work work) const {
    const suite::Meter meter;
    work();
    m_settings.print(variant, "ns", meter.cpuSeconds() * 1e9 / static_cast<double>(operations));
  }

  void fill(P& peer) {
    for (std::uint64_t i = 0; i < m_sizes.size(); ++i) {
      make(peer, i);
    }
  }

  void check(P& peer) {
    std::uint64_t wrong = 0;
    for (std::uint64_t i = 0; i < m_sizes.size(); ++i) {
      peer.read(m_handles[i], [this, i, &wrong](const void* object) {
        const char* const end = static_cast<const char*>(object) + m_held[i] - sizeof i;
        wrong |= (suite::wordAt(object, 0) ^ i) | (suite::wordAt(end, 0) ^ i);
      });
    }
    m_settings.check(wrong == 0);
  }

  /// Memory taken since `before` for each byte asked for.
  double overhead(std::uint64_t before) const {
    double bytes = 0;
    for (const std::uint32_t size : m_held) {
      bytes += size;
    }
    return static_cast<double>(suite::residentBytes() - before) / bytes;
  }

  const Settings& m_settings;
  std::vector<std::uint32_t> m_sizes;    // in the order in which objects are made
  std::vector<std::uint32_t> m_held;     // of the objects there are
  std::vector<std::uint64_t> m_handles;  // of them
};

template <class P>
void measureChurn(const Settings& settings) {
  Churn<P>(settings).measure();
}

#endif  // BENCH_SUITE_OBJECTS_CHURN_H
