#include "QRTMemoryArena.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "AllocTestSupport.h"
#include "FailingHeap.h"
#include "support/FailingNew.h"

namespace {

unsigned leftIn(QRTMemoryArena& arena) {
  unsigned count = 0;
  unsigned used = 0;
  unsigned remaining = 0;
  arena.getPoolStats(count, used, remaining);
  return remaining;
}

int chunksOf(QRTMemoryArena& arena, int bin) {
  int chunks = -1;
  arena.getPoolStats(bin, nullptr, &chunks, nullptr);
  return chunks;
}

std::string dumpOf(QRTMemoryArena& arena) {
  std::ostringstream os;
  arena.dumpStats(os);
  return os.str();
}

bool isLarge(const QRTMemoryArena& arena, unsigned size) {
  return size > 8 * static_cast<unsigned>(arena.getNumVarBins());
}

TEST(QRTMemoryArena, DumpsTheStatisticsByteForByte) {
  QRTMemoryArena fresh(0, 0, 0);
  EXPECT_EQ(dumpOf(fresh),
            "\nPool Statistics - Max Allowed: 262144, Memory used: 0, Pool remaining: 262144, "
            "Expansions: 0, Reclaims: 0\n\n"
            "Arena Statistics - Memory Bins: 0, Non Bin Allocs: 0 (0/0)\n\n");

  QRTMemoryArena arena(3, 0, 0);
  arena.alloc(5);
  void* const large = arena.alloc(100);
  EXPECT_EQ(dumpOf(arena),
            "\n"
            "Pool Statistics - Max Allowed: 262144, Memory used: 32868, Pool remaining: 229276, "
            "Expansions: 0, Reclaims: 0\n"
            "\n"
            "Arena Statistics - Memory Bins: 3, Non Bin Allocs: 1 (108/108)\n"
            "  Bin [1] - Size: 8\n"
            "     Chunk Size: 32760, Chunk Count: 1, Chunks InUse: 1, Pool Size: 32760, "
            "Elements/Chunk: 2047\n"
            "  Bin [2] - Size: 16\n"
            "     Chunk Size: 32760, Chunk Count: 0, Chunks InUse: 0, Pool Size: 0, "
            "Elements/Chunk: 1364\n"
            "  Bin [3] - Size: 24\n"
            "     Chunk Size: 32760, Chunk Count: 0, Chunks InUse: 0, Pool Size: 0, "
            "Elements/Chunk: 1023\n"
            "\n");
  arena.free(large);
  EXPECT_EQ(usedBy(arena), kChunkBytes);
  EXPECT_NE(dumpOf(arena).find("Non Bin Allocs: 1 (108/108)"), std::string::npos);
}

TEST(QRTMemoryArena, DumpsDecimalNumbersAndEachBinBeforeItsFigures) {
  QRTMemoryArena arena(3, 0, 0);
  arena.alloc(5);
  char* const p = static_cast<char*>(arena.alloc(16));
  std::ostringstream os;
  os << std::hex << std::showbase << std::uppercase;
  arena.dumpStats(os);
  EXPECT_EQ(os.str(), dumpOf(arena));
  os.str("");
  os << 255;
  EXPECT_EQ(os.str(), "0XFF") << "the stream's format is the caller's again";
  arena.free(p);
  invert(p - 1);
  os.str("");
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { arena.dumpStats(os); })),
            "QRT_ASSERT(rh->m_filler3 == 0xE);");
  EXPECT_THAT(os.str(), testing::EndsWith("  Bin [2] - Size: 16\n"));
  invert(p - 1);
}

