#ifndef TESTS_MODEL_HEAPBLOCKS_H
#define TESTS_MODEL_HEAPBLOCKS_H

#include <cstdint>
#include <map>
#include <vector>

#include "model/Content.h"
#include "model/ModelWorld.h"

namespace model {

/// The blocks that an allocator handed out: none lies in another, and each keeps its content.
class HeapBlocks {
 public:
  struct Block {
    std::uint32_t size;  ///< bytes that the caller may use
    std::uint32_t seed;  ///< of what is in it
    std::size_t place;   ///< in the list that they are drawn from
  };
  using Blocks = std::map<char*, Block>;

  /// Notes a block that was handed out, and fills it.
  void add(ModelWorld& world, void* address, std::uint32_t size) {
    auto* const begin = static_cast<char*>(address);
    world.require(reinterpret_cast<std::uintptr_t>(begin) % 8 == 0, "a block is not aligned");
    const auto next = m_blocks.lower_bound(begin);
    world.require(next == m_blocks.end() || begin + size <= next->first, "blocks overlap");
    world.require(next == m_blocks.begin() || !reaches(*std::prev(next), begin), "blocks overlap");
    world.require(next == m_blocks.end() || begin != next->first, "a block twice");
    const std::uint32_t seed = m_lastSeed++;
    fill(begin, size, seed);
    m_blocks[begin] = {size, seed, m_drawn.size()};
    m_drawn.push_back(begin);
    m_bytes += size;
  }

  /// Checks a block's content and forgets it.
  void remove(ModelWorld& world, Blocks::iterator block) {
    world.require(holds(block->first, block->second.size, block->second.seed),
                  "a block has another content");
    forget(block);
  }

  /// Notes that a block was given another size, perhaps in another place.
  void move(ModelWorld& world, Blocks::iterator block, void* to, std::uint32_t size) {
    const auto kept = std::min(block->second.size, size);
    world.require(holds(to, kept, block->second.seed), "a block lost its content on the way");
    forget(block);
    add(world, to, size);
  }

  void verify(ModelWorld& world) const {
    for (const auto& [begin, block] : m_blocks) {
      world.require(holds(begin, block.size, block.seed), "a block has another content");
    }
  }

  /// Whether a block begins in a piece of memory.
  bool anyIn(const void* memory, std::size_t size) const {
    auto* const begin = static_cast<char*>(const_cast<void*>(memory));
    const auto first = m_blocks.lower_bound(begin);
    return first != m_blocks.end() && first->first < begin + size;
  }

  /// A block by chance, whatever the addresses are; not to be asked for when there is none.
  Blocks::iterator any(Choices& choices) {
    return m_blocks.find(m_drawn[choices.below(static_cast<std::uint32_t>(m_drawn.size()))]);
  }

  Blocks& all() { return m_blocks; }
  std::size_t count() const { return m_blocks.size(); }
  std::uint64_t bytes() const { return m_bytes; }

 private:
  void forget(Blocks::iterator block) {
    m_blocks.at(m_drawn.back()).place = block->second.place;
    m_drawn[block->second.place] = m_drawn.back();
    m_drawn.pop_back();
    m_bytes -= block->second.size;
    m_blocks.erase(block);
  }
  static bool reaches(const Blocks::value_type& block, const char* at) {
    return block.first + block.second.size > at;
  }

  Blocks m_blocks;             // by address
  std::vector<char*> m_drawn;  // their addresses, in an order that no address decides
  std::uint64_t m_bytes = 0;   // in all of them
  std::uint32_t m_lastSeed = 0;
};

}  // namespace model

#endif  // TESTS_MODEL_HEAPBLOCKS_H
