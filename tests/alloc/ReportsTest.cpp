// The reports beside the allocators: culprits, fragmentation, invariants, maps.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "AllocTestSupport.h"
#include "QRTAllocatorChecker.h"
#include "QRTAllocatorMap.h"
#include "QRTFixedMemoryPool.h"
#include "QRTFragmentationReport.h"
#include "QRTMemoryArena.h"
#include "QRTMemoryPool.h"
#include "QRTOverWriteReport.h"

namespace {

using testing::HasSubstr;
using testing::Not;

template <class Subject>
std::string checked(const Subject& subject) {
  std::ostringstream os;
  const unsigned count = QRTAllocatorChecker::check(subject, os);
  const std::string text = os.str();
  EXPECT_EQ(count, std::count(text.begin(), text.end(), '\n'));
  return text;
}

template <class Report>
std::string written(const Report& report) {
  std::ostringstream os;
  report.write(os);
  return os.str();
}

TEST(OverWriteReport, NamesTheSlotInFrontOfADamagedHeader) {
  QRTFixedMemoryPool pool(20, 1, 1);
  std::vector<char*> p;
  for (int i = 0; i < 1024; ++i) {
    p.push_back(static_cast<char*>(pool.alloc()));
  }
  EXPECT_EQ(QRTOverWriteReport(pool).getCount(), 0u);
  // From slot 4 over the header of slot 5, the size only; from slot 9, freed, the filler of 10.
  invert(p[4] + 24);
  pool.free(p[9]);
  invert(p[9] + 24 + 7);
  const QRTOverWriteReport report(pool);
  ASSERT_EQ(report.getCount(), 2u);
  const QRTOverWriteReport::Finding& size = report.get(0);
  EXPECT_EQ(size.chunk, 1u) << "newest first";
  EXPECT_EQ(size.slot, 5u);
  EXPECT_EQ(size.area, p[5]);
  EXPECT_EQ(size.bin, -1);
  EXPECT_TRUE(size.isInUse);
  EXPECT_EQ(size.header[0], 0xFF - 20);
  EXPECT_EQ(size.expected[0], 20);
  EXPECT_EQ(size.culpritArea, p[4]);
  EXPECT_EQ(size.culpritBytes, 24u);
  EXPECT_TRUE(size.isCulpritInUse);
  EXPECT_EQ(report.get(1).slot, 10u);
  EXPECT_FALSE(report.get(1).isCulpritInUse);
  const std::string text = written(report);
  EXPECT_THAT(text, HasSubstr("Overwritten headers: 2\n"));
  EXPECT_THAT(text, HasSubstr("Chunk 1, slot 5, element at "));
  EXPECT_THAT(text, HasSubstr("header found    eb 00 00 00 a0 00 01 0e\n"));
  EXPECT_THAT(text, HasSubstr("header expected 14 00 00 00 a0 00 01 0e\n"));
  EXPECT_THAT(text, HasSubstr("of 24 bytes, in use: look for a write past its end"));
  EXPECT_THAT(text, HasSubstr("free: look for a write after it was freed"));
  EXPECT_THAT(checked(pool), HasSubstr("Chunk 1, slot 10: damaged header."));
}

TEST(OverWriteReport, CoversBinsAndLargeBlocksOfAnArena) {
  QRTMemoryArena arena(3, 0, 0);
  char* const a = static_cast<char*>(arena.alloc(24));
  char* const large = static_cast<char*>(arena.alloc(500));
  invert(a - 8 + 6);
  invert(large - 8 + 7);
  const QRTOverWriteReport report(arena);
  ASSERT_EQ(report.getCount(), 2u);
  EXPECT_EQ(report.get(0).bin, 2);
  EXPECT_FALSE(report.get(0).hasCulprit);
  EXPECT_EQ(report.get(1).area, large);
  EXPECT_THAT(written(report), HasSubstr("Bin 2, chunk 0, slot 0, element at "));
  EXPECT_THAT(written(report), HasSubstr("Large block, element at "));
  EXPECT_THAT(checked(arena), HasSubstr("Large block at "));
  invert(a - 8 + 6);
  invert(large - 8 + 7);
  EXPECT_EQ(checked(arena), "");
}

TEST(FragmentationReport, CountsPiecesBySize) {
  QRTMemoryPool pool(0, 4096);
  EXPECT_EQ(QRTFragmentationReport(pool).getFragmentation(), 0);
  std::vector<void*> blocks;
  for (int i = 0; i < 20; ++i) {
    blocks.push_back(pool.alloc(56));  // 64 with its header
  }
  for (std::size_t i = 0; i < blocks.size(); i += 4) {
    pool.free(blocks[i]);  // five holes; the first touches nothing either: it lies on top
  }
  const QRTFragmentationReport report(pool);
  EXPECT_EQ(report.getHeapBlocks(), 1u);
  EXPECT_EQ(report.getHeapBytes(), 4104u);
  EXPECT_EQ(report.getUsedBlocks(), 15u);
  EXPECT_EQ(report.getUsedBytes(), 15u * 64);
  EXPECT_EQ(report.getFreeBlocks(), 6u);
  EXPECT_EQ(report.getLargestFree(), 4104u - 20 * 64);
  EXPECT_EQ(report.getFreeOfClass(6), 5u);
  EXPECT_EQ(report.getFreeOfClass(11), 1u);
  EXPECT_EQ(report.getFreeOfClass(99), 0u);
  EXPECT_NEAR(report.getFragmentation(), 5 * 64 / 3144.0, 1e-9);
  EXPECT_THAT(written(report), HasSubstr("Free: 6 blocks, 3144 bytes, largest 2824"));
  EXPECT_THAT(written(report), HasSubstr("from          64 bytes        5 ###########"));
}

TEST(AllocatorChecker, FindsWhatAStrayWriteDoes) {
  QRTMemoryPool pool(0, 4096);
  char* const a = static_cast<char*>(pool.alloc(100));
  char* const b = static_cast<char*>(pool.alloc(100));
  pool.free(a);
  EXPECT_EQ(checked(pool), "");
  invert(b - 8 + 5);  // the size in its header, which no longer leads to the end
  EXPECT_THAT(checked(pool), HasSubstr("the block sizes break off"));
  invert(b - 8 + 5);
  invert(a - 8 + 2);  // the link of a free block
  EXPECT_THAT(checked(pool), HasSubstr("Free list: "));
  invert(a - 8 + 2);
  EXPECT_EQ(checked(pool), "");

  for (const int headers : {0, 1}) {
    QRTFixedMemoryPool fixed(16, 1, headers);
    char* const p = static_cast<char*>(fixed.alloc());
    fixed.alloc();
    fixed.free(p);
    EXPECT_EQ(checked(fixed), "");
    invert(p);
    EXPECT_THAT(checked(fixed), HasSubstr("a free list leads out of its slots"));
    invert(p);
  }
}

template <class Subject>
std::string mapOf(const Subject& subject) {
  std::ostringstream os;
  QRTAllocatorMap(subject).writeText(os);
  return os.str();
}

TEST(AllocatorMap, DrawsChunksAndBlocks) {
  // Stride 4,088: eight slots of a little less than ten cells.
  QRTFixedMemoryPool fixed(4080, 1, 1);
  std::vector<char*> p;
  for (int i = 0; i < 4; ++i) {
    p.push_back(static_cast<char*>(fixed.alloc()));
  }
  fixed.free(p[1]);
  EXPECT_THAT(mapOf(fixed), HasSubstr("[#########+.........+" + std::string(19, '#') + "+" +
                                      std::string(40, '.') + "] 4080 bytes, chunk 0\n"));
  invert(p[3] - 1);
  EXPECT_THAT(mapOf(fixed), HasSubstr("!!!!!!!!!"));
  EXPECT_THAT(mapOf(fixed), Not(HasSubstr("#!#")));
  invert(p[3] - 1);

  QRTMemoryArena arena(2, 0, 0);
  arena.alloc(9);
  arena.alloc(700);
  EXPECT_EQ(QRTAllocatorMap(arena).getRows(), 2u);
  EXPECT_THAT(mapOf(arena), HasSubstr("bin 1, 16 bytes, chunk 0\n"));
  EXPECT_THAT(mapOf(arena), HasSubstr("1 large, 708 bytes\n"));

  QRTMemoryPool pool(0, 8000);
  pool.alloc(3992);
  EXPECT_THAT(mapOf(pool), HasSubstr("[" + std::string(40, '.') + "+" + std::string(39, '#') +
                                     "] heap memory, 8008 bytes\n"));

  std::ostringstream svg;
  QRTAllocatorMap(arena).writeSvg(svg);
  EXPECT_THAT(svg.str(), testing::StartsWith("<svg xmlns="));
  EXPECT_THAT(svg.str(), testing::EndsWith("</svg>\n"));
  EXPECT_THAT(svg.str(), HasSubstr(">bin 1, 16 bytes, chunk 0</text>"));
  EXPECT_EQ(QRTAllocatorMap(QRTMemoryPool(0, 0)).getRows(), 0u);
}

}  // namespace