TEST(QRTMemoryArena, BinsAndLargeBlocksMeetAtTheLastBinsSize) {
  QRTMemoryArena arena(4, 0, 0);
  EXPECT_EQ(arena.getNumVarBins(), 4);
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(arena.alloc(32)), 32u);
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(arena.alloc(33)), 33u);
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(arena.alloc(25)), 32u);
  EXPECT_EQ(usedBy(arena), kChunkBytes + 41);
  EXPECT_EQ(arena.size2Bin(8), 0);
  EXPECT_EQ(arena.size2Bin(9), 1);
  EXPECT_EQ(arena.size2Bin(0), 536870911);
  EXPECT_EQ(arena.bin2Size(0), 8u);
  EXPECT_EQ(arena.bin2Size(3), 32u);
  for (const int bin : {-1, 4, std::numeric_limits<int>::min()}) {
    int figures[3] = {7, 7, 7};
    arena.getPoolStats(bin, &figures[0], &figures[1], &figures[2]);
    EXPECT_THAT(figures, testing::Each(0)) << bin;
    arena.getPoolStats(bin, nullptr, nullptr, nullptr);
  }
}

TEST(QRTMemoryArena, WithoutBinsEverythingIsLarge) {
  QRTMemoryArena arena(0, 1, 0);
  EXPECT_EQ(arena.alloc(1), nullptr);
  arena.expand(8);
  EXPECT_EQ(leftIn(arena), 17u);
  void* const p = arena.alloc(9);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(leftIn(arena), 0u);
  arena.free(p);
  EXPECT_EQ(leftIn(arena), 17u);
}

