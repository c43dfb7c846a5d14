#ifndef BENCH_ALLOC_PATTERNS_H
#define BENCH_ALLOC_PATTERNS_H

#include <cstdint>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

/// @file
/// The patterns of use. Each holds what is live in `slots` and touches every block it gets. All
/// random choices are drawn before, so that only the allocator is timed.

struct Slot {
  void* p = nullptr;
  std::uint32_t size = 0;
};

/// Fills and empties a stack of blocks of one size.
struct Lifo {
  static constexpr const char* kName = "LIFO 64 B";
  static constexpr bool kOneSize = true;
  static constexpr std::size_t kLive = 1000;
  std::vector<Slot> slots{kLive};

  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (Slot& slot : slots) {
      slot.p = allocator.get(64);
      std::memset(slot.p, 1, 8);
    }
    for (std::size_t i = slots.size(); i-- > 0;) {
      allocator.put(slots[i].p, 64);
    }
    return kLive;
  }
  template <class Allocator>
  void fill(Allocator&) {}
  template <class Allocator>
  void empty(Allocator&) {}
};

/// Frees the oldest block for each new one.
struct Fifo {
  static constexpr const char* kName = "FIFO 64 B, 1e5 live";
  static constexpr bool kOneSize = true;
  static constexpr std::size_t kLive = 100000;
  std::vector<Slot> slots{kLive};

  template <class Allocator>
  void fill(Allocator& allocator) {
    for (Slot& slot : slots) {
      slot.p = allocator.get(64);
      std::memset(slot.p, 1, 64);
    }
  }
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (Slot& slot : slots) {
      allocator.put(slot.p, 64);
      slot.p = allocator.get(64);
      std::memset(slot.p, 1, 8);
    }
    return kLive;
  }
  template <class Allocator>
  void empty(Allocator& allocator) {
    for (Slot& slot : slots) {
      allocator.put(slot.p, 64);
    }
  }
};

/// Makes `count` blocks and frees them all in random order.
template <std::uint32_t count>
struct RandomOrder {
  static constexpr const char* kName = count == 100     ? "random order 64 B, 1e2"
                                       : count == 1000  ? "random order 64 B, 1e3"
                                       : count == 10000 ? "random order 64 B, 1e4"
                                                        : "random order 64 B, 1e5";
  static constexpr bool kOneSize = true;
  std::vector<Slot> slots{count};
  std::vector<std::uint32_t> order;

  RandomOrder() {
    std::mt19937 random(7);
    for (std::uint32_t i = 0; i < count; ++i) {
      order.push_back(i);
      std::swap(order.back(), order[random() % order.size()]);
    }
  }
  template <class Allocator>
  void fill(Allocator&) {}
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (Slot& slot : slots) {
      slot.p = allocator.get(64);
      std::memset(slot.p, 1, 8);
    }
    for (const std::uint32_t i : order) {
      allocator.put(slots[i].p, 64);
    }
    return count;
  }
  template <class Allocator>
  void empty(Allocator&) {}
};

/// Replaces random blocks by new ones, sizes from `smallest` to `largest`.
template <std::uint32_t smallest, std::uint32_t largest>
struct Churn {
  static constexpr const char* kName =
      smallest == largest ? "random churn 64 B, 1e5 live" : "mixed churn 8-256 B, 1e5 live";
  static constexpr bool kOneSize = smallest == largest;
  static constexpr std::size_t kLive = 100000;
  std::vector<Slot> slots{kLive};
  std::vector<std::pair<std::uint32_t, std::uint32_t>> steps;  // which slot, which size

  Churn() {
    std::mt19937 random(7);
    for (std::size_t i = 0; i < 4 * kLive; ++i) {
      steps.emplace_back(random() % kLive, smallest + random() % (largest - smallest + 1));
    }
  }
  template <class Allocator>
  void fill(Allocator& allocator) {
    for (std::size_t i = 0; i < kLive; ++i) {
      slots[i].size = steps[i].second;
      slots[i].p = allocator.get(slots[i].size);
      std::memset(slots[i].p, 1, slots[i].size);
    }
  }
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (const auto& [which, size] : steps) {
      Slot& slot = slots[which];
      allocator.put(slot.p, slot.size);
      slot.size = size;
      slot.p = allocator.get(size);
      std::memset(slot.p, 1, 8);
    }
    return steps.size();
  }
  template <class Allocator>
  void empty(Allocator& allocator) {
    for (Slot& slot : slots) {
      allocator.put(slot.p, slot.size);
    }
  }
};

#endif  // BENCH_ALLOC_PATTERNS_H
