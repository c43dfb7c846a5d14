#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

#include "QRTVirtualMemoryMgr.h"
#include "support/TempDirectory.h"

// A store where the names of directories are bytes in whatever encoding.

namespace {

TEST(StorePosixTest, PagesUnderADirectoryWhoseNameIsNotUtf8) {
  const TempDirectory directory;
  const std::string raw = directory.path().string() +
                          "/Br\xFC"
                          "cke";
  ASSERT_TRUE(std::filesystem::create_directory(raw));
  const ScopedTmpdir tmpdir(raw);
  QRTVirtualMemoryMgr manager(1U << 20U);
  for (int i = 0; i < 3000; ++i) {
    QRTVirtualPageItem item;
    std::memset(manager.alloc(1000, item), 'x', 1000);
    manager.dismiss(item);
  }
  std::ostringstream dump;
  manager.dumpMapper(dump, QRTVirtualMemoryMgr::eDumpStatistics);
  EXPECT_NE(dump.str().find("Paging File - " + raw), std::string::npos) << dump.str();
}

}  // namespace
