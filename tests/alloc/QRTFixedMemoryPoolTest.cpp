#include "QRTFixedMemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <limits>
#include <memory>
#include <new>
#include <numeric>
#include <set>
#include <vector>

#include "AllocTestSupport.h"
#include "FailingHeap.h"
#include "support/FailingNew.h"

namespace {

constexpr char kTooLargeText[] =
    "QRT_ASSERT_NAMED(m_esize <= Chunk::size, \"Specified size for QRTFixedMemoryPool is too "
    "large.\");";

TEST(QRTFixedMemoryPool, LaysElementsOutByTheDocumentedFigures) {
  struct Case {
    unsigned size;
    int headers;
    unsigned stride;
    int perChunk;
  };
  const Case cases[] = {
      {0, 0, 8, 4094},      {0, 1, 16, 2047},     {1, 0, 8, 4094},      {20, 1, 32, 1023},
      {100, 0, 104, 314},   {100, 1, 112, 292},   {32752, 0, 32752, 1}, {32744, 1, 32752, 1},
      {16368, 1, 16376, 2}, {16369, 1, 16384, 1},
  };
  for (const Case& c : cases) {
    QRTFixedMemoryPool pool(c.size, 1, c.headers);
    EXPECT_EQ(infoOf(pool).chunks, 0);
    std::vector<char*> elements;
    for (int i = 0; i < c.perChunk; ++i) {
      elements.push_back(static_cast<char*>(pool.alloc()));
      ASSERT_EQ(elements[static_cast<std::size_t>(i)] - elements[0],
                static_cast<std::ptrdiff_t>(c.stride) * i)
          << c.size;
    }
    const PoolInfo info = infoOf(pool);
    EXPECT_EQ(info.chunkBytes, 32760);
    EXPECT_EQ(info.chunks, 1) << c.size;
    EXPECT_EQ(info.perChunk, c.perChunk);
    EXPECT_EQ(info.inUse, c.headers);
    if (c.headers != 0) {
      EXPECT_EQ(QRTFixedMemoryPool::allocSize(elements.back()), c.size != 0 ? c.size : 8);
      const char* const header = elements.back() - 8;
      EXPECT_EQ(peek(header + 4) + peek(header + 5) * 256, elements.back() - elements.front());
      EXPECT_EQ(peek(header + 6), 1);
      EXPECT_EQ(peek(header + 7), 0x0E);
    }
    ASSERT_NE(pool.alloc(), nullptr);
    EXPECT_EQ(infoOf(pool).chunks, 2);
  }
}

TEST(QRTFixedMemoryPool, RefusesElementsThatDoNotFitAChunk) {
  const struct {
    unsigned size;
    int headers;
  } cases[] = {{32745, 1}, {32753, 0}, {0xFFFFFFFF, 0}, {0xFFFFFFFF, 1}, {0xFFFFFFF8, 1}};
  for (const auto& c : cases) {
    const auto error = expectRaised<QRTAssertError>(
        [&] { const QRTFixedMemoryPool pool(c.size, 1, c.headers); }, std::to_string(c.size));
    EXPECT_EQ(textOf(error), kTooLargeText) << c.size;
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kPoolThrows});
  }
}

TEST(QRTFixedMemoryPool, GrowsByItselfOnlyWhenAskedTo) {
  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool pool(16000, 2, headers);  // of growable only the lowest bit counts
    EXPECT_EQ(pool.alloc(), nullptr);
    pool.grow(nullptr);
    EXPECT_NE(pool.alloc(), nullptr);
    EXPECT_NE(pool.alloc(), nullptr);
    EXPECT_EQ(pool.alloc(), nullptr);
    EXPECT_EQ(infoOf(pool).chunks, 1);
  }
}

TEST(QRTFixedMemoryPool, AGrowWithoutHeadersKeepsTheElementsThatWereFree) {
  QRTFixedMemoryPool pool(8000, 0, 0);
  pool.grow(nullptr);
  pool.grow(nullptr);
  std::set<void*> elements;
  while (void* const p = pool.alloc()) {
    elements.insert(p);
  }
  EXPECT_EQ(elements.size(), 8u);
}