TEST(QRTMemoryArena, RefusesWhatTheBudgetCannotPayAndStaysUsable) {
  QRTMemoryArena arena(2, 1, 0);
  EXPECT_EQ(arena.alloc(0), nullptr);
  EXPECT_EQ(arena.alloc(8), nullptr);
  for (const unsigned absurd : {0x7FFFFFFFu, 0xFFFFFFF7u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(arena.alloc(absurd), nullptr) << absurd;
  }
  EXPECT_EQ(usedBy(arena), 0u);
  arena.expand(10);
  EXPECT_EQ(leftIn(arena), 1u + 32768);
  EXPECT_NE(arena.alloc(8), nullptr);
  EXPECT_EQ(leftIn(arena), 9u);
  arena.expand(0xFFFFFFFF);
  EXPECT_EQ(usedBy(arena), kChunkBytes) << "the budget stops at its limit";
}

TEST(QRTMemoryArena, ASpentBudgetMovesFreeChunksBetweenBins) {
  QRTMemoryArena arena(2, 0, 0);
  std::vector<void*> eights;
  while (void* const p = arena.alloc(8)) {
    eights.push_back(p);
  }
  EXPECT_EQ(eights.size(), 8u * 2047);
  EXPECT_EQ(leftIn(arena), 64u);
  EXPECT_EQ(arena.alloc(16), nullptr);
  // One wholly free chunk stays with its bin; with two, the older one moves.
  for (std::size_t i = 6 * 2047; i < 7 * 2047; ++i) {
    arena.free(eights[i]);
  }
  EXPECT_EQ(arena.alloc(16), nullptr);
  for (std::size_t i = 0; i < 2047; ++i) {
    arena.free(eights[i]);
  }
  EXPECT_EQ(arena.alloc(16), eights[0]);
  EXPECT_EQ(chunksOf(arena, 0), 7);
  EXPECT_EQ(chunksOf(arena, 1), 1);
  EXPECT_NE(dumpOf(arena).find("Reclaims: 1\n"), std::string::npos);
  EXPECT_EQ(leftIn(arena), 64u);
}

TEST(QRTMemoryArena, ALargeRequestTrimsBinsInOrderUntilItFits) {
  QRTMemoryArena arena(3, 4 * kChunkBytes, 0);
  for (const unsigned size : {8u, 16u, 24u}) {
    arena.free(arena.alloc(size));
  }
  void* const large = arena.alloc(2 * kChunkBytes - 8);  // one chunk is left, one more is needed
  ASSERT_NE(large, nullptr);
  EXPECT_EQ(chunksOf(arena, 0), 0);
  EXPECT_EQ(chunksOf(arena, 1), 1);
  // Too much for all of them together: null, and what was trimmed stays released.
  EXPECT_EQ(arena.alloc(3 * kChunkBytes), nullptr);
  EXPECT_EQ(chunksOf(arena, 1) + chunksOf(arena, 2), 0);
  EXPECT_EQ(leftIn(arena), 2 * kChunkBytes);
  arena.free(large);
  EXPECT_EQ(usedBy(arena), 0u);
}

TEST(QRTMemoryArena, AFailedChunkOrRecordIsNotCharged) {
  {
    QRTMemoryArena arena(2, 0, 0);
    const auto error = expectRaised<QRTOutOfMemoryError>([&] {
      const FailingNew fails(1, FailingNew::eFromThenOn);
      arena.alloc(8);
    });
    EXPECT_EQ(traceOf(error).back().file, "QRTFixedMemoryPool.cpp");
    EXPECT_EQ(usedBy(arena), 0u);
    {
      const FailingNew fails(1, FailingNew::eFromThenOn);  // the entry in the set of large blocks
      EXPECT_EQ(arena.alloc(100), nullptr);
    }
    EXPECT_EQ(usedBy(arena), 0u);
    EXPECT_NE(arena.alloc(8), nullptr);
    EXPECT_NE(arena.alloc(100), nullptr);
  }
}

// The heap gives a chunk where no trailer can name it; another bin's serves, or nothing is charged.
TEST(QRTMemoryArena, AChunkOutOfReachIsNotCharged) {
  if (sizeof(void*) < 8) {
    GTEST_SKIP() << "every address of 32 bits is within reach";
  }
  QRTMemoryArena arena(2, 0, 0);
  const auto error = expectRaised<QRTAssertError>([&] {
    const FailingNew outOfReach(1, FailingNew::eOutOfReach);
    arena.alloc(8);
  });
  EXPECT_NE(textOf(error).find("more than 48 bits"), std::string::npos);
  EXPECT_EQ(usedBy(arena), 0u);
  EXPECT_NE(arena.alloc(8), nullptr);

  std::vector<void*> blocks;
  for (int i = 0; i < 2 * 2047; ++i) {
    blocks.push_back(arena.alloc(8));
  }
  for (void* p : blocks) {
    arena.free(p);
  }
  const unsigned used = usedBy(arena);
  const FailingNew outOfReach(1, FailingNew::eOutOfReach);
  EXPECT_NE(arena.alloc(16), nullptr);
  EXPECT_EQ(usedBy(arena), used);
}

// Requests to the heap fail in turn: for chunks, for what is kept beside them, for large blocks and
// for their record.
TEST(QRTMemoryArena, AFailedRequestChangesNothingWhicheverItIs) {
  QRTMemoryArena arena(4, 0xF0000000, 0);
  std::vector<void*> blocks;
  unsigned used = 0;
  std::size_t refused = 0;
  const auto allocWithEachRequestFailing = [&](unsigned size, unsigned charge) {
    for (std::size_t nth = 1;; ++nth) {
      void* p = nullptr;
      bool raised = false;
      {
        const FailingHeap fails(nth);
        try {
          p = arena.alloc(size);
        } catch (const QRTOutOfMemoryError&) {
          raised = true;
        }
      }
      if (p != nullptr) {
        blocks.push_back(p);
        used += charge;
        ASSERT_EQ(usedBy(arena), used);
        return;
      }
      ASSERT_TRUE(raised || isLarge(arena, size));
      ASSERT_EQ(usedBy(arena), used);
      ++refused;
    }
  };
  for (int chunk = 0; chunk < 70; ++chunk) {
    allocWithEachRequestFailing(32, kChunkBytes);
    for (int i = 1; i < 818; ++i) {
      blocks.push_back(arena.alloc(32));
    }
    allocWithEachRequestFailing(1000, 1008);
  }
  EXPECT_GE(refused, 140u);
  for (void* p : blocks) {
    arena.free(p);
  }
  EXPECT_EQ(usedBy(arena), 70 * kChunkBytes);
  EXPECT_EQ(arena.trim(), 70 * kChunkBytes);
  EXPECT_EQ(usedBy(arena), 0u);
}

TEST(QRTMemoryArena, ABinTakesAnothersChunkAlsoWhenTheHeapHasNothing) {
  for (const unsigned budget : {3 * kChunkBytes, 100 * kChunkBytes}) {
    QRTMemoryArena arena(3, budget, 0);
    std::vector<void*> eights;
    for (int i = 0; i < 3 * 2047; ++i) {
      eights.push_back(arena.alloc(8));
    }
    for (void* p : eights) {
      arena.free(p);
    }
    const FailingHeap fails(1, FailingHeap::eFromThenOn);
    EXPECT_NE(arena.alloc(16), nullptr) << budget;
    EXPECT_NE(arena.alloc(24), nullptr) << budget;
    EXPECT_EQ(usedBy(arena), 3 * kChunkBytes);
    EXPECT_EQ(chunksOf(arena, 0), 1);
    EXPECT_NE(arena.alloc(8), nullptr) << "one chunk stays with its bin";
  }
}

TEST(QRTMemoryArena, TrimGivesEveryWhollyFreeChunkBack) {
  QRTMemoryArena arena(4, 0, 0);
  EXPECT_EQ(arena.trim(), 0u);
  void* const kept = arena.alloc(8);
  for (const unsigned size : {16u, 24u, 32u}) {
    arena.free(arena.alloc(size));
  }
  void* const large = arena.alloc(1000);
  EXPECT_EQ(arena.getBytesHandedOut(), 1008u);
  EXPECT_EQ(arena.trim(), 3 * kChunkBytes);
  EXPECT_EQ(usedBy(arena), kChunkBytes + 1008);
  EXPECT_EQ(chunksOf(arena, 0), 1);
  // A damaged header stops it; what was released before it is credited.
  void* const sixteen = arena.alloc(16);
  arena.free(sixteen);
  std::vector<void*> twoChunks;
  for (int i = 0; i < 819; ++i) {
    twoChunks.push_back(arena.alloc(32));
  }
  for (void* p : twoChunks) {
    arena.free(p);
  }
  EXPECT_EQ(chunksOf(arena, 3), 2);
  char* const last = static_cast<char*>(twoChunks[0]);
  invert(last - 1);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { arena.trim(); })),
            "QRT_ASSERT(rh->m_filler3 == 0xE);");
  EXPECT_EQ(usedBy(arena), 2 * kChunkBytes + 1008);
  invert(last - 1);
  arena.free(kept);
  arena.free(large);
  EXPECT_EQ(arena.trim(), 2 * kChunkBytes);
  EXPECT_EQ(usedBy(arena), 0u);
  EXPECT_EQ(arena.getBytesHandedOut(), 0u);
}

