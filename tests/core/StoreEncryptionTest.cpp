#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualTree.h"
#include "support/TempDirectory.h"

// What encryption comes to for a host: what is in the file on disk, and which stores have it.

namespace {

namespace fs = std::filesystem;

constexpr const char* kSecret = "the secret that nobody is to read; ";

/// Stores more than memory holds, all of it the secret over and over.
void fill(QRTVirtualMemoryMgr& manager) {
  for (int i = 0; i < 3000; ++i) {
    QRTVirtualPageItem item;
    std::string text;
    while (text.size() < 1000) {
      text += kSecret;
    }
    std::memcpy(manager.alloc(static_cast<unsigned int>(text.size()), item), text.data(),
                text.size());
    manager.dismiss(item);
  }
}

/// Everything in the one file that this process has open in the directory.
std::string rawFileIn(const fs::path& directory) {
  std::string content;
  int files = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code none;
    if (fs::read_symlink(entry.path(), none).parent_path() == directory) {
      std::ostringstream all;
      all << std::ifstream(entry.path(), std::ios::binary).rdbuf();
      content += all.str();
      ++files;
    }
  }
  EXPECT_EQ(files, 1);
  EXPECT_GE(content.size(), 2000000U);
  return content;
}

// Switched on and off between stores, which keep what they were made with, also a tree's own.
TEST(StoreEncryptionTest, AStoreKeepsWhatItWasMadeWith) {
  EXPECT_EQ(QRTVirtualMemoryMgr::getPagingFileEncryption(), 0);
  const TempDirectory directory;
  const ScopedTmpdir tmpdir(directory.path().string());
  for (const int on : {0, 1, 0}) {
    SCOPED_TRACE(on);
    QRTVirtualMemoryMgr::setPagingFileEncryption(on);
    EXPECT_EQ(QRTVirtualMemoryMgr::getPagingFileEncryption(), on);
    auto manager = std::make_unique<QRTVirtualMemoryMgr>(1U << 20U);
    auto tree = std::make_unique<QRTVirtualTree>(1U << 20U);
    QRTVirtualMemoryMgr::setPagingFileEncryption(on == 0 ? 1 : 0);
    fill(*manager);
    EXPECT_EQ(rawFileIn(directory.path()).find(kSecret) == std::string::npos, on != 0);
    manager.reset();
    fill(*tree->getMemoryMgr());
    EXPECT_EQ(rawFileIn(directory.path()).find(kSecret) == std::string::npos, on != 0);
  }
  QRTVirtualMemoryMgr::setPagingFileEncryption(0);
}

}  // namespace