TEST(QRTFixedMemoryPool, AChunkThatCannotBeHadLeavesThePoolAsItWas) {
  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool pool(100, 1, headers);
    const auto error = expectRaised<QRTOutOfMemoryError>([&] {
      const FailingNew fails(1, FailingNew::eFromThenOn);
      pool.alloc();
    });
    EXPECT_EQ(error.getText(), nullptr);
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kPoolThrows});
    EXPECT_EQ(infoOf(pool).chunks, 0);
    EXPECT_NE(pool.alloc(), nullptr);
  }
}

// One element a chunk, so that every growth is one chunk. From each number of chunks on, each
// request of a growth fails in turn: the chunk itself, and what the pool asks for beside it, which
// it can do without.
TEST(QRTFixedMemoryPool, AFailedGrowthChangesNothingWhicheverRequestFails) {
  std::size_t without = 0;
  std::vector<std::size_t> starts(80);
  std::iota(starts.begin(), starts.end(), std::size_t{0});
  starts.insert(starts.end(), {4094, 4095, 4096, 4097});
  for (const int headers : {0, 1}) {
    for (const std::size_t start : starts) {
      QRTFixedMemoryPool pool(32744, 1, headers);
      std::vector<void*> elements;
      for (std::size_t i = 0; i < start; ++i) {
        elements.push_back(pool.alloc());
      }
      void* p = nullptr;
      for (std::size_t nth = 1; p == nullptr; ++nth) {
        bool raised = false;
        std::size_t requests = 0;
        {
          const FailingHeap fails(nth);
          try {
            p = pool.alloc();
          } catch (const QRTOutOfMemoryError&) {
            raised = true;
          }
          requests = fails.count();
        }
        ASSERT_EQ(raised, p == nullptr) << start;
        ASSERT_EQ(infoOf(pool).chunks, static_cast<int>(start + (p != nullptr ? 1 : 0)));
        without += p != nullptr && requests >= nth ? 1 : 0;
      }
      elements.push_back(p);
      for (int more = 0; more < 2; ++more) {
        // So that the newest chunk is not the one that is tried first.
        pool.free(elements[0]);
        ASSERT_EQ(pool.alloc(), elements[0]);
        // With headers the newest chunk's element comes first, without the one that was freed last.
        std::vector<void*> freed;
        for (std::size_t i = 0; i < elements.size(); ++i) {
          freed.push_back(elements[i * 7919 % elements.size()]);
          pool.free(freed.back());
        }
        const std::vector<void*>& last = headers != 0 ? elements : freed;
        for (std::size_t i = last.size(); i-- > 0;) {
          ASSERT_EQ(pool.alloc(), last[i]) << start << ", " << i;
        }
        elements.push_back(pool.alloc());
        ASSERT_EQ(infoOf(pool).chunks, static_cast<int>(elements.size()));
      }
    }
  }
  if (FailingHeap::hasMalloc()) {
    EXPECT_GE(without, 5u) << "requests for something else than a chunk";
  }
}

TEST(QRTFixedMemoryPool, AGivenChunkIsAllThatGrowNeeds) {
  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool pool(30000, 0, headers);
    std::vector<char*> chunks;
    for (int i = 0; i < 100; ++i) {
      char* const chunk = static_cast<char*>(::operator new(kChunkBytes));
      {
        const FailingHeap fails(1, FailingHeap::eFromThenOn);
        ASSERT_NO_THROW(pool.grow(chunk)) << i;
      }
      chunks.push_back(chunk);
      for (const std::size_t given : {std::size_t{0}, chunks.size() / 2, chunks.size() - 1}) {
        expectRaised<QRTAssertError>([&] { pool.grow(chunks[given]); }, "twice");
      }
    }
    EXPECT_EQ(infoOf(pool).chunks, 100);
    for (std::size_t i = chunks.size(); i-- > 0;) {
      EXPECT_EQ(pool.alloc(), chunks[i] + 8 * headers) << "the newest chunk comes first";
    }
    EXPECT_EQ(pool.alloc(), nullptr);
  }
}

TEST(QRTFixedMemoryPool, ChunksMayLieAsCloseTogetherAsTheyFit) {
  const std::size_t count = 12;
  std::vector<std::uint64_t> room(count * kChunkBytes / 8);
  QRTFixedMemoryPool pool(56, 0, 1);
  for (std::size_t i = 0; i < count; ++i) {
    pool.grow(room.data() + i * kChunkBytes / 8);
  }
  std::vector<void*> elements;
  while (void* const p = pool.alloc()) {
    elements.push_back(p);
  }
  EXPECT_EQ(elements.size(), count * 511);
  for (void* p : elements) {
    pool.free(p);
  }
  for (std::size_t i = count; i-- > 0;) {
    EXPECT_EQ(pool.reclaim(0), room.data() + i * kChunkBytes / 8);
  }
}

