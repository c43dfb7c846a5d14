#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// The manager over the real engine.

namespace {

class StoreTest : public testing::Test {
 protected:
  // Allocates an object that holds the text, unpinned.
  QRTVirtualPageItem stored(const std::string& text) {
    QRTVirtualPageItem item;
    std::memcpy(manager.alloc(static_cast<unsigned int>(text.size()), item), text.data(),
                text.size());
    manager.dismiss(item);
    return item;
  }

  // The object's content; "(none)" when it cannot be pinned.
  std::string text(QRTVirtualPageItem item) {
    const void* const address = manager.getAddress(item, 1);
    if (address == nullptr) {
      return "(none)";
    }
    std::string content(static_cast<const char*>(address), item.getSize());
    manager.dismiss(item);
    return content;
  }

  std::string dump(int flags) {
    std::ostringstream os;
    manager.dumpMapper(os, flags);
    return os.str();
  }

  // The number that follows a label of the dump.
  unsigned long long figure(const std::string& label) {
    const std::string all = dump(QRTVirtualMemoryMgr::eDumpStatistics);
    const std::size_t at = all.find(label);
    EXPECT_NE(at, std::string::npos) << all;
    return at == std::string::npos ? 0 : std::stoull(all.substr(at + label.size()));
  }

  // Leaves so little memory to what was stored before that it goes to the paging file.
  void pushOut() {
    for (int i = 0; i < 3000; ++i) {
      stored(std::string(1024, 'f'));
    }
  }

  TempDirectory directory;
  ScopedTmpdir tmpdir{directory.path().string()};
  QRTVirtualMemoryMgr manager{1U << 20U, 0U, 64};
};

// Random life of objects several times larger than the budget, against plain strings.
TEST_F(StoreTest, KeepsEveryByteWhateverHappensToTheObjects) {
  std::mt19937 random(testSeed());
  const auto randomSize = [&]() -> unsigned int {
    const auto kind = random() % 100;
    return static_cast<unsigned int>(kind < 80 ? random() % 600
                                               : (kind < 98 ? random() % 8192 : random() % 200000));
  };
  struct Twin {
    QRTVirtualPageItem item;
    std::string content;
  };
  std::vector<Twin> twins(6000);
  const unsigned long long before = figure("(Current/Max/Cumulative): ");
  const auto live = [&] {
    return static_cast<unsigned long long>(std::count_if(
        twins.begin(), twins.end(), [](const Twin& twin) { return twin.item.empty() == 0; }));
  };
  for (int step = 0; step < 60000; ++step) {
    Twin& twin = twins[random() % twins.size()];
    const auto action = random() % 10;
    if (action < 5) {
      ASSERT_EQ(twin.item.empty() != 0 ? twin.content : text(twin.item), twin.content);
    } else if (action < 9) {
      const unsigned int size = randomSize();
      auto* const bytes = static_cast<char*>(manager.alloc(size, twin.item));
      const std::size_t kept = std::min<std::size_t>(size, twin.content.size());
      ASSERT_EQ(std::string(bytes, kept), twin.content.substr(0, kept));
      twin.content.resize(size);
      for (char& byte : twin.content) {
        byte = static_cast<char>(random());
      }
      std::memcpy(bytes, twin.content.data(), size);
      manager.dismiss(twin.item);
    } else {
      manager.free(twin.item);
      twin = Twin();
    }
    if (random() % 1000 == 0) {
      ASSERT_EQ(manager.setMemorySize(1ULL << (20 + random() % 4)), 1);
    }
    if (step % 300 == 0) {
      ASSERT_EQ(figure("(Current/Max/Cumulative): "), before + live()) << "step " << step;
    }
  }
  EXPECT_GT(figure("Page Outs: "), 0U) << "the test is to reach beyond the budget";
  EXPECT_GT(figure("Reads: "), 0U);
  for (Twin& twin : twins) {
    ASSERT_EQ(twin.item.empty() != 0 ? "" : text(twin.item), twin.content);
    manager.free(twin.item);
  }
  EXPECT_EQ(figure("(Current/Max/Cumulative): "), before);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
}

TEST_F(StoreTest, AnnouncedPinsTakeNoPinAndReadNothing) {
  QRTVirtualPageItem item = stored("near");
  manager.prefetch(item.getOffset());
  pushOut();
  const unsigned long long reads = figure("Paging Statistics - Reads: ");
  manager.prefetch(item.getOffset());
  EXPECT_EQ(figure("Paging Statistics - Reads: "), reads);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
  EXPECT_EQ(text(item), "near");
}

TEST_F(StoreTest, TheMemorySizeIsSetAtAnyTime) {
  EXPECT_EQ(manager.getMemorySize(), 1U << 20);
  EXPECT_EQ(manager.setMemorySize(64ULL << 20), 1);
  pushOut();
  const QRTVirtualMemoryMgr::MemoryInUse full = manager.getMemoryInUse();
  EXPECT_EQ(figure("Page Outs: "), 0U) << "all fits";
  EXPECT_GE(full.pages, 3000U * 1024);
  EXPECT_GE(full.frames, full.pages);
  EXPECT_EQ(full.beyond, 0U);
  EXPECT_EQ(manager.setMemorySize(1), 1);
  EXPECT_EQ(manager.getMemorySize(), 1U << 20) << "the least";
  EXPECT_LE(manager.getMemoryInUse().pages, 1U << 20);
  EXPECT_GT(figure("Page Outs: "), 0U);
  EXPECT_EQ(manager.setMemorySize(0), 1);
  EXPECT_EQ(manager.getMemorySize(), 4U << 20);

  // Everything pinned and more: told by a text of its own, a figure and a line of the list.
  manager.setMemorySize(1);
  std::vector<QRTVirtualPageItem> items(400);
  for (QRTVirtualPageItem& item : items) {
    manager.alloc(4096, item);
  }
  EXPECT_EQ(manager.getMemoryInUse().pinsBeyond, 144U);
  EXPECT_EQ(manager.getMemoryInUse().beyond, 144U * 4096);
  const std::string told = manager.getPinsBeyondMemorySize();
  EXPECT_NE(told.find("beyond the budget: 144,"), std::string::npos) << told;
  std::ostringstream list;
  manager.dumpReferences(list);
  EXPECT_NE(list.str().find("\n" + told + "\n"), std::string::npos);
  for (QRTVirtualPageItem& item : items) {
    manager.dismiss(item);
  }
  EXPECT_EQ(manager.getMemoryInUse().beyond, 0U);
}

TEST_F(StoreTest, ManyPinsInOneCallArePinsAndDismissalsLikeAnyOther) {
  std::vector<unsigned long long> offsets;
  for (int i = 0; i < 300; ++i) {
    offsets.push_back(stored("object " + std::to_string(i)).getOffset());
  }
  pushOut();
  offsets[7] = 0;
  offsets[8] = QRTVirtualPageItem::getInvalidOffset();
  offsets[9] = offsets[299];
  std::vector<void*> addresses(offsets.size(), this);
  EXPECT_EQ(manager.getAddresses(offsets.data(), addresses.data(), 300, 1), 298U);
  EXPECT_STREQ(manager.getLastStoreError(), "") << "0 and kInvalidOffset are no failures";
  for (std::size_t i = 0; i < offsets.size(); ++i) {
    const std::string content = "object " + std::to_string(i == 9 ? 299 : i);
    ASSERT_EQ(addresses[i] == nullptr, i == 7 || i == 8) << i;
    ASSERT_TRUE(addresses[i] == nullptr ||
                std::memcmp(addresses[i], content.data(), content.size()) == 0)
        << i;
  }
  manager.dismiss(offsets[299]);
  EXPECT_NE(dump(0).find("reference count > 0 : 297"), std::string::npos) << "pinned twice";
  manager.getAddress(offsets[299], 0);
  manager.dismiss(offsets.data(), 300);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);

