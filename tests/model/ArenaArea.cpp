#include "model/ArenaArea.h"

#include <algorithm>
#include <sstream>

#include "QRTAllocatorChecker.h"

namespace model {

namespace {

constexpr std::uint32_t kChunkBytes = 32760;
constexpr std::uint32_t kHeaderBytes = 8;
constexpr std::uint32_t kBudget = 600000;

}  // namespace

ArenaArea::ArenaArea(ModelWorld& world)
    : ModelArea(world, world.choices.fork()),
      m_bins(static_cast<int>(choices().below(40))),
      m_arena(m_bins, kBudget, 0),
      m_expanded(kBudget) {
  m_arena.setDetectMemoryOverWrites(choices().oneIn(6) ? 1 : 0);
}

void ArenaArea::step() {
  const std::uint32_t choice = choices().below(32);
  if (m_blocks.count() == 0 || choice < 14) {
    for (std::uint32_t i = choices().oneIn(8) ? choices().below(200) : 1; i > 0; --i) {
      alloc();
    }
  } else if (choice < 24) {
    for (std::uint32_t i = choices().oneIn(8) ? choices().below(200) : 1;
         i > 0 && m_blocks.count() != 0; --i) {
      free(m_blocks.any(choices()));
    }
  } else if (choice < 28) {
    realloc();
  } else if (choice < 30) {
    mistake();
  } else if (choice == 30) {
    note("trim");
    const unsigned used = budget().used;
    const unsigned released = m_arena.trim();
    require(released % kChunkBytes == 0 && budget().used == used - released, "released ", released);
  } else if (m_expanded < 2 * kBudget) {
    note("expand");
    m_arena.expand(1000);
    m_expanded += (m_bins != 0 ? kChunkBytes : 1000) + kHeaderBytes;
    require(budget().remaining + std::uint64_t{budget().used} == m_expanded, "another budget");
  }
}

ArenaArea::Budget ArenaArea::budget() {
  Budget budget;
  unsigned count = 0;
  m_arena.getPoolStats(count, budget.used, budget.remaining);
  return budget;
}

std::uint32_t ArenaArea::anySize() {
  return choices().oneIn(4) ? choices().size(60000)
                            : choices().below(8 * static_cast<std::uint32_t>(m_bins) + 9);
}

// Whether the budget has room for a block beside what is there.
bool ArenaArea::payable(std::uint32_t size) {
  return budget().remaining >= (isLarge(size) ? size + kHeaderBytes : kChunkBytes);
}

void ArenaArea::alloc() {
  const std::uint32_t size = anySize();
  note("alloc", size, budget().remaining);
  void* block = nullptr;
  const Attempt tried = attempt([&] { block = m_arena.alloc(size); });
  require(tried.well() || tried.ended == Ended::kOutOfMemory, "alloc raised ", tried.text);
  require(block == nullptr || size != 0, "a block of nothing");
  require(block != nullptr || size == 0 || tried.memoryFaulted || !payable(size), "no block");
  if (block != nullptr) {
    m_blocks.add(m_world, block, size);
    const std::uint32_t room = isLarge(size) ? size : (size + 7) / 8 * 8;
    require(QRTFixedMemoryPool::allocSize(block) == room, "another size");
  }
}

void ArenaArea::free(HeapBlocks::Blocks::iterator block) {
  note("free", block->second.size);
  void* const address = block->first;
  m_blocks.remove(m_world, block);
  require(attempt([&] { m_arena.free(address); }).well(), "free raised an error");
}

void ArenaArea::realloc() {
  const auto block = m_blocks.any(choices());
  const std::uint32_t size =
      choices().oneIn(2) ? anySize() : choices().below(block->second.size + 1);
  note("realloc", block->second.size, size);
  char* const address = block->first;
  if (size == 0) {
    m_blocks.remove(m_world, block);
  }
  void* moved = nullptr;
  const Attempt tried = attempt([&] { moved = m_arena.realloc(address, size); });
  if (size == 0) {
    require(tried.well() && moved == nullptr, "a block of nothing");
  } else if (moved == nullptr) {
    require(tried.well() || tried.ended == Ended::kOutOfMemory, "realloc raised ", tried.text);
    require((tried.memoryFaulted || !payable(size)) && size > block->second.size, "no block");
  } else {
    m_blocks.move(m_world, block, moved, size);
  }
}

void ArenaArea::mistake() {
  const auto block = m_blocks.any(choices());
  void* const address = block->first;
  const bool twice = !isLarge(block->second.size) && choices().oneIn(2);
  note("mistake", twice ? 1 : 0);
  const Attempt tried = attempt(
      [&] {
        if (twice) {
          m_blocks.remove(m_world, block);
          m_arena.free(address);
          m_arena.free(address);
        } else {
          m_arena.free(nullptr);
        }
      },
      May::kRaise);
  require(tried.ended == Ended::kAssert, "a mistake was not refused");
}

void ArenaArea::verify() {
  note("verify", m_blocks.count());
  std::uint64_t handedOut = 0;
  for (const auto& [address, block] : m_blocks.all()) {
    handedOut += QRTFixedMemoryPool::allocSize(address);
    require(QRTFixedMemoryPool::allocSize(address) >= block.size, "a block is too small");
  }
  require(m_arena.getBytesHandedOut() == handedOut, "another sum");
  require(budget().remaining + std::uint64_t{budget().used} == m_expanded, "another budget");
  m_arena.checkForMemoryOverWrite();
  std::ostringstream os;
  require(QRTAllocatorChecker::check(m_arena, os) == 0, os.str());
  m_blocks.verify(m_world);
}

void ArenaArea::clear() {
  while (m_blocks.count() != 0) {
    free(m_blocks.any(choices()));
  }
  m_arena.trim();
  require(budget().used == 0, "free, the arena is charged for ", budget().used, " bytes");
}

}  // namespace model
