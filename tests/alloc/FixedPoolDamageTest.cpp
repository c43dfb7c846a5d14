#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "AllocTestSupport.h"
#include "QRTFixedMemoryPool.h"
#include "QRTMemoryArena.h"

// What fixed pools with headers find out: damage done by writing past an element, and elements
// given back that are not theirs to take.

namespace {

constexpr char kFillerText[] = "QRT_ASSERT(rh->m_filler3 == 0xE);";

class Detection : public testing::Test {
 protected:
  Detection() : pool(20, 1, 1) {
    for (char*& p : elements) {
      p = static_cast<char*>(pool.alloc());
    }
    pool.setDetectMemoryOverWrites(2);
  }

  /// Writes over the header of the second element from behind the first.
  void overwrite(unsigned firstByte, unsigned lastByte) {
    for (unsigned byte = firstByte; byte <= lastByte; ++byte) {
      invert(elements[0] + 24 + byte);
    }
  }

  QRTFixedMemoryPool pool;
  char* elements[4];
};

TEST_F(Detection, SwitchesReadBackAsZeroOrOne) {
  EXPECT_EQ(pool.getDetectMemoryOverWrites(), 1);
  EXPECT_EQ(pool.getAbortProcessOnMemoryOverWrites(), 0);
  pool.setAbortProcessOnMemoryOverWrites(-7);
  EXPECT_EQ(pool.getAbortProcessOnMemoryOverWrites(), 1);
  pool.setDetectMemoryOverWrites(0);
  EXPECT_EQ(pool.getDetectMemoryOverWrites(), 0);
}

TEST_F(Detection, EveryOperationReportsAnOverwrittenFiller) {
  overwrite(0, 7);
  const std::function<void()> operations[] = {[&] { pool.alloc(); },
                                              [&] { pool.free(elements[3]); },
                                              [&] { pool.free(nullptr); },
                                              [&] { pool.grow(nullptr); },
                                              [&] { infoOf(pool); },
                                              [&] { pool.reclaim(0); },
                                              [&] { pool.trim(0); },
                                              [&] { pool.checkForMemoryOverWrite(); },
                                              [&] { QRTFixedMemoryPool::allocSize(elements[1]); }};
  for (const auto& operation : operations) {
    const auto error = expectRaised<QRTAssertError>(operation);
    EXPECT_EQ(textOf(error), kFillerText);
    EXPECT_EQ(traceOf(error), std::vector<TraceEntry>{kPoolThrows});
  }
  overwrite(0, 7);
  pool.checkForMemoryOverWrite();
  EXPECT_EQ(infoOf(pool).inUse, 1) << "nothing was given back";
}

TEST_F(Detection, ADamagedSizeAlonePassesUnlessItEndsTheProcess) {
  overwrite(0, 3);
  EXPECT_NE(pool.alloc(), nullptr);
  pool.free(elements[1]);
  pool.checkForMemoryOverWrite();
  pool.setAbortProcessOnMemoryOverWrites(1);
  EXPECT_DEATH(pool.checkForMemoryOverWrite(), "");
  EXPECT_DEATH(pool.alloc(), "");
}

TEST_F(Detection, ADamagedFillerEndsTheProcessWhenAskedTo) {
  overwrite(7, 7);
  pool.setAbortProcessOnMemoryOverWrites(1);
  EXPECT_DEATH(pool.free(elements[1]), "");
  pool.setDetectMemoryOverWrites(0);
  EXPECT_DEATH(pool.free(elements[1]), "") << "the element's own header is always tested";
}

TEST_F(Detection, OffTheElementsOwnHeaderIsStillTested) {
  pool.setDetectMemoryOverWrites(0);
  overwrite(7, 7);
  pool.free(elements[0]);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { pool.free(elements[1]); })), kFillerText);
  // Damage to a free element shows when it is its turn, again and again.
  overwrite(7, 7);
  pool.free(elements[1]);
  overwrite(7, 7);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { pool.alloc(); })), kFillerText);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { pool.alloc(); })), kFillerText);
  overwrite(7, 7);
  EXPECT_EQ(pool.alloc(), elements[1]);
}

TEST_F(Detection, DamageInFrontOfAnIntactFillerDoesNotLeadToAnotherChunk) {
  pool.setDetectMemoryOverWrites(0);
  for (const unsigned last : {3u, 4u, 5u, 6u}) {
    overwrite(0, last);
    pool.free(elements[1]);
    EXPECT_EQ(pool.alloc(), elements[1]) << last;
    // Damage to a free element is let pass as well.
    pool.free(elements[1]);
    overwrite(4, last > 4 ? last : 4);
    EXPECT_EQ(pool.alloc(), elements[1]) << last;
    pool.free(elements[1]);
    EXPECT_EQ(pool.alloc(), elements[1]) << last;
    for (unsigned byte = 0; byte < 4; ++byte) {
      poke(elements[1] - 8 + byte, byte == 0 ? 20 : 0);
    }
  }
}

TEST_F(Detection, TheWholeCallersAreaMayBeWritten) {
  std::memset(elements[0], 0xFF, 24);
  pool.checkForMemoryOverWrite();
}

