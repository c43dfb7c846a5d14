#ifndef BENCH_SUITE_ALLOCATORS_PEERS_H
#define BENCH_SUITE_ALLOCATORS_PEERS_H

#include <cstddef>
#include <memory_resource>

#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"
#ifdef SUITE_BOOST_POOL
#include <boost/pool/pool.hpp>
#endif

/// @file
/// The allocators that are compared, each with the same two operations. `kFixed` marks those that
/// serve one size only; all are made for blocks of so many bytes.

/// malloc or its like; `Functions` has its functions as common/Heaps.h tells them.
template <class Functions>
struct Heap {
  static constexpr bool kFixed = false;
  explicit Heap(std::size_t) {}
  void* get(std::size_t size) { return Functions::get(size); }
  void put(void* p, std::size_t) { Functions::put(p); }
};

#ifdef SUITE_BOOST_POOL
struct BoostPool {
  static constexpr bool kFixed = true;
  explicit BoostPool(std::size_t size) : pool(size) {}
  void* get(std::size_t) { return pool.malloc(); }
  void put(void* p, std::size_t) { pool.free(p); }
  boost::pool<> pool;
};
#endif

struct PmrPool {
  static constexpr bool kFixed = false;
  explicit PmrPool(std::size_t) {}
  void* get(std::size_t size) { return pool.allocate(size, 8); }
  void put(void* p, std::size_t size) { pool.deallocate(p, size, 8); }
  std::pmr::unsynchronized_pool_resource pool;
};

template <bool headers>
struct FixedPool {
  static constexpr bool kFixed = true;
  explicit FixedPool(std::size_t size) : pool(static_cast<unsigned>(size), 1, headers ? 1 : 0) {}
  void* get(std::size_t) { return pool.alloc(); }
  void put(void* p, std::size_t) { pool.free(p); }
  QRTFixedMemoryPool pool;
};

struct Arena {
  static constexpr bool kFixed = false;
  explicit Arena(std::size_t) : arena(64, 0xF0000000, 0) {}
  void* get(std::size_t size) { return arena.alloc(static_cast<unsigned>(size)); }
  void put(void* p, std::size_t) { arena.free(p); }
  QRTMemoryArena arena;
};

struct NextFitPool {
  static constexpr bool kFixed = false;
  explicit NextFitPool(std::size_t) : pool(0xF0000000, 1 << 20) {}
  void* get(std::size_t size) { return pool.alloc(static_cast<unsigned>(size)); }
  void put(void* p, std::size_t) { pool.free(p); }
  QRTMemoryPool pool;
};

/// Any of them, with a program that reads each block before it gives it back, as a destructor does.
/// What an allocator reads beside the block is there then.
template <class Allocator>
struct ReadBeforePut : Allocator {
  using Allocator::Allocator;
  void put(void* p, std::size_t size) {
    static_cast<void>(*static_cast<const volatile char*>(p));
    Allocator::put(p, size);
  }
};

#endif  // BENCH_SUITE_ALLOCATORS_PEERS_H
