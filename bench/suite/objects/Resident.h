#ifndef BENCH_SUITE_OBJECTS_RESIDENT_H
#define BENCH_SUITE_OBJECTS_RESIDENT_H

#include <cstdint>
#include <functional>
#include <numeric>
#include <utility>
#include <vector>

#include "ObjectWork.h"
#include "common/Content.h"
#include "common/Lookahead.h"
#include "common/Meter.h"
#include "common/Random.h"

/// @file
/// Workloads hotpin and dependent: 64-byte objects, all in memory, are pinned, read and dismissed
/// one by one. In hotpin their order is known beforehand, so that a processor can look ahead, and
/// once more with peers that can be told what comes; in dependent each object tells the next one.

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

constexpr std::uint32_t kResidentBytes = 64;      // of an object
constexpr std::uint64_t kReadsInChunk = 50'000;   // between looks at the clock
constexpr std::uint64_t kLeastReads = 200'000;    // however slow
constexpr std::uint64_t kMostReads = 20'000'000;  // however fast

/// Measures `readChunk`, which reads a chunk of objects and gives 0 if they were right.
inline void timeReads(const Settings& settings, const char* variant,
                      const std::function<std::uint64_t()>& readChunk) {
  std::uint64_t difference = readChunk();  // brings code and structures into the caches
  std::uint64_t reads = 0;
  double seconds = 0;
  const suite::Meter meter;
  while (reads < kLeastReads || (reads < kMostReads && seconds < settings.seconds)) {
    difference |= readChunk();
    reads += kReadsInChunk;
    seconds = meter.cpuSeconds();
  }
  settings.check(difference == 0);
  settings.print(variant, "ns", seconds * 1e9 / static_cast<double>(reads));
}

/// Reads a chunk of objects with keys from `pick`. What it uses again and again is in variables of
/// its own, which stay in registers. @return 0 if they were right
template <class P, class Pick>
std::uint64_t readRandom(P& peer, Pick& pick) {
  std::uint64_t difference = 0;
  Pick picked = pick;
  for (std::uint64_t i = 0; i < kReadsInChunk; ++i) {
    const std::uint64_t key = picked();
    peer.read(peer.handle(key), [&difference, key](const void* object) {
      difference |= suite::wordAt(object, kKeyWord) ^ key;
    });
  }
  pick = picked;
  return difference;
}

template <class P>
void measureHotpin(const Settings& settings) {
  const std::uint64_t objects = settings.objects.value;
  P peer({objects, kResidentBytes, settings.budget.value});
  char object[kResidentBytes] = {};
  for (std::uint64_t key = 0; key < objects; ++key) {
    suite::setWordAt(object, kKeyWord, key);
    peer.add(object);
  }
  peer.finish();
  suite::Uniform uniform(objects);
  timeReads(settings, "random", [&] { return readRandom(peer, uniform); });
  if constexpr (requires { peer.announce(0); }) {
    suite::Lookahead ahead(uniform, Announcement<P>{&peer});
    timeReads(settings, "random announced", [&] { return readRandom(peer, ahead); });
  }
}

/// Gives the peer its objects with their places in the cycle. @return the handle of the first
template <class P>
std::uint64_t addCycle(P& peer, std::uint64_t objects) {
  const Cycle cycle(objects);
  char object[kResidentBytes] = {};
  for (std::uint64_t key = 0; key < objects; ++key) {
    suite::setWordAt(object, kKeyWord, key);
    suite::setWordAt(object, kPositionWord, cycle.position[key]);
    suite::setWordAt(object, kNextWord, cycle.next(key));
    peer.add(object);
  }
  peer.finish();
  if constexpr (!P::kHandleIsKey) {
    for (std::uint64_t key = 0; key < objects; ++key) {
      peer.update(peer.handle(key), [next = peer.handle(cycle.next(key))](void* stored) {
        suite::setWordAt(stored, kNextWord, next);
      });
    }
    peer.finish();
  }
  return peer.handle(cycle.order[0]);
}

/// Reads a chunk of objects along the cycle. @param place  handle and position of the next one
template <class P>
std::uint64_t readChain(P& peer, std::uint64_t objects,
                        std::pair<std::uint64_t, std::uint64_t>& place) {
  std::uint64_t difference = 0;
  auto [handle, position] = place;
  for (std::uint64_t i = 0; i < kReadsInChunk; ++i) {
    std::uint64_t next = 0;
    peer.read(handle, [&difference, &next, at = position](const void* object) {
      difference |= suite::wordAt(object, kPositionWord) ^ at;
      next = suite::wordAt(object, kNextWord);
    });
    handle = next;
    position = position + 1 == objects ? 0 : position + 1;
  }
  place = {handle, position};
  return difference;
}

template <class P>
void measureDependent(const Settings& settings) {
  const std::uint64_t objects = settings.objects.value;
  P peer({objects, kResidentBytes, settings.budget.value});
  std::pair<std::uint64_t, std::uint64_t> place(addCycle(peer, objects), 0);
  timeReads(settings, "chain", [&] { return readChain(peer, objects, place); });
}

template <class P>
void addResident(const AddPeer& add, const char* peer) {
  add("hotpin", peer, measureHotpin<P>);
  add("dependent", peer, measureDependent<P>);
}

#endif  // BENCH_SUITE_OBJECTS_RESIDENT_H
