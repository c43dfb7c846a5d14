#ifndef BENCH_ALLOC_PEERS_H
#define BENCH_ALLOC_PEERS_H

#include <boost/pool/pool.hpp>
#include <cstddef>
#include <cstdlib>
#include <memory_resource>

#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"

/// @file
/// The allocators that are compared, each with the same two operations. `kFixed` marks those that
/// serve one size only. Those loaded at run time are null when their library is not installed.

struct LoadedHeap {
  void* (*get)(std::size_t) = nullptr;
  void (*put)(void*) = nullptr;
};

/// mimalloc and jemalloc would replace malloc if they were linked; loaded privately they do not.
extern LoadedHeap g_mimalloc;
extern LoadedHeap g_jemalloc;

/// Loads both. Starts the program anew once, with room for jemalloc's thread-local data.
void loadHeaps(char** argv);

struct Malloc {
  static constexpr const char* kName = "malloc";
  static constexpr bool kFixed = false;
  explicit Malloc(std::size_t) {}
  void* get(std::size_t size) { return std::malloc(size); }
  void put(void* p, std::size_t) { std::free(p); }
};

template <LoadedHeap& heap>
struct Loaded {
  static constexpr bool kFixed = false;
  explicit Loaded(std::size_t) {}
  void* get(std::size_t size) { return heap.get(size); }
  void put(void* p, std::size_t) { heap.put(p); }
};

struct Mimalloc : Loaded<g_mimalloc> {
  static constexpr const char* kName = "mimalloc";
  using Loaded::Loaded;
};

struct Jemalloc : Loaded<g_jemalloc> {
  static constexpr const char* kName = "jemalloc";
  using Loaded::Loaded;
};

struct BoostPool {
  static constexpr const char* kName = "Boost.Pool";
  static constexpr bool kFixed = true;
  explicit BoostPool(std::size_t size) : pool(size) {}
  void* get(std::size_t) { return pool.malloc(); }
  void put(void* p, std::size_t) { pool.free(p); }
  boost::pool<> pool;
};

struct PmrPool {
  static constexpr const char* kName = "std::pmr pool";
  static constexpr bool kFixed = false;
  explicit PmrPool(std::size_t) {}
  void* get(std::size_t size) { return pool.allocate(size, 8); }
  void put(void* p, std::size_t size) { pool.deallocate(p, size, 8); }
  std::pmr::unsynchronized_pool_resource pool;
};

struct FixedPool {
  static constexpr const char* kName = "fixed pool";
  static constexpr bool kFixed = true;
  explicit FixedPool(std::size_t size) : pool(static_cast<unsigned>(size), 1, 1) {}
  void* get(std::size_t) { return pool.alloc(); }
  void put(void* p, std::size_t) { pool.free(p); }
  QRTFixedMemoryPool pool;
};

struct PlainPool {
  static constexpr const char* kName = "fixed, no headers";
  static constexpr bool kFixed = true;
  explicit PlainPool(std::size_t size) : pool(static_cast<unsigned>(size), 1, 0) {}
  void* get(std::size_t) { return pool.alloc(); }
  void put(void* p, std::size_t) { pool.free(p); }
  QRTFixedMemoryPool pool;
};

struct Arena {
  static constexpr const char* kName = "arena";
  static constexpr bool kFixed = false;
  explicit Arena(std::size_t) : arena(64, 0xF0000000, 0) {}
  void* get(std::size_t size) { return arena.alloc(static_cast<unsigned>(size)); }
  void put(void* p, std::size_t) { arena.free(p); }
  QRTMemoryArena arena;
};

struct NextFitPool {
  static constexpr const char* kName = "next-fit pool";
  static constexpr bool kFixed = false;
  explicit NextFitPool(std::size_t) : pool(0xF0000000, 1 << 20) {}
  void* get(std::size_t size) { return pool.alloc(static_cast<unsigned>(size)); }
  void put(void* p, std::size_t) { pool.free(p); }
  QRTMemoryPool pool;
};

#endif  // BENCH_ALLOC_PEERS_H
