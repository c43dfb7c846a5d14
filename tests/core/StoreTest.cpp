#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "support/ErrorMatchers.h"
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

TEST_F(StoreTest, AStaleHandleReachesNobodyElse) {
  QRTVirtualPageItem item = stored("first life");
  QRTVirtualPageItem copy = item;
  manager.free(item);
  EXPECT_EQ(text(copy), "(none)");
  EXPECT_THAT(manager.getLastStoreError(), testing::HasSubstr("names no object"));
  QRTVirtualPageItem next = stored("other life");
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(text(copy), "(none)");
    manager.dirty(copy);
    manager.dismiss(copy);
    manager.free(copy);
    EXPECT_EQ(copy.empty(), 1);
    EXPECT_EQ(text(next), "other life") << "freeing a stale copy frees nothing";
    // Let one slot live through many objects.
    copy = next;
    manager.free(next);
    next = stored("other life");
  }
  EXPECT_EQ(figure("(Current/Max/Cumulative): "), 1U);
}

TEST_F(StoreTest, HandlesOfNoStoreAreIgnored) {
  QRTVirtualPageItem real = stored("here");
  std::mt19937_64 random(testSeed());
  for (int i = 0; i < 20000; ++i) {
    const unsigned long long offset = random() >> (random() % 64);
    if (offset == real.getOffset()) {
      continue;
    }
    QRTVirtualPageItem foreign(offset, 4);
    ASSERT_EQ(manager.getAddress(offset, 1), nullptr) << offset;
    ASSERT_EQ(manager.getUnpinned(offset), nullptr) << offset;
    manager.prefetch(offset);
    manager.dismiss(offset);
    manager.dirty(foreign);
    manager.free(foreign);
  }
  EXPECT_EQ(text(real), "here");
}

TEST_F(StoreTest, OneDismissTooManyTakesNoLaterPin) {
  QRTVirtualPageItem item = stored("kept");
  manager.dismiss(item);
  manager.dismiss(item);
  const void* const pinned = manager.getAddress(item, 1);
  ASSERT_NE(pinned, nullptr);
  EXPECT_NE(dump(0).find("reference count > 0 : 1\n"), std::string::npos);
  pushOut();
  EXPECT_EQ(manager.getAddress(item, 1), pinned) << "the pin holds the object where it is";
  EXPECT_EQ(std::memcmp(pinned, "kept", 4), 0);
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

TEST_F(StoreTest, AnObjectIsWhereItIsFoundWithoutAPin) {
  QRTVirtualPageItem item = stored("near");
  const void* const address = manager.getAddress(item, 1);
  // Where every access is watched, unpinned objects are not to be had.
  const void* const found = manager.getUnpinned(item.getOffset());
  EXPECT_THAT(found, testing::AnyOf(address, nullptr));
  manager.dismiss(item);
  EXPECT_EQ(manager.getUnpinned(item.getOffset()), found);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
  pushOut();
  EXPECT_EQ(manager.getUnpinned(item.getOffset()), nullptr);
  for (const unsigned long long nothing : {0ULL, QRTVirtualPageItem::getInvalidOffset()}) {
    EXPECT_EQ(manager.getUnpinned(nothing), nullptr);
  }
}

TEST_F(StoreTest, ChangesThroughAWritingPinSurviveBeingPagedOut) {
  QRTVirtualPageItem item = stored("before");
  pushOut();
  std::memcpy(manager.getAddress(item, 1), "after!", 6);
  manager.dismiss(item);
  pushOut();
  EXPECT_EQ(text(item), "after!");
  std::memcpy(manager.getAddress(item, 0), "dirty!", 6);
  manager.dirty(item);
  manager.dismiss(item);
  pushOut();
  EXPECT_EQ(text(item), "dirty!");
}

TEST_F(StoreTest, ServesEverySize) {
  const auto quarter = [](unsigned int size) { return size < 4 ? size : size / 4 * 3; };
  for (const unsigned int size : {0U, 1U, 15U, 16U, 511U, 512U, 4095U, 4096U, 4097U, 8192U, 65535U,
                                  65536U, 65537U, 1U << 20U, 3U << 20U}) {
    SCOPED_TRACE(size);
    QRTVirtualPageItem item;
    auto* const bytes = static_cast<char*>(manager.alloc(size, item));
    std::memset(bytes, 'x', size);
    manager.dismiss(item);
    EXPECT_EQ(item.getSize(), size);
    pushOut();
    EXPECT_EQ(text(item), std::string(size, 'x'));
    manager.alloc(quarter(size), item);
    manager.dismiss(item);
    manager.alloc(size, item);
    manager.dismiss(item);
    EXPECT_EQ(text(item).substr(0, quarter(size)), std::string(quarter(size), 'x'));
    manager.free(item);
  }
}

// Four gigabytes are to be had on some machines and not on others; both are fine when told.
TEST_F(StoreTest, TheLargestSizeWorksOrIsRefusedWithTheFigures) {
  QRTVirtualPageItem small = stored("small");
  QRTVirtualPageItem item;
  try {
    auto* const bytes = static_cast<char*>(manager.alloc(0xFFFFFFFFU, item));
    bytes[0] = 'a';
    bytes[0xFFFFFFFEU] = 'z';
    EXPECT_EQ(item.getSize(), 0xFFFFFFFFU);
    manager.free(item);
  } catch (const QRTOutOfMemoryError&) {
    EXPECT_EQ(item.empty(), 1);
    EXPECT_THAT(manager.getLastStoreError(), testing::HasSubstr("4294967295"));
  }
  EXPECT_EQ(text(small), "small");
}

TEST_F(StoreTest, TheDumpNamesThePagingFileOnceThereIsOne) {
  EXPECT_EQ(dump(1).find("Paging File - "), std::string::npos);
  pushOut();
  EXPECT_NE(dump(1).find("Paging File - " + directory.path().string()), std::string::npos);
  EXPECT_GT(figure("Page file size: "), 0U);
}

TEST_F(StoreTest, ReportsWhatIsLeftPinned) {
  QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(1);
  manager.throwExceptionOnReferenceLeak();
  QRTVirtualPageItem leaked = stored("leaked object");
  manager.getAddress(leaked, 1);
  manager.getAddress(leaked, 1);
  for (int i = 0; i < 2; ++i) {
    const auto error =
        expectRaised<QRTIllegalStateError>([this] { manager.throwExceptionOnReferenceLeak(); });
    EXPECT_EQ(textOf(error), "Reference Leak Error, total objects with reference count > 0 : 1");
    std::ostringstream os;
    manager.dumpReferences(os);
    EXPECT_EQ(os.str(), "Objects with reference count > 0: 1\n  offset " +
                            std::to_string(leaked.getOffset()) +
                            ", 13 bytes, pins 2: 6c 65 61 6b 65 64 20 6f 62 6a 65 63 74"
                            "  |leaked object|\n");
  }
  manager.dismiss(leaked);
  manager.dismiss(leaked);
  manager.throwExceptionOnReferenceLeak();
  QRTVirtualMemoryMgr::setExceptionOnReferenceLeak(0);
}

TEST_F(StoreTest, FreeingAPinnedObjectEndsItsPins) {
  QRTVirtualPageItem item;
  manager.alloc(100, item);
  manager.free(item);
  EXPECT_EQ(dump(0).find("reference count > 0"), std::string::npos);
}

}  // namespace
