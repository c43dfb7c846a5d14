#include "model/MemoryPoolArea.h"

#include <sstream>
#include <vector>

#include "QRTAllocatorChecker.h"

namespace model {

namespace {

constexpr std::uint64_t kMostBytes = 1U << 20;
constexpr std::uint32_t kMostBlockBytes = 20000;

std::uint32_t rounded(std::uint32_t size) {
  return (size + 7) / 8 * 8;
}

}  // namespace

MemoryPoolArea::MemoryPoolArea(ModelWorld& world)
    : ModelArea(world, world.choices.fork()),
      m_increment(1024 + choices().size(65536)),
      m_pool(choices().oneIn(4) ? 100000 : 1U << 30U, m_increment) {}

void MemoryPoolArea::step() {
  const std::uint32_t choice = choices().below(32);
  if (m_blocks.count() == 0 || (choice < 13 && m_blocks.bytes() < kMostBytes)) {
    alloc();
  } else if (choice < 23) {
    free(m_blocks.any(choices()));
  } else if (choice < 29) {
    realloc();
  } else if (choice < 31) {
    mistake();
  } else {
    const std::uint32_t before = remaining();
    note("expand");
    m_pool.expand(1000);
    require(remaining() == before + m_increment, "another allowance");
  }
}

std::uint32_t MemoryPoolArea::remaining() {
  unsigned blocks = 0;
  unsigned increment = 0;
  unsigned remaining = 0;
  m_pool.getStats(blocks, increment, remaining);
  return remaining;
}

void MemoryPoolArea::alloc() {
  const std::uint32_t size = choices().size(kMostBlockBytes);
  note("alloc", size, remaining());
  void* block = nullptr;
  const Attempt tried = attempt([&] { block = m_pool.alloc(size); });
  require(tried.well(), "alloc raised ", tried.text);
  require(block != nullptr || remaining() == 0 || tried.memoryFaulted, "no block");
  if (block != nullptr) {
    m_blocks.add(m_world, block, rounded(size));
    require(m_pool.allocSize(block) == rounded(size), "another size");
  }
}

void MemoryPoolArea::free(HeapBlocks::Blocks::iterator block) {
  note("free", block->second.size);
  void* const address = block->first;
  m_blocks.remove(m_world, block);
  require(attempt([&] { m_pool.free(address); }).well(), "free raised an error");
}

void MemoryPoolArea::realloc() {
  const auto block = m_blocks.any(choices());
  const std::uint32_t size = choices().oneIn(2) ? block->second.size + choices().size(200)
                                                : choices().below(block->second.size + 1);
  note("realloc", block->second.size, size);
  char* const address = block->first;
  if (size == 0) {
    m_blocks.remove(m_world, block);
  }
  void* moved = nullptr;
  const Attempt tried = attempt([&] { moved = m_pool.realloc(address, size); });
  require(tried.well(), "realloc raised ", tried.text);
  if (size == 0) {
    require(moved == nullptr, "a block of nothing");
  } else if (moved == nullptr) {
    require((remaining() == 0 || tried.memoryFaulted) && rounded(size) > block->second.size,
            "no block");
  } else {
    require(moved == address || rounded(size) > block->second.size, "it moved to shrink");
    m_blocks.move(m_world, block, moved, rounded(size));
  }
}

void MemoryPoolArea::mistake() {
  const std::uint32_t kind = choices().below(4);
  note("mistake", kind);
  const auto block = m_blocks.any(choices());
  void* const address = block->first;
  std::uint64_t elsewhere[2] = {0, std::uint64_t{2} << 32U};
  const Attempt tried = attempt(
      [&] {
        if (kind == 0) {
          m_pool.free(nullptr);
        } else if (kind == 1) {
          m_pool.free(elsewhere + 1);
        } else {
          m_blocks.remove(m_world, block);
          m_pool.free(address);
          kind == 2 ? m_pool.free(address) : static_cast<void>(m_pool.realloc(address, 8));
        }
      },
      May::kRaise);
  require(tried.ended == Ended::kAssert, "a mistake was not refused");
}

void MemoryPoolArea::verify() {
  note("verify", m_blocks.count());
  std::ostringstream os;
  require(QRTAllocatorChecker::check(m_pool, os) == 0, os.str());
  m_blocks.verify(m_world);
}

void MemoryPoolArea::clear() {
  while (m_blocks.count() != 0) {
    free(m_blocks.any(choices()));
  }
}

}  // namespace model
