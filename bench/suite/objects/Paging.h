#ifndef BENCH_SUITE_OBJECTS_PAGING_H
#define BENCH_SUITE_OBJECTS_PAGING_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "ObjectWork.h"
#include "common/Content.h"
#include "common/Lookahead.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"

/// @file
/// Workload paging: more 256-byte objects than the budget holds. Each phase gives operations a
/// second of wall time, and where the peer counts them, pages read and written for each operation.
/// An update reads the object, checks it and changes all of it. Peers that can be told what comes
/// are measured with that as well. Beside the peer the process keeps a
/// byte for each object: how often it was updated.

template <class P>
class Paging {
 public:
  explicit Paging(const Settings& settings)
      : m_settings(settings),
        m_objects(settings.bytes.value / kObjectBytes),
        m_peer({m_objects, kObjectBytes, settings.budget.value}),
        m_versions(m_objects) {}

  void measure() {
    suite::warmMemory(m_settings.budget.value);
    phase("load", [this](const auto&) { return this->load(); });
    phase("scan", [this](const auto& inTime) { return this->scan(inTime); });
    suite::Uniform uniform(m_objects, suite::Random(3));
    suite::Zipf zipf(m_objects);
    const auto read = [this](std::uint64_t key) {
      m_peer.read(m_peer.handle(key), [this, key](const void* object) { check(object, key); });
    };
    const auto update = [this](std::uint64_t key) {
      m_peer.update(m_peer.handle(key), [this, key](void* object) {
        check(object, key);
        suite::fillContent(object, kObjectBytes, key, ++m_versions[key]);
      });
    };
    phase("uniform read", repeat(uniform, read));
    if constexpr (requires { m_peer.announce(0); }) {
      suite::Lookahead ahead(uniform, Announcement<P>{&m_peer});
      phase("uniform read announced", repeat(ahead, read));
    }
    if constexpr (requires { P::kMostAtOnce; }) {
      suite::Uniform others(m_objects, suite::Random(5));  // not what was just announced and read
      for (const std::uint32_t atOnce : {1U, 8U, 32U, 128U, P::kMostAtOnce}) {
        phase("uniform read, " + std::to_string(atOnce) + " at once",
              [&](const auto& inTime) { return this->readAtOnce(others, atOnce, inTime); });
      }
    }
    phase("zipf read", repeat(zipf, read));
    m_settings.check(m_wrong == 0);
    print();
    phase("uniform update", repeat(uniform, update));
    phase("zipf update", repeat(zipf, update));

    const std::uint64_t noticed = m_wrong;
    const std::uint64_t seen = scan([] { return true; });
    suite::require(seen == m_objects, "not all objects are there after the updates");
    if (m_wrong > 0) {
      std::fprintf(stderr, "%s lost updates: %llu objects are not what was written\n",
                   m_settings.peer.c_str(), static_cast<unsigned long long>(m_wrong - noticed));
      return;
    }
    print();
  }

 private:
  static constexpr std::uint32_t kObjectBytes = 256;
  static constexpr std::uint64_t kChunk = 200;  // operations between looks at the clock

  struct Measured {
    std::string variant;
    const char* unit;
    double value;
  };

  /// Measures `work`, which gets a function that tells whether there is time left, and returns how
  /// many operations it did.
  template <class Work>
  void phase(const std::string& name, Work work) {
    const auto [readBefore, writtenBefore] = pages();
    const suite::Meter meter;
    const auto operations = static_cast<double>(
        work([this, &meter] { return meter.wallSeconds() < m_settings.seconds; }));
    m_peer.finish();
    m_measured.push_back({name, "1/s", operations / meter.wallSeconds()});
    if constexpr (kCountsPages) {
      const auto [read, written] = pages();
      m_measured.push_back({name + ", pages read per operation", "pages",
                            static_cast<double>(read - readBefore) / operations});
      m_measured.push_back({name + ", pages written per operation", "pages",
                            static_cast<double>(written - writtenBefore) / operations});
    }
  }

  // Whether the peer knows how many pages it has read from disk and written.
  static constexpr bool kCountsPages = requires(P peer) { peer.pageReads() + peer.pageWrites(); };
  std::pair<std::uint64_t, std::uint64_t> pages() {
    if constexpr (kCountsPages) {
      return {m_peer.pageReads(), m_peer.pageWrites()};
    }
    return {};
  }

  /// Prints what was measured since the last time: by now it is known to be right.
  void print() {
    for (const Measured& figure : m_measured) {
      m_settings.print(figure.variant, figure.unit, figure.value);
    }
    m_measured.clear();
  }

  std::uint64_t load() {
    char object[kObjectBytes];
    for (std::uint64_t key = 0; key < m_objects; ++key) {
      suite::fillContent(object, kObjectBytes, key, 0);
      m_peer.add(object);
    }
    return m_objects;
  }

  /// Reads the objects in their order, the way the peer does such a thing best.
  template <class InTime>
  std::uint64_t scan(const InTime& inTime) {
    std::uint64_t key = 0;
    const auto use = [this, &key, &inTime](const void* object) {
      check(object, key);
      ++key;
      return key < m_objects && (key % kChunk != 0 || inTime());
    };
    if constexpr (requires { m_peer.scan(use); }) {
      m_peer.scan(use);
    } else {
      bool more = true;
      while (more) {
        m_peer.read(m_peer.handle(key), [&](const void* object) { more = use(object); });
      }
    }
    return key;
  }

  /// Work that does `operation` with keys from `pick` while there is time.
  template <class Pick, class Operation>
  static auto repeat(Pick& pick, Operation operation) {
    return [&pick, operation](const auto& inTime) {
      std::uint64_t operations = 0;
      for (; inTime(); operations += kChunk) {
        for (std::uint64_t i = 0; i < kChunk; ++i) {
          operation(pick());
        }
      }
      return operations;
    };
  }

  /// Reads objects with keys from `pick`, so many in one call of the peer.
  template <class Pick, class InTime>
  std::uint64_t readAtOnce(Pick& pick, std::uint32_t atOnce, const InTime& inTime) {
    std::vector<std::uint64_t> keys(atOnce);
    std::vector<unsigned long long> handles(atOnce);
    std::uint64_t operations = 0;
    while (inTime()) {
      for (std::uint64_t i = 0; i < kChunk; i += atOnce) {
        for (std::uint32_t place = 0; place < atOnce; ++place) {
          keys[place] = pick();
          handles[place] = m_peer.handle(keys[place]);
        }
        m_peer.readAll(handles.data(), atOnce, [&](std::uint32_t place, const void* object) {
          check(object, keys[place]);
        });
        operations += atOnce;
      }
    }
    return operations;
  }

  void check(const void* object, std::uint64_t key) {
    m_wrong += suite::hasContent(object, kObjectBytes, key, m_versions[key]) ? 0U : 1U;
  }

  const Settings& m_settings;
  std::uint64_t m_objects;  // how many
  P m_peer;
  std::vector<std::uint8_t> m_versions;  // updates of each object, modulo 256
  std::uint64_t m_wrong = 0;             // objects that were not what they had to be
  std::vector<Measured> m_measured;      // and not yet printed
};

template <class P>
void measurePaging(const Settings& settings) {
  Paging<P>(settings).measure();
}

#endif  // BENCH_SUITE_OBJECTS_PAGING_H