// The addresses of these chunks differ in high bits alone, so that they want the same places of a
// table of addresses.
TEST(QRTFixedMemoryPool, ChunksMayLieAnyDistanceApart) {
  constexpr std::size_t kCount = 8;
  constexpr std::size_t kApart = std::size_t{1} << 22;
  const std::unique_ptr<std::uint64_t[]> room(new std::uint64_t[kCount * kApart / 8]);
  QRTFixedMemoryPool pool(56, 0, 1);
  for (std::size_t i = 0; i < kCount; ++i) {
    pool.grow(room.get() + i * kApart / 8);
  }
  std::vector<void*> elements;
  while (void* const p = pool.alloc()) {
    elements.push_back(p);
  }
  EXPECT_EQ(elements.size(), kCount * 511);
  for (std::size_t i = 0; i < elements.size(); ++i) {
    pool.free(elements[i * 11 % elements.size()]);
  }
  expectRaised<QRTAssertError>([&] { pool.free(elements[9]); }, "freed twice");
  expectRaised<QRTAssertError>([&] { pool.free(room.get() + kApart / 16); }, "between two chunks");
  for (std::size_t i = kCount; i-- > 0;) {
    EXPECT_EQ(pool.reclaim(0), room.get() + i * kApart / 8);
  }
}

// From some size on free elements may carry hints, not all of them written: nothing may depend on
// them.
TEST(QRTFixedMemoryPool, ALargePoolWithoutHeadersHandsOutWhatWasFreedLast) {
  TestRandom random(testSeed());
  for (const unsigned size : {8u, 64u}) {
    QRTFixedMemoryPool pool(size, 1, 0);
    std::vector<void*> elements;
    while (infoOf(pool).chunks < 70) {
      for (int i = 0; i < 500; ++i) {
        elements.push_back(pool.alloc());
      }
    }
    for (void*& p : elements) {
      std::swap(p, elements[random() % elements.size()]);
    }
    for (const std::size_t run : {std::size_t{3}, std::size_t{100}, elements.size()}) {
      for (std::size_t i = 0; i < run; ++i) {
        std::memset(elements[i], 0xEE, size);
        pool.free(elements[i]);
      }
      for (std::size_t i = run; i-- > 0;) {
        ASSERT_EQ(pool.alloc(), elements[i]) << size << " " << run;
      }
    }
  }
}

TEST(QRTFixedMemoryPool, ReclaimAndTrimTakeWhollyFreeChunksNewestFirst) {
  QRTFixedMemoryPool pool(30000, 0, 1);
  std::vector<char*> chunks;  // oldest first
  for (int i = 0; i < 5; ++i) {
    pool.grow(nullptr);
    chunks.push_back(static_cast<char*>(pool.alloc()) - 8);
  }
  for (char* chunk : chunks) {
    pool.free(chunk + 8);
  }
  EXPECT_EQ(pool.reclaim(5), nullptr);
  EXPECT_EQ(pool.reclaim(-1), nullptr);
  EXPECT_EQ(pool.reclaim(std::numeric_limits<int>::min()), nullptr);
  EXPECT_EQ(pool.trim(-1), 0u);
  void* const second = pool.reclaim(1);
  EXPECT_EQ(second, chunks[3]);
  pool.grow(second);
  EXPECT_EQ(pool.alloc(), chunks[3] + 8) << "the chunk added last is current";
  EXPECT_EQ(infoOf(pool).inUse, 1);
  EXPECT_EQ(pool.trim(2), 2 * kChunkBytes);
  EXPECT_EQ(infoOf(pool).chunks, 3);
  EXPECT_EQ(pool.trim(0), 2 * kChunkBytes);
  EXPECT_EQ(infoOf(pool).chunks, 1);
  pool.free(chunks[3] + 8);
  EXPECT_EQ(pool.trim(0), kChunkBytes);
  EXPECT_EQ(pool.alloc(), nullptr);

  QRTFixedMemoryPool plain(30000, 0, 0);
  plain.grow(nullptr);
  EXPECT_EQ(plain.reclaim(0), nullptr);
  EXPECT_EQ(plain.trim(0), 0u);
  EXPECT_EQ(infoOf(plain).chunks, 1);
}

