#include "StoreStatistics.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "QRTVirtualMemoryMgr.h"

namespace {

constexpr const char* kFull =
    "**Dump of Virtual Mapper**\n\n"
    "Paging File - /tmp/file\nPage file size: 101 bytes\n\n"
    "Mapping Mode - libtcmalloc_virtualmm\nPage size: 102 bytes\n"
    "Mapping Statistics - Virtual Objects (Current/Max/Cumulative): 103/104/105\n"
    "Paging Statistics - Reads: 106, Writes: 107, Page Outs: 110\n\n"
    "Total Objects with reference count > 0 : 109\n\n";

TEST(StoreStatistics, every_figure_comes_from_its_own_line) {
  const example::StoreStatistics statistics = example::parseStatistics(kFull);
  EXPECT_EQ(statistics.pagingFileSize, 101U);
  EXPECT_EQ(statistics.pageSize, 102U);
  EXPECT_EQ(statistics.currentObjects, 103U);
  EXPECT_EQ(statistics.pageReads, 106U);
  EXPECT_EQ(statistics.pageWrites, 107U);
  EXPECT_EQ(statistics.pageOuts, 110U);
  EXPECT_EQ(statistics.pinnedObjects, 109U);
  EXPECT_EQ(statistics.writesSaved(), 3U);
}

TEST(StoreStatistics, a_dump_without_its_paging_line_is_refused) {
  std::string dump = kFull;
  dump.erase(dump.find("Paging Statistics"));
  EXPECT_THROW(example::parseStatistics(dump), std::runtime_error);
}

TEST(StoreStatistics, follows_a_live_manager) {
  QRTVirtualMemoryMgr manager(1, 0, 0);
  QRTVirtualPageItem first;
  QRTVirtualPageItem second;
  manager.alloc(100, first);
  manager.alloc(100, second);
  manager.dismiss(second);

  const example::StoreStatistics statistics = example::readStatistics(manager);
  EXPECT_EQ(statistics.currentObjects, 2U);
  EXPECT_EQ(statistics.pinnedObjects, 1U);
  EXPECT_EQ(statistics.pagingFileSize, 0U) << "nothing had to leave memory";
  EXPECT_GT(statistics.pageSize, 0U);
  manager.dismiss(first);
}

}  // namespace