TEST(QRTMemoryArena, ResizesLikeTheCRuntime) {
  QRTMemoryArena arena(4, 5 * kChunkBytes, 0);
  EXPECT_EQ(arena.realloc(nullptr, 0), nullptr);
  const struct {
    unsigned from, to;
    bool moves;
  } cases[] = {{5, 8, false},   {8, 3, false},    {8, 9, true},    {32, 17, false},
               {32, 16, true},  {32, 33, true},   {100, 20, true}, {100, 51, false},
               {100, 50, true}, {100, 101, true}, {40, 5000, true}};
  for (const auto& c : cases) {
    char* const p = static_cast<char*>(arena.realloc(nullptr, c.from));
    for (unsigned i = 0; i < c.from; ++i) {
      p[i] = static_cast<char>(i * 7);
    }
    char* const q = static_cast<char*>(arena.realloc(p, c.to));
    ASSERT_NE(q, nullptr) << c.from << " to " << c.to;
    EXPECT_EQ(q != p, c.moves) << c.from << " to " << c.to;
    for (unsigned i = 0; i < std::min(c.from, c.to); ++i) {
      ASSERT_EQ(q[i], static_cast<char>(i * 7)) << c.from << " to " << c.to;
    }
    EXPECT_EQ(arena.realloc(q, 0), nullptr);
    EXPECT_EQ(arena.getBytesHandedOut(), 0u) << c.from << " to " << c.to;
  }
  // Without room the old block stays, also when it was to shrink.
  arena.trim();
  char* const large = static_cast<char*>(arena.alloc(5 * kChunkBytes - 8));
  large[0] = 'l';
  EXPECT_EQ(arena.realloc(large, 5 * kChunkBytes), nullptr);
  EXPECT_EQ(arena.realloc(large, 0xFFFFFFFF), nullptr);
  EXPECT_EQ(arena.realloc(large, 16), large);
  EXPECT_EQ(large[0], 'l');
  arena.free(large);
  char* const small = static_cast<char*>(arena.alloc(16));
  {
    const FailingHeap fails(1, FailingHeap::eFromThenOn);
    EXPECT_EQ(arena.realloc(small, 5), small);
    EXPECT_EQ(arena.realloc(small, 4000), nullptr);
  }
  expectRaised<QRTOutOfMemoryError>([&] {
    const FailingHeap fails(1, FailingHeap::eFromThenOn);
    arena.realloc(small, 32);
  });
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(small), 16u);
  arena.free(small);
  QRTMemoryArena other(4, 0, 0);
  for (void* const foreign : {other.alloc(16), other.alloc(100), static_cast<void*>(small)}) {
    expectRaised<QRTAssertError>([&] { arena.realloc(foreign, 200); });
  }
}