TEST(QRTFixedMemoryPool, InfoCountsChunksInUseOnlyTogetherWithChunks) {
  QRTFixedMemoryPool pool(8, 1, 1);
  void* const p = pool.alloc();
  EXPECT_EQ(infoOf(pool).perChunk, 2047);
  EXPECT_EQ(infoOf(pool).inUse, 1);
  int inUse = -1;
  pool.info(nullptr, nullptr, nullptr, &inUse);
  EXPECT_EQ(inUse, 0);
  pool.info(nullptr, nullptr, nullptr, nullptr);
  pool.free(p);
  EXPECT_EQ(infoOf(pool).inUse, 0);
}

/// The documented choice of elements, written down independently: chunks newest first, each with a
/// stack of free slots, and a current chunk.
class FixedPoolModel {
 public:
  struct Chunk {
    char* base;
    std::vector<unsigned> free;  // top of the stack last
    unsigned total;
  };

  FixedPoolModel(unsigned stride, unsigned perChunk) : m_stride(stride), m_perChunk(perChunk) {}

  /// @return the address expected, or null when the pool must grow
  char* alloc() {
    if (m_current == nullptr || find(m_current)->free.empty()) {
      m_current = nullptr;
      const auto chunk = std::find_if(m_chunks.begin(), m_chunks.end(),
                                      [](const Chunk& c) { return !c.free.empty(); });
      if (chunk == m_chunks.end()) {
        return nullptr;
      }
      if (chunk->free.size() == 1) {
        return take(*chunk);
      }
      m_current = chunk->base;
    }
    return take(*find(m_current));
  }

  void grow(char* base) {
    Chunk chunk{base, {}, m_perChunk};
    for (unsigned slot = m_perChunk; slot-- > 0;) {
      chunk.free.push_back(slot);
    }
    m_chunks.insert(m_chunks.begin(), chunk);
    m_current = base;
  }

  void free(char* p) {
    const auto chunk = std::find_if(m_chunks.begin(), m_chunks.end(), [p](const Chunk& c) {
      return p > c.base && p < c.base + kChunkBytes;
    });
    chunk->free.push_back(static_cast<unsigned>(p - 8 - chunk->base) / m_stride);
  }

  char* reclaim(int keep) {
    for (auto chunk = m_chunks.begin(); chunk != m_chunks.end(); ++chunk) {
      if (chunk->free.size() == m_perChunk && keep-- == 0) {
        char* const base = chunk->base;
        m_current = m_current == base ? nullptr : m_current;
        m_chunks.erase(chunk);
        return base;
      }
    }
    return nullptr;
  }

  std::size_t chunks() const { return m_chunks.size(); }

 private:
  char* take(Chunk& chunk) {
    const unsigned slot = chunk.free.back();
    chunk.free.pop_back();
    return chunk.base + slot * m_stride + 8;
  }
  std::vector<Chunk>::iterator find(const char* base) {
    return std::find_if(m_chunks.begin(), m_chunks.end(),
                        [base](const Chunk& c) { return c.base == base; });
  }

  std::vector<Chunk> m_chunks;
  char* m_current = nullptr;
  unsigned m_stride, m_perChunk;
};