  // Nothing to work on.
  EXPECT_EQ(manager.getAddresses(offsets.data(), addresses.data(), 0, 1), 0U);
  EXPECT_EQ(manager.getAddresses(offsets.data(), nullptr, 300, 1), 0U);
  addresses.assign(300, this);
  EXPECT_EQ(manager.getAddresses(nullptr, addresses.data(), 300, 1), 0U);
  EXPECT_EQ(std::count(addresses.begin(), addresses.end(), nullptr), 300);
  manager.dismiss(nullptr, 300);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
}

TEST_F(StoreTest, AnObjectIsWhereItIsFoundWithoutAPin) {
  // In a slot, and with a span of its own.
  for (const std::string& content : {std::string("near"), std::string(4096, 'n')}) {
    QRTVirtualPageItem item = stored(content);
    const unsigned long long offset = item.getOffset();
    const void* const address = manager.getAddress(item, 1);
    // Where every access is watched, unpinned objects are not to be had.
    const void* const found = manager.getUnpinned(offset);
    EXPECT_THAT(found, testing::AnyOf(address, nullptr));
    manager.dismiss(item);
    EXPECT_EQ(manager.getUnpinned(offset), found);
    EXPECT_EQ(manager.getUnpinned(offset, 0), found);
    EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
    pushOut();
    for (const unsigned long long nothing :
         {offset, 0ULL, QRTVirtualPageItem::getInvalidOffset()}) {
      EXPECT_EQ(manager.getUnpinned(nothing), nullptr);
      EXPECT_EQ(manager.getUnpinned(nothing, 0), nullptr);
    }
    // What was pinned for reading only is not there to be changed.
    ASSERT_NE(manager.getAddress(item, 0), nullptr);
    manager.dismiss(item);
    EXPECT_EQ(manager.getUnpinned(offset), nullptr);
    const auto* const readable = static_cast<const char*>(manager.getUnpinned(offset, 0));
    ASSERT_EQ(readable == nullptr, found == nullptr);
    EXPECT_TRUE(readable == nullptr || std::string(readable, content.size()) == content);
  }
}

TEST_F(StoreTest, TheDumpNamesThePagingFileOnceThereIsOne) {
  EXPECT_EQ(dump(1).find("Paging File - "), std::string::npos);
  pushOut();
  EXPECT_NE(dump(1).find("Paging File - " + directory.path().string()), std::string::npos);
  EXPECT_GT(figure("Page file size: "), 0U);
}

TEST_F(StoreTest, FreeingAPinnedObjectEndsItsPins) {
  QRTVirtualPageItem item;
  manager.alloc(100, item);
  manager.free(item);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
}

}  // namespace
