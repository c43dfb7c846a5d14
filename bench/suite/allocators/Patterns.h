#ifndef BENCH_SUITE_ALLOCATORS_PATTERNS_H
#define BENCH_SUITE_ALLOCATORS_PATTERNS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

/// @file
/// The patterns of use. Each keeps `live` blocks, which are there after `fill` and after every
/// `run`, and touches every block it gets; `kLive` is how many where nobody says. `run` gives the
/// number of pairs of one free and one allocation. All random choices are drawn before, so that
/// only the allocator is timed.

constexpr std::uint32_t kBlock = 64;  // bytes, where all have one size

/// The live blocks and their sizes.
class Blocks {
 public:
  explicit Blocks(std::size_t live) : m_slots(live) {}

  std::size_t live() const { return m_slots.size(); }
  template <class Allocator>
  void get(Allocator& allocator, std::size_t i, std::uint32_t size) {
    m_slots[i] = {allocator.get(size), size};
    std::memset(m_slots[i].p, 1, 8);
  }
  template <class Allocator>
  void put(Allocator& allocator, std::size_t i) {
    allocator.put(m_slots[i].p, m_slots[i].size);
  }
  /// Touches all of them to the last byte, for their memory to be counted.
  void touch() {
    for (const Slot& slot : m_slots) {
      std::memset(slot.p, 1, slot.size);
    }
  }

 private:
  struct Slot {
    void* p = nullptr;
    std::uint32_t size = 0;
  };
  std::vector<Slot> m_slots;
};

/// Frees all blocks of one size in some order and makes as many new ones.
class AllAtOnce {
 public:
  static constexpr bool kOneSize = true;

  template <class Allocator>
  void fill(Allocator& allocator) {
    for (std::size_t i = 0; i < blocks.live(); ++i) {
      blocks.get(allocator, i, kBlock);
    }
  }
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (const std::uint32_t i : m_order) {
      blocks.put(allocator, i);
    }
    fill(allocator);
    return blocks.live();
  }

  Blocks blocks;

 protected:
  explicit AllAtOnce(std::size_t live) : blocks(live), m_order(live) {
    std::iota(m_order.begin(), m_order.end(), 0U);
  }

  std::vector<std::uint32_t> m_order;  // in which they are freed
};

/// The youngest first: a stack.
struct Lifo : AllAtOnce {
  static constexpr const char* kLive = "1e3";
  explicit Lifo(std::size_t live) : AllAtOnce(live) {
    std::reverse(m_order.begin(), m_order.end());
  }
};

struct RandomOrder : AllAtOnce {
  static constexpr const char* kLive = "1e5";
  explicit RandomOrder(std::size_t live) : AllAtOnce(live) {
    std::shuffle(m_order.begin(), m_order.end(), std::mt19937(7));
  }
};

/// Replaces blocks one by one: in a row, or at random, sizes from `smallest` to `largest` with
/// small ones as likely as large ones or, when the range is wide, each power of two as likely.
class Replace {
 public:
  Replace(std::size_t live, bool inARow, std::uint32_t smallest, std::uint32_t largest)
      : blocks(live) {
    constexpr std::uint32_t kWide = 1000;  // times
    std::mt19937 random(7);
    std::uniform_real_distribution<> exponent(std::log2(smallest), std::log2(largest));
    for (std::size_t i = 0; i < 4 * live; ++i) {
      const auto which = static_cast<std::uint32_t>(inARow ? i % live : random() % live);
      m_steps.emplace_back(which, largest / smallest < kWide
                                      ? smallest + random() % (largest - smallest + 1)
                                      : static_cast<std::uint32_t>(std::exp2(exponent(random))));
    }
  }

  template <class Allocator>
  void fill(Allocator& allocator) {
    for (std::size_t i = 0; i < blocks.live(); ++i) {
      blocks.get(allocator, i, m_steps[i].second);
    }
  }
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (const auto& [which, size] : m_steps) {
      blocks.put(allocator, which);
      blocks.get(allocator, which, size);
    }
    return m_steps.size();
  }

  Blocks blocks;

 private:
  std::vector<std::pair<std::uint32_t, std::uint32_t>> m_steps;  // which block, which size
};

struct Fifo : Replace {
  static constexpr const char* kLive = "1e5";
  static constexpr bool kOneSize = true;
  explicit Fifo(std::size_t live) : Replace(live, true, kBlock, kBlock) {}
};

struct FixedChurn : Replace {
  static constexpr const char* kLive = "1e5";
  static constexpr bool kOneSize = true;
  explicit FixedChurn(std::size_t live) : Replace(live, false, kBlock, kBlock) {}
};

struct Churn : Replace {
  static constexpr const char* kLive = "1e5";
  static constexpr bool kOneSize = false;
  explicit Churn(std::size_t live) : Replace(live, false, 8, 256) {}
};

struct LargeChurn : Replace {
  static constexpr const char* kLive = "1e4";
  static constexpr bool kOneSize = false;
  explicit LargeChurn(std::size_t live) : Replace(live, false, 16, 65536) {}
};

/// Bursts of a thousand blocks of 8 to 256 bytes that come and go together, the oldest first,
/// beside others that stay: what a request of a server does.
class Burst {
 public:
  static constexpr const char* kLive = "1e5";
  static constexpr bool kOneSize = false;
  explicit Burst(std::size_t live) : blocks(live), m_sizes(live + kBurst) {
    std::mt19937 random(7);
    for (std::uint32_t& size : m_sizes) {
      size = static_cast<std::uint32_t>(8 + random() % 249);
    }
  }

  template <class Allocator>
  void fill(Allocator& allocator) {
    for (std::size_t i = 0; i < blocks.live(); ++i) {
      blocks.get(allocator, i, m_sizes[i]);
    }
  }
  template <class Allocator>
  std::size_t run(Allocator& allocator) {
    for (std::size_t burst = 0; burst < kBurst; ++burst) {
      for (std::size_t i = 0; i < m_burst.live(); ++i) {
        m_burst.get(allocator, i, m_sizes[i + burst]);
      }
      for (std::size_t i = 0; i < m_burst.live(); ++i) {
        m_burst.put(allocator, i);
      }
    }
    return kBurst * m_burst.live();
  }

  Blocks blocks;

 private:
  static constexpr std::size_t kBurst = 1000;
  Blocks m_burst{kBurst};
  std::vector<std::uint32_t> m_sizes;
};

#endif  // BENCH_SUITE_ALLOCATORS_PATTERNS_H