TEST(QRTFixedMemoryPool, ChoosesElementsLikeTheModelWithFewAndWithManyChunks) {
  TestRandom random(testSeed());
  const struct {
    unsigned size;
    std::size_t most;
  } shapes[] = {{8, 9000}, {1000, 200}, {8000, 700}, {30000, 150}};
  for (const auto& shape : shapes) {
    QRTFixedMemoryPool pool(shape.size, 1, 1);
    const unsigned stride = (shape.size + 8 + 7) / 8 * 8;
    FixedPoolModel model(stride, 32752 / stride);
    std::vector<char*> live;
    std::vector<char*> spare;
    std::size_t mostChunks = 0;
    for (int step = 0; step < 40000; ++step) {
      const bool filling = step / 4000 % 2 == 0;
      if (step % 100 == 0) {
        // Detection takes other paths to the same elements.
        pool.setDetectMemoryOverWrites(random() % 40 == 0 ? 1 : 0);
      }
      const unsigned dice = random() % 1000;
      if (dice < 3) {
        const int keep = static_cast<int>(random() % 4);
        char* const expected = model.reclaim(keep);
        char* const chunk = static_cast<char*>(pool.reclaim(keep));
        ASSERT_EQ(chunk, expected) << "step " << step;
        if (chunk != nullptr) {
          spare.push_back(chunk);
        }
      } else if (dice < 5 && !spare.empty()) {
        model.grow(spare.back());
        pool.grow(spare.back());
        spare.pop_back();
      } else if (dice < 6) {
        unsigned bytes = 0;
        const unsigned limit = random() % 3 + 1;
        for (unsigned i = 0; i < limit && model.reclaim(0) != nullptr; ++i) {
          bytes += kChunkBytes;
        }
        ASSERT_EQ(pool.trim(static_cast<int>(limit)), bytes) << "step " << step;
      } else if (live.empty() || (live.size() < shape.most && dice < (filling ? 650u : 350u))) {
        char* expected = model.alloc();
        char* const p = static_cast<char*>(pool.alloc());
        ASSERT_NE(p, nullptr);
        if (expected == nullptr) {
          model.grow(p - 8);
          expected = model.alloc();
        }
        ASSERT_EQ(p, expected) << "step " << step;
        live.push_back(p);
      } else {
        std::swap(live[random() % live.size()], live.back());
        model.free(live.back());
        pool.free(live.back());
        live.pop_back();
      }
      mostChunks = std::max(mostChunks, model.chunks());
      if (step % 500 == 0) {
        ASSERT_EQ(faultsIn(pool), "") << "step " << step;
        ASSERT_EQ(static_cast<std::size_t>(infoOf(pool).chunks), model.chunks()) << step;
      }
    }
    EXPECT_EQ(static_cast<std::size_t>(infoOf(pool).chunks), model.chunks());
    std::cout << "  size " << shape.size << ": up to " << mostChunks << " chunks\n";
    for (char* chunk : spare) {
      ::operator delete(chunk);
    }
  }
}

// 4,096 chunks share one word of the index; this passes that border in both directions.
TEST(QRTFixedMemoryPool, FindsTheNewestFreeElementAmongThousandsOfChunks) {
  QRTFixedMemoryPool pool(32744, 1, 1);
  std::vector<void*> elements;
  for (int i = 0; i < 4200; ++i) {
    elements.push_back(pool.alloc());
  }
  for (const std::size_t i : {std::size_t{0}, std::size_t{63}, std::size_t{64}, std::size_t{4095},
                              std::size_t{4096}, std::size_t{4199}}) {
    pool.free(elements[i]);
  }
  for (const std::size_t i : {std::size_t{4199}, std::size_t{4096}, std::size_t{4095},
                              std::size_t{64}, std::size_t{63}, std::size_t{0}}) {
    EXPECT_EQ(pool.alloc(), elements[i]);
  }
  for (void* p : elements) {
    pool.free(p);
  }
  EXPECT_EQ(pool.trim(0), 4200 * kChunkBytes);
}

TEST(QRTFixedMemoryPool, ResizesInPlaceOrNotAtAll) {
  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool pool(20, 1, headers);
    char* const p = static_cast<char*>(pool.realloc(nullptr, 20));
    ASSERT_NE(p, nullptr);
    std::memset(p, 'p', 20);
    EXPECT_EQ(pool.realloc(p, 1), p);
    EXPECT_EQ(pool.realloc(p, 24), p) << "the slot is larger than the element";
    EXPECT_EQ(pool.realloc(p, 25), nullptr);
    EXPECT_EQ(pool.realloc(p, 0xFFFFFFFF), nullptr);
    EXPECT_EQ(pool.realloc(nullptr, 25), nullptr);
    EXPECT_EQ(std::count(p, p + 20, 'p'), 20);
    EXPECT_EQ(pool.realloc(p, 0), nullptr);
    EXPECT_EQ(pool.alloc(), p);
    if (headers != 0) {
      pool.free(p);
      expectRaised<QRTAssertError>([&] { pool.realloc(p, 8); }, "free");
      QRTFixedMemoryPool other(20, 1, 1);
      void* const foreign = other.alloc();
      expectRaised<QRTAssertError>([&] { pool.realloc(foreign, 8); });
    }
  }
}

}  // namespace