TEST(QRTMemoryArena, AConstructorThatFailsLeavesNothingBehind) {
  EXPECT_THROW(QRTMemoryArena(-1, 0, 0), std::length_error);
  EXPECT_THROW(QRTMemoryArena(std::numeric_limits<int>::min(), 0, 0), std::length_error);
  for (const int count : {4094, std::numeric_limits<int>::max()}) {
    const auto error =
        expectRaised<QRTAssertError>([&] { const QRTMemoryArena arena(count, 0, 0); });
    EXPECT_THAT(textOf(error), testing::HasSubstr("Specified size for QRTFixedMemoryPool"));
    EXPECT_THAT(traceOf(error),
                testing::ElementsAre(TraceEntry{"QRTFixedMemoryPool.cpp", "", "QRT_THROW"},
                                     TraceEntry{"QRTMemoryArena.cpp", "", "QRT_RETHROW"}));
  }
  // 10 bins: the vector, the bins, the set. Whichever fails, the ones before it are given back.
  for (std::size_t nth = 2; nth <= 12; ++nth) {
    const auto construct = [&] {
      const FailingNew fails(nth, FailingNew::eFromThenOn);
      const QRTMemoryArena arena(10, 0, 0);
    };
    const auto error = expectRaised<QRTOutOfMemoryError>(construct, std::to_string(nth));
    EXPECT_EQ(traceOf(error).back().file, "QRTMemoryArena.cpp");
  }
  QRTMemoryArena most(4093, 0, 0);
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(most.alloc(32740)), 32744u);
}

TEST(QRTMemoryArena, MisuseIsReported) {
  QRTMemoryArena arena(2, 0, 0);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { arena.free(nullptr); })), "QRT_ASSERT(mem);");
  void* const a = arena.alloc(16);
  arena.alloc(16);
  arena.free(a);
  expectRaised<QRTAssertError>([&] { arena.free(a); }, "freed twice");

  struct {
    QRTFixedMemoryPool::ElementHeader header;
    char area[64];
  } foreign = {{40, 0, 1, 0x0E}, {}};
  const unsigned used = usedBy(arena);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { arena.free(foreign.area); })),
            "QRT_ASSERT_NAMED(eraseCount == 1, \"Invalid memory chunk in QRTMemoryArena::free\");");
  EXPECT_EQ(usedBy(arena), used - 48) << "the credit was given before the check";
  foreign.header.m_size = 0;
  expectRaised<QRTAssertError>([&] { arena.free(foreign.area); });
  foreign.header.m_filler3 = 0;
  const auto error = expectRaised<QRTAssertError>([&] { arena.free(foreign.area); });
  EXPECT_EQ(textOf(error), "QRT_ASSERT(rh->m_filler3 == 0xE);");
  EXPECT_EQ(traceOf(error).back().file, "QRTFixedMemoryPool.cpp");
}

