// A vector of numbers: filled, scanned, read and changed at random, sorted. In process memory, in
// the store, in the store with nothing but pins, and in another library's external memory.

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualVector.h"
#include "VectorWork.h"
#include "common/Program.h"

namespace {

unsigned int storeBudget(std::size_t bytes) {
  return static_cast<unsigned int>(std::min(bytes, std::size_t{0xFFFFF000U}));
}

class StdVector {
 public:
  static constexpr bool kSorts = true;
  StdVector(std::size_t, std::size_t) {}
  void add(std::uint64_t number) { m_numbers.push_back(number); }
  std::uint64_t sum() const {
    std::uint64_t sum = 0;
    for (const std::uint64_t number : m_numbers) {
      sum += number;
    }
    return sum;
  }
  std::uint64_t get(std::uint64_t i) const { return m_numbers[i]; }
  void set(std::uint64_t i, std::uint64_t number) { m_numbers[i] = number; }
  void sort() { std::sort(m_numbers.begin(), m_numbers.end()); }

 private:
  std::vector<std::uint64_t> m_numbers;
};

class StoredVector {
 public:
  static constexpr bool kSorts = true;
  StoredVector(std::size_t, std::size_t budget) : m_manager(storeBudget(budget)) {}
  void add(std::uint64_t number) { m_numbers.push_back(number); }
  std::uint64_t sum() const {
    std::uint64_t sum = 0;
    for (const std::uint64_t number : m_numbers) {
      sum += number;
    }
    return sum;
  }
  std::uint64_t get(std::uint64_t i) const { return m_numbers.get(i); }
  void set(std::uint64_t i, std::uint64_t number) { m_numbers.set(i, number); }
  void sort() { m_numbers.sort(); }

 private:
  QRTVirtualMemoryMgr m_manager;
  QRTVirtualVector<std::uint64_t> m_numbers{m_manager};
};

// What a get or a set would cost if the block's handle were at hand: one pin and its dismiss.
class PinnedBlocks {
 public:
  static constexpr bool kSorts = false;
  PinnedBlocks(std::size_t, std::size_t budget) : m_manager(storeBudget(budget)) {}
  void add(std::uint64_t number) {
    if (m_size == m_blocks.size() * kPerBlock) {
      QRTVirtualPageItem item;
      m_manager.alloc(kPerBlock * sizeof number, item);
      m_manager.dismiss(item);
      m_blocks.push_back(item.getOffset());
    }
    set(m_size++, number);
  }
  std::uint64_t sum() {
    std::uint64_t sum = 0;
    for (std::size_t block = 0; block < m_blocks.size(); ++block) {
      const auto* const numbers = pin(block, 0);
      const std::size_t count = std::min(kPerBlock, m_size - block * kPerBlock);
      for (std::size_t i = 0; i < count; ++i) {
        sum += numbers[i];
      }
      m_manager.dismiss(m_blocks[block]);
    }
    return sum;
  }
  std::uint64_t get(std::uint64_t i) {
    const std::uint64_t number = pin(i / kPerBlock, 0)[i % kPerBlock];
    m_manager.dismiss(m_blocks[i / kPerBlock]);
    return number;
  }
  void set(std::uint64_t i, std::uint64_t number) {
    pin(i / kPerBlock, 1)[i % kPerBlock] = number;
    m_manager.dismiss(m_blocks[i / kPerBlock]);
  }

 private:
  static constexpr std::size_t kPerBlock = 512;

  std::uint64_t* pin(std::uint64_t block, int mode) {
    return static_cast<std::uint64_t*>(m_manager.getAddress(m_blocks[block], mode));
  }

  QRTVirtualMemoryMgr m_manager;
  std::vector<unsigned long long> m_blocks;  // offsets
  std::size_t m_size = 0;                    // numbers
};

}  // namespace

int main(int argc, char** argv) {
  VectorOptions options;
  suite::Program program("Vectors of numbers beside other ways to keep them");
  program.option("--elements", options.elements, "how many numbers, 8 bytes each");
  program.option("--budget", options.budget, "memory: ample, 16M, or 1/8 of the numbers");
  program.add("vector", "std::vector", [&] { measureVector<StdVector>("std::vector", options); });
  program.add("vector", "store", [&] { measureVector<StoredVector>("store", options); });
  program.add("vector", "store, pins",
              [&] { measureVector<PinnedBlocks>("store, pins", options); });
#ifdef SUITE_STXXL
  program.add("vector", "stxxl", [&] { measureStxxl(options); });
#endif
  return program.main(argc, argv);
}
