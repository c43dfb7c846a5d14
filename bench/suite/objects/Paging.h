#ifndef BENCH_SUITE_OBJECTS_PAGING_H
#define BENCH_SUITE_OBJECTS_PAGING_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "common/Content.h"
#include "common/Figure.h"
#include "common/Meter.h"
#include "common/Random.h"
#include "common/WarmMemory.h"
#include "objects/Peer.h"

/// @file
/// Workload paging: more 256-byte objects than the budget holds. Each phase gives operations a
/// second of wall time, and where the peer counts them, pages read and written for each operation.
/// An update reads the object, checks it and changes all of it. Beside the peer the process keeps a
/// byte for each object: how often it was updated.

namespace objects {

template <class P>
class Paging {
 public:
  explicit Paging(const Settings& settings)
      : m_settings(settings),
        m_size(bytesLabel(settings.bytes)),
        m_objects(settings.bytes / kObjectBytes),
        m_peer({settings.directory, m_objects, kObjectBytes, settings.budget}),
        m_versions(m_objects) {}

  void measure() {
    suite::warmMemory(m_settings.budget);
    print(phase("load", [this](const auto&) { return load(); }));
    print(phase("scan", [this](const auto& inTime) { return scan(inTime); }));
    suite::Random random(3);
    const auto uniform = [this, &random] { return random.below(m_objects); };
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
    print(phase("uniform read", repeat(uniform, read)));
    print(phase("zipf read", repeat(zipf, read)));
    if (m_wrong > 0) {
      suite::fail(m_settings.peer + " gave other objects than it was given");
    }
    const Phase uniformUpdate = phase("uniform update", repeat(uniform, update));
    const Phase zipfUpdate = phase("zipf update", repeat(zipf, update));

    const std::uint64_t noticed = m_wrong;
    const std::uint64_t seen = scan([] { return true; });
    require(seen == m_objects, "not all objects are there after the updates");
    if (m_wrong > 0) {
      std::fprintf(stderr, "%s lost updates: %llu objects are not what was written\n",
                   m_settings.peer.c_str(), static_cast<unsigned long long>(m_wrong - noticed));
      return;
    }
    print(uniformUpdate);
    print(zipfUpdate);
  }

 private:
  static constexpr std::uint32_t kObjectBytes = 256;
  static constexpr std::uint64_t kChunk = 200;  // operations between looks at the clock

  struct Phase {
    std::string_view name;
    double operations;
    double seconds;
    double pageReads;
    double pageWrites;
  };

  static constexpr bool countsPages() {
    return requires(P peer) {
      peer.pageReads() + peer.pageWrites();
    };
  }
  double pageReads() {
    if constexpr (countsPages()) {
      return static_cast<double>(m_peer.pageReads());
    }
    return 0;
  }
  double pageWrites() {
    if constexpr (countsPages()) {
      return static_cast<double>(m_peer.pageWrites());
    }
    return 0;
  }

  /// Measures `work`, which gets a function that tells whether there is time left, and returns how
  /// many operations it did.
  template <class Work>
  Phase phase(std::string_view name, Work work) {
    Phase done{name, 0, 0, -pageReads(), -pageWrites()};
    const suite::Meter meter;
    done.operations = static_cast<double>(
        work([this, &meter] { return meter.wallSeconds() < m_settings.seconds; }));
    m_peer.finish();
    done.seconds = meter.wallSeconds();
    done.pageReads += pageReads();
    done.pageWrites += pageWrites();
    return done;
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
      for (bool more = true; more;) {
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

  void check(const void* object, std::uint64_t key) {
    m_wrong += suite::hasContent(object, kObjectBytes, key, m_versions[key]) ? 0U : 1U;
  }

  void print(const Phase& phase) const {
    print(phase.name, "1/s", phase.operations / phase.seconds);
    if constexpr (countsPages()) {
      const std::string name(phase.name);
      print(name + ", pages read per operation", "pages", phase.pageReads / phase.operations);
      print(name + ", pages written per operation", "pages", phase.pageWrites / phase.operations);
    }
  }

  void print(std::string_view variant, std::string_view unit, double value) const {
    suite::print({m_settings.workload, m_settings.peer, variant, m_size, unit, value});
  }

  const Settings& m_settings;
  std::string m_size;       // of all objects, as a label
  std::uint64_t m_objects;  // how many
  P m_peer;
  std::vector<std::uint8_t> m_versions;  // updates of each object, modulo 256
  std::uint64_t m_wrong = 0;             // objects that were not what they had to be
};

template <class P>
void measurePaging(const Settings& settings) {
  Paging<P>(settings).measure();
}

}  // namespace objects

#endif  // BENCH_SUITE_OBJECTS_PAGING_H
