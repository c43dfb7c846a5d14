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
    load();
    std::uint64_t last = 0;
    const auto sequential = [this, &last] { return last + 1 == m_objects ? last = 0 : ++last; };
    suite::Random random(3);
    const auto uniform = [this, &random] { return random.below(m_objects); };
    suite::Zipf zipf(m_objects);
    const auto read = [this](std::uint64_t key) { check(key); };
    const auto change = [this](std::uint64_t key) { update(key); };

    print(phase("scan", m_objects, sequential, read));
    print(phase("uniform read", kEndless, uniform, read));
    print(phase("zipf read", kEndless, zipf, read));
    if (m_wrong > 0) {
      suite::fail(m_settings.peer + " gave other objects than it was given");
    }
    const Phase uniformUpdate = phase("uniform update", kEndless, uniform, change);
    const Phase zipfUpdate = phase("zipf update", kEndless, zipf, change);

    const std::uint64_t noticed = m_wrong;
    for (std::uint64_t key = 0; key < m_objects; ++key) {
      check(key);
    }
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
  static constexpr std::uint64_t kEndless = ~std::uint64_t{0};

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

  void load() {
    const suite::Meter meter;
    char object[kObjectBytes];
    for (std::uint64_t key = 0; key < m_objects; ++key) {
      suite::fillContent(object, kObjectBytes, key, 0);
      m_peer.add(object);
    }
    m_peer.finish();
    Phase done{"load", static_cast<double>(m_objects), meter.wallSeconds(), 0, 0};
    if constexpr (countsPages()) {
      done.pageReads = static_cast<double>(m_peer.pageReads());
      done.pageWrites = static_cast<double>(m_peer.pageWrites());
    }
    print(done);
  }

  template <class Pick, class Operation>
  Phase phase(std::string_view name, std::uint64_t most, Pick& pick, Operation operation) {
    Phase done{name, 0, 0, 0, 0};
    if constexpr (countsPages()) {
      done.pageReads = -static_cast<double>(m_peer.pageReads());
      done.pageWrites = -static_cast<double>(m_peer.pageWrites());
    }
    const suite::Meter meter;
    std::uint64_t operations = 0;
    while (operations < most && meter.wallSeconds() < m_settings.seconds) {
      for (std::uint64_t i = 0; i < kChunk; ++i) {
        operation(pick());
      }
      operations += kChunk;
    }
    m_peer.finish();
    done.seconds = meter.wallSeconds();
    done.operations = static_cast<double>(operations);
    if constexpr (countsPages()) {
      done.pageReads += static_cast<double>(m_peer.pageReads());
      done.pageWrites += static_cast<double>(m_peer.pageWrites());
    }
    return done;
  }

  void check(std::uint64_t key) {
    m_peer.read(m_peer.handle(key), [this, key](const void* object) {
      m_wrong += suite::hasContent(object, kObjectBytes, key, m_versions[key]) ? 0U : 1U;
    });
  }

  void update(std::uint64_t key) {
    m_peer.update(m_peer.handle(key), [this, key](void* object) {
      m_wrong += suite::hasContent(object, kObjectBytes, key, m_versions[key]) ? 0U : 1U;
      suite::fillContent(object, kObjectBytes, key, ++m_versions[key]);
    });
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
