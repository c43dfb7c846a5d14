#ifndef ALLOCTESTSUPPORT_H
#define ALLOCTESTSUPPORT_H

#include <random>
#include <sstream>
#include <string>

#include "QRTAllocatorChecker.h"
#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"
#include "support/ErrorMatchers.h"
#include "support/TestSeed.h"

constexpr unsigned kChunkBytes = 32760;

/// What the checker of the allocators says of a pool; nothing of a sound one.
template <class Pool>
std::string faultsIn(const Pool& pool) {
  std::ostringstream os;
  QRTAllocatorChecker::check(pool, os);
  return os.str();
}

/// The bytes an arena has obtained and not returned.
inline unsigned usedBy(QRTMemoryArena& arena) {
  unsigned count = 0;
  unsigned used = 0;
  unsigned remaining = 0;
  arena.getPoolStats(count, used, remaining);
  return count == 1 ? used : 0;
}

/// What a fixed pool tells of itself.
struct PoolInfo {
  int chunkBytes = -1;
  int chunks = -1;
  int perChunk = -1;
  int inUse = -1;
};

inline PoolInfo infoOf(QRTFixedMemoryPool& pool) {
  PoolInfo info;
  pool.info(&info.chunkBytes, &info.chunks, &info.perChunk, &info.inUse);
  return info;
}

/// Where the errors of a fixed pool are raised.
inline const TraceEntry kPoolThrows{"QRTFixedMemoryPool.cpp", "", "QRT_THROW"};

/// Random numbers of 32 bits, whatever width the platform gives the standard engine.
class TestRandom {
 public:
  using result_type = unsigned;
  explicit TestRandom(unsigned seed) : m_engine(seed) {}
  static constexpr unsigned min() { return 0; }
  static constexpr unsigned max() { return 0xFFFFFFFF; }
  unsigned operator()() { return static_cast<unsigned>(m_engine()); }

 private:
  std::mt19937 m_engine;
};

/// These read and write bytes that are closed while a memory checker watches: the sanitizer does
/// not look into them.
[[gnu::no_sanitize_address, gnu::noinline]] inline unsigned char peek(const void* p) {
  return *static_cast<const volatile unsigned char*>(p);
}
[[gnu::no_sanitize_address, gnu::noinline]] inline void poke(void* p, unsigned char byte) {
  *static_cast<volatile unsigned char*>(p) = byte;
}
inline void invert(void* p) {
  poke(p, static_cast<unsigned char>(~peek(p)));
}

#endif  // ALLOCTESTSUPPORT_H