TEST(QRTMemoryArena, DetectionWatchesAllBins) {
  QRTMemoryArena arena(2, 0, 0);
  char* const p = static_cast<char*>(arena.alloc(16));
  arena.alloc(16);
  void* const other = arena.alloc(8);
  arena.checkForMemoryOverWrite();
  invert(p + 16 + 7);
  arena.checkForMemoryOverWrite();
  arena.setDetectMemoryOverWrites(1);
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  const std::function<void()> operations[] = {
      [&] { arena.alloc(8); },
      [&] { arena.alloc(100); },
      [&] { arena.free(other); },
      [&] { arena.expand(1); },
      [&] { arena.getPoolStats(0, nullptr, nullptr, nullptr); },
      [&] { arena.getPoolStats(a, b, c); },
      [&] { dumpOf(arena); },
      [&] { arena.checkForMemoryOverWrite(); }};
  for (const auto& operation : operations) {
    EXPECT_EQ(textOf(expectRaised<QRTAssertError>(operation)), "QRT_ASSERT(rh->m_filler3 == 0xE);");
  }
  EXPECT_EQ(arena.alloc(0), nullptr) << "before any check";
  arena.setAbortProcessOnMemoryOverWrites(1);
  EXPECT_DEATH(arena.alloc(8), "");
  arena.setDetectMemoryOverWrites(0);
  EXPECT_NE(arena.alloc(8), nullptr);
}

TEST(QRTMemoryArena, KnowsEachOfThousandsOfLargeBlocks) {
  TestRandom random(testSeed());
  QRTMemoryArena arena(0, 1u << 30, 0);
  std::vector<void*> live;
  for (int step = 0; step < 40000; ++step) {
    if (live.empty() || (live.size() < 5000 && random() % 100 < 60)) {
      live.push_back(arena.alloc(24));
      ASSERT_NE(live.back(), nullptr);
    } else {
      std::swap(live[random() % live.size()], live.back());
      ASSERT_NO_THROW(arena.free(live.back())) << step;
      live.pop_back();
    }
    ASSERT_EQ(usedBy(arena), live.size() * 32) << step;
  }
}

TEST(QRTMemoryArena, RandomUseKeepsContentsAndTheBudgetExact) {
  TestRandom random(testSeed());
  for (const int detect : {0, 1}) {
    QRTMemoryArena arena(32, 20 * kChunkBytes, 0);
    arena.setDetectMemoryOverWrites(detect);
    struct Live {
      unsigned char* p;
      unsigned size;
      unsigned char fill;
    };
    std::vector<Live> live;
    unsigned largeBytes = 0;
    unsigned refused = 0;
    for (int step = 0; step < (detect != 0 ? 2000 : 60000); ++step) {
      if (live.empty() || random() % 100 < (step / 5000 % 2 == 0 ? 60u : 40u)) {
        const unsigned size = random() % 20 == 0 ? random() % 60000 : random() % 256 + 1;
        auto* const p = static_cast<unsigned char*>(arena.alloc(size));
        if (p == nullptr) {
          refused += size != 0 ? 1 : 0;
          continue;
        }
        ASSERT_EQ(QRTFixedMemoryPool::allocSize(p),
                  isLarge(arena, size) ? size : (size + 7) / 8 * 8);
        const auto fill = static_cast<unsigned char>(random());
        std::memset(p, fill, size);
        live.push_back({p, size, fill});
        largeBytes += isLarge(arena, size) ? size + 8 : 0;
      } else {
        std::swap(live[random() % live.size()], live.back());
        const Live gone = live.back();
        live.pop_back();
        ASSERT_EQ(std::count(gone.p, gone.p + gone.size, gone.fill), gone.size) << step;
        arena.free(gone.p);
        largeBytes -= isLarge(arena, gone.size) ? gone.size + 8 : 0;
      }
      if (step % 50 == 0) {
        unsigned chunks = 0;
        for (int bin = 0; bin < 32; ++bin) {
          chunks += static_cast<unsigned>(chunksOf(arena, bin));
        }
        ASSERT_EQ(usedBy(arena), chunks * kChunkBytes + largeBytes) << step;
      }
    }
    if (detect == 0) {
      EXPECT_GT(refused, 0u) << "the budget was never tight";
    }
  }
}

}  // namespace
