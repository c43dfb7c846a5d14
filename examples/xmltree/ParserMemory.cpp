#include "ParserMemory.h"

#include <cstdlib>
#include <new>

namespace example::parser_memory {

namespace {

// Stands before every block. As large as the strictest alignment, so that the block keeps it.
struct alignas(std::max_align_t) BlockHeader {
  std::size_t size;  // bytes of the block, this header included
};

std::size_t g_limit = kDefaultLimit;  // bytes that may be in use
std::size_t g_used = 0;               // bytes in use, headers included
bool g_refused = false;               // whether an allocation was refused

/// Whether `size` more bytes fit; notes it when they do not.
bool fits(std::size_t size) {
  const bool fit = g_used <= g_limit && size <= g_limit - g_used;
  g_refused = g_refused || !fit;
  return fit;
}

BlockHeader* headerOf(void* block) {
  return static_cast<BlockHeader*>(block) - 1;
}

}  // namespace

void setLimit(std::size_t bytes) {
  g_limit = bytes;
}

std::size_t limit() {
  return g_limit;
}

bool takeRefusal() {
  const bool refused = g_refused;
  g_refused = false;
  return refused;
}

void* allocate(std::size_t size) {
  if (size > g_limit || !fits(size + sizeof(BlockHeader))) {
    g_refused = true;
    return nullptr;
  }
  const std::size_t whole = size + sizeof(BlockHeader);
  void* const memory = std::malloc(whole);
  if (memory == nullptr) {
    g_refused = true;
    return nullptr;
  }
  g_used += whole;
  auto* const header = new (memory) BlockHeader{whole};
  return header + 1;
}

void* reallocate(void* block, std::size_t size) {
  if (block == nullptr) {
    return allocate(size);
  }
  BlockHeader* const header = headerOf(block);
  const std::size_t before = header->size;
  const std::size_t whole = size + sizeof(BlockHeader);
  if (size > g_limit || (whole > before && !fits(whole - before))) {
    g_refused = true;
    return nullptr;
  }
  void* const memory = std::realloc(header, whole);
  if (memory == nullptr) {
    g_refused = true;
    return nullptr;
  }
  g_used = g_used - before + whole;
  auto* const moved = new (memory) BlockHeader{whole};
  return moved + 1;
}

void release(void* block) {
  if (block != nullptr) {
    BlockHeader* const header = headerOf(block);
    g_used -= header->size;
    std::free(header);
  }
}

}  // namespace example::parser_memory
