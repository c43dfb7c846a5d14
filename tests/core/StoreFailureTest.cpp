#include <gmock/gmock.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "support/TempDirectory.h"

// A store whose temp directory cannot hold a paging file: memory alone still serves, what goes
// beyond it is refused, and nothing that was stored is lost.

namespace {

class StoreFailureTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    std::ofstream(directory.path() / "file") << "in the way";
    path = (directory.path() / GetParam()).string();
  }

  TempDirectory directory;
  std::string path;
};

INSTANTIATE_TEST_SUITE_P(TempDirectory, StoreFailureTest, testing::Values("missing", "file"));

TEST_P(StoreFailureTest, NothingStoredIsLost) {
  const ScopedTmpdir tmpdir(path);
  QRTVirtualMemoryMgr manager(1U << 20U, 0U, 64);
  EXPECT_STREQ(manager.getLastStoreError(), "");

  const auto content = [](std::size_t i) { return "object " + std::to_string(i); };
  std::vector<QRTVirtualPageItem> items;
  bool refused = false;
  while (!refused && items.size() < 100000) {
    QRTVirtualPageItem item;
    try {
      void* const address = manager.alloc(500, item);
      std::memcpy(address, content(items.size()).c_str(), content(items.size()).size() + 1);
      manager.dismiss(item);
      items.push_back(item);
    } catch (const QRTOutOfMemoryError&) {
      EXPECT_EQ(item.empty(), 1);
      refused = true;
    }
  }
  ASSERT_TRUE(refused) << "there is no paging file, so the budget is the end";
  EXPECT_GT(items.size() * 500, (1U << 20U) / 2) << "most of the budget is usable";
  EXPECT_THAT(manager.getLastStoreError(), testing::HasSubstr(path));

  // An object that cannot grow stays as it is.
  QRTVirtualPageItem growing = items[0];
  EXPECT_THROW(manager.alloc(100000, growing), QRTOutOfMemoryError);
  EXPECT_EQ(growing.getOffset(), items[0].getOffset());
  EXPECT_EQ(growing.getSize(), 500U);

  for (std::size_t i = 0; i < items.size(); ++i) {
    const void* const address = manager.getAddress(items[i], 1);
    ASSERT_NE(address, nullptr) << i;
    ASSERT_EQ(static_cast<const char*>(address), content(i));
    manager.dismiss(items[i]);
  }

  // Room that is given back can be used again.
  for (QRTVirtualPageItem& item : items) {
    manager.free(item);
  }
  for (std::size_t i = 0; i < items.size() / 2; ++i) {
    manager.alloc(500, items[i]);
    manager.dismiss(items[i]);
  }
}

}  // namespace
