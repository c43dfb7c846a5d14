// Commits one fault of memory use, named by the argument, so that a memory checker can find it.
// The fault "none" is a long correct run. MemoryCheckerTest.cpp starts this.

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"

namespace {

constexpr unsigned kSize = 64;

/// One allocator as the faults use it.
struct Allocator {
  virtual ~Allocator() = default;
  virtual char* get() = 0;
  virtual void put(char* p) = 0;
};

struct Fixed : Allocator {
  explicit Fixed(int headers) : pool(kSize, 1, headers) {}
  char* get() override { return static_cast<char*>(pool.alloc()); }
  void put(char* p) override { pool.free(p); }
  QRTFixedMemoryPool pool;
};

struct Arena : Allocator {
  explicit Arena(int bins) : arena(bins, 1u << 24, 0) {}
  char* get() override { return static_cast<char*>(arena.alloc(kSize)); }
  void put(char* p) override { arena.free(p); }
  QRTMemoryArena arena;
};

struct Pool : Allocator {
  Pool() : pool(1u << 24, 65536) {}
  char* get() override { return static_cast<char*>(pool.alloc(kSize)); }
  void put(char* p) override { pool.free(p); }
  QRTMemoryPool pool;
};

std::unique_ptr<Allocator> make(const std::string& kind) {
  if (kind == "fixed") {
    return std::make_unique<Fixed>(1);
  }
  if (kind == "plain") {
    return std::make_unique<Fixed>(0);
  }
  if (kind == "bins") {
    return std::make_unique<Arena>(16);
  }
  if (kind == "large") {
    return std::make_unique<Arena>(0);
  }
  return std::make_unique<Pool>();
}

volatile char g_sink;
std::unique_ptr<Allocator>* g_kept;  // reachable to the end

// What is dropped is dropped several times: an address left over on the stack hides one at most.
constexpr int kDrops = 8;

[[gnu::noinline]] void dropElements() {
  // Not the first element of a chunk: that one's address may be the chunk's.
  char* const first = (*g_kept)->get();
  for (int i = 0; i < kDrops; ++i) {
    std::memset((*g_kept)->get(), 1, kSize);
  }
  (*g_kept)->put(first);
}

[[gnu::noinline]] void dropAllocators(const std::string& kind) {
  for (int i = 0; i < kDrops; ++i) {
    make(kind).release()->get();
  }
}

[[gnu::noinline]] void clearStack() {
  volatile char room[4096];
  for (volatile char& c : room) {
    c = 0;
  }
}

/// Correct use of everything: many chunks, chunks handed on, allocators alive at the end.
void none(const std::string& kind) {
  g_kept = new std::unique_ptr<Allocator>(make(kind));
  Allocator& allocator = **g_kept;
  std::vector<char*> live;
  for (int round = 0; round < 4; ++round) {
    for (int i = 0; i < 6000; ++i) {
      live.push_back(allocator.get());
      std::memset(live.back(), i, kSize);
    }
    for (std::size_t i = 0; i < live.size(); i += 2) {
      g_sink = live[i][kSize - 1];
      allocator.put(live[i]);
      live[i] = nullptr;
    }
    std::erase(live, nullptr);
  }
  for (char* p : live) {
    allocator.put(p);
  }
  if (auto* pool = dynamic_cast<Pool*>(&allocator)) {
    // Larger and smaller in place, and to another place.
    char* const below = pool->get();
    char* p = pool->get();
    for (const unsigned size : {3U, 40U, 8U, kSize, 100U, 5000U, 1U, 4000U, 70000U, 64U}) {
      p = static_cast<char*>(pool->pool.realloc(p, size));
      std::memset(p, 1, size);
    }
    pool->put(below);
    pool->put(p);
  }
  if (auto* fixed = dynamic_cast<Fixed*>(&allocator)) {
    if (void* const chunk = fixed->pool.reclaim(1)) {
      std::memset(chunk, 0, 32760);
      fixed->pool.grow(chunk);
    }
    fixed->pool.trim(5);
    fixed->pool.setDetectMemoryOverWrites(1);
    fixed->pool.free(fixed->pool.alloc());
  }
}

int commit(const std::string& fault, const std::string& kind) {
  if (fault == "none") {
    none(kind);
    return 0;
  }
  if (fault == "leaked-element") {
    g_kept = new std::unique_ptr<Allocator>(make(kind));
    dropElements();
    clearStack();
    return 0;
  }
  if (fault == "leaked-allocator") {
    dropAllocators(kind);
    clearStack();
    return 0;
  }
  std::unique_ptr<Allocator> allocator = make(kind);
  char* const before = allocator->get();
  char* const p = allocator->get();
  char* const after = allocator->get();
  std::memset(p, 1, kSize);
  if (fault == "overflow") {
    // Neighbours stand in a different order in each allocator.
    p[kSize] = 1;
  } else if (fault == "overflow-resized") {
    // Shrunk, then grown in place, and one byte too far.
    QRTMemoryPool& pool = dynamic_cast<Pool&>(*allocator).pool;
    pool.realloc(p, kSize / 4);
    char* const grown = static_cast<char*>(pool.realloc(p, kSize / 2));
    std::memset(grown, 1, kSize / 2);
    grown[kSize / 2] = 1;
  } else if (fault == "use-after-free") {
    allocator->put(p);
    g_sink = p[kSize - 1];
  } else if (fault == "double-free") {
    allocator->put(p);
    allocator->put(before);
    allocator->put(p);
  } else if (fault == "use-after-end") {
    allocator.reset();
    g_sink = p[0];
  } else {
    return 2;
  }
  std::printf("survived %p %p\n", static_cast<void*>(before), static_cast<void*>(after));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s fault allocator\n", argv[0]);
    return 2;
  }
  return commit(argv[1], argv[2]);
}