TEST(QRTFixedMemoryPoolMisuse, WhatAHeaderShowsIsReportedAndChangesNothing) {
  for (const int detect : {0, 1}) {
    QRTFixedMemoryPool pool(24, 1, 1);
    pool.setDetectMemoryOverWrites(detect);
    QRTFixedMemoryPool otherSize(32, 1, 1);
    QRTFixedMemoryPool sameSize(24, 1, 1);
    void* const a = pool.alloc();
    void* const b = pool.alloc();
    pool.free(a);
    expectRaised<QRTAssertError>([&] { pool.free(a); }, "freed twice");
    expectRaised<QRTAssertError>([&] { pool.free(otherSize.alloc()); });
    if (detect != 0) {
      expectRaised<QRTAssertError>([&] { pool.free(sameSize.alloc()); });
    }
    pool.free(nullptr);
    EXPECT_EQ(pool.alloc(), a);
    EXPECT_NE(pool.alloc(), a);
    pool.free(b);
    EXPECT_EQ(pool.alloc(), b);
  }
  EXPECT_EQ(QRTFixedMemoryPool::allocSize(nullptr), 0u);
}

// An element whose link leads to itself, as after a second free behind a forged header, is handed
// out once and no more.
TEST(QRTFixedMemoryPoolMisuse, AListThatGoesInCirclesDoesNotHandAnElementOutTwice) {
  QRTFixedMemoryPool pool(1000, 1, 1);
  char* const p = static_cast<char*>(pool.alloc());
  pool.free(p);
  for (unsigned byte = 0; byte < sizeof(void*); ++byte) {
    poke(p + byte, peek(reinterpret_cast<const char*>(&p) + byte));
  }
  EXPECT_EQ(infoOf(pool).inUse, 1) << "elements that are not on the list";
  EXPECT_EQ(pool.reclaim(0), nullptr);
  EXPECT_EQ(pool.alloc(), p);
  expectRaised<QRTAssertError>([&] { pool.alloc(); });
}

// Seven zero bytes past an element make the next header say that its element is free, behind an
// intact filler.
TEST(QRTFixedMemoryPoolMisuse, ZerosPastAnElementDoNotFreeTheChunkUnderAnother) {
  QRTFixedMemoryPool pool(24, 1, 1);
  char* const a = static_cast<char*>(pool.alloc());
  char* const b = static_cast<char*>(pool.alloc());
  std::memset(b, 'b', 24);
  for (int i = 0; i < 7; ++i) {
    poke(a + 24 + i, 0);
  }
  pool.free(a);
  EXPECT_EQ(infoOf(pool).inUse, 1);
  EXPECT_EQ(pool.reclaim(0), nullptr);
  EXPECT_EQ(pool.trim(0), 0u);
  EXPECT_EQ(std::count(b, b + 24, 'b'), 24);
  EXPECT_EQ(pool.alloc(), a);

  QRTMemoryArena arena(3, 2 * kChunkBytes, 0);
  char* const first = static_cast<char*>(arena.alloc(24));
  char* const second = static_cast<char*>(arena.alloc(24));
  std::memset(second, 'b', 24);
  for (int i = 0; i < 7; ++i) {
    poke(first + 24 + i, 0);
  }
  arena.free(first);
  EXPECT_EQ(arena.trim(), 0u);
  EXPECT_EQ(arena.alloc(kChunkBytes + 100), nullptr) << "would need the chunk";
  EXPECT_EQ(std::count(second, second + 24, 'b'), 24);
}

// Whatever is written over the link of a free element, alloc gives an element of the pool, nothing
// or an error.
TEST(QRTFixedMemoryPoolMisuse, AnOverwrittenLinkIsNotFollowedOutOfTheChunk) {
  constexpr std::ptrdiff_t kElement = 8 + 64 * 5;
  const struct {
    std::uint64_t link;      // as it is, or where `isBehind`
    bool isBehind;           // so far behind the chunk's start
    std::ptrdiff_t element;  // what it leads to; 0 for an error
  } cases[] = {{~std::uint64_t{0}, false, 0},
               {0x4141414141414141, false, 0},
               {1, false, 0},
               {kElement, true, kElement},
               {kElement + 4, true, 0},
               {kElement + 8, true, 0},
               {40000, true, 0},
               {32752, true, 0}};
  for (const auto& c : cases) {
    QRTFixedMemoryPool pool(56, 0, 1);
    char* const chunk = static_cast<char*>(::operator new(kChunkBytes));
    std::memset(chunk, 0x0E, kChunkBytes);
    pool.grow(chunk);
    char* const p = static_cast<char*>(pool.alloc());
    pool.free(p);
    const std::uint64_t link = c.link + (c.isBehind ? reinterpret_cast<std::uintptr_t>(chunk) : 0);
    for (unsigned byte = 0; byte < sizeof(void*); ++byte) {
      poke(p + byte, static_cast<unsigned char>(link >> 8 * byte));
    }
    EXPECT_EQ(pool.reclaim(0), nullptr) << c.link;
    EXPECT_EQ(pool.alloc(), p);
    if (c.element != 0) {
      EXPECT_EQ(pool.alloc(), chunk + c.element) << c.link;
    } else {
      expectRaised<QRTAssertError>([&] { pool.alloc(); }, std::to_string(c.link));
    }
  }
}

}  // namespace
