// Every way to call open: which manager it takes, whatever the types of the arguments.

#include <gmock/gmock.h>

#include <climits>
#include <cstddef>
#include <functional>

#include "file/PagesTest.h"
#include "support/ErrorMatchers.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using OpenFormsTest = PagesTest;

TEST_F(OpenFormsTest, AnIntegerIsTheSizeOfAManagerOfItsOwn) {
  enum Sizes { eSmall = 100 };
  const std::size_t length = 100;
  struct Case {
    std::function<void(QRTVirtualFile&)> open;
    const char* made;
  };
  const Case cases[] = {
      {[](auto& f) { f.open(0, 0, 0, false); }, "VirtualMemoryPool(4194304)"},
      {[](auto& f) { f.open(0U, 0U, 0U, false); }, "VirtualMemoryPool(4194304)"},
      {[](auto& f) { f.open(0L, 0, 8192, false); }, "VirtualMemoryPool(4194304)"},
      {[](auto& f) { f.open(0ULL, 0, 8192, false); }, "VirtualMemoryPool(4194304)"},
      {[](auto& f) { f.open(100, 0, 8192, false); }, "VirtualMemoryPool(100)"},
      {[](auto& f) { f.open(100U, 1, 8192U, true); }, "VirtualMemoryPool(100)"},
      {[](auto& f) { f.open(static_cast<short>(100), 0, 0, false); }, "VirtualMemoryPool(100)"},
      {[&](auto& f) { f.open(length, 0, 0, false); }, "VirtualMemoryPool(100)"},
      {[](auto& f) { f.open(eSmall, 0, 0, false); }, "VirtualMemoryPool(100)"},
      {[](auto& f) { f.open(1 << 30, 0, 0, false); }, "VirtualMemoryPool(1073741824)"},
      {[](auto& f) { f.open(INT_MIN, 0, 0, false); }, "VirtualMemoryPool(2147483648)"},
      {[](auto& f) { f.open(0xFFFFFFFFLL, 0, 0, false); }, "VirtualMemoryPool(4294967295)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.made);
    QRTVirtualFile opened;
    c.open(opened);
    EXPECT_THAT(engine.take(), ElementsAre(c.made));
    opened.open(nullptr, 0, 0, false);
    EXPECT_THAT(engine.take(), ElementsAre("~VirtualMemoryPool()")) << "it was the file's own";
  }
}

TEST_F(OpenFormsTest, APointerIsAManagerThatIsBorrowed) {
  class Manager : public QRTVirtualMemoryMgr {
   public:
    using QRTVirtualMemoryMgr::QRTVirtualMemoryMgr;
  };
  Manager derived(100U);
  engine.take();
  for (QRTVirtualMemoryMgr* const borrowed :
       {&manager, static_cast<QRTVirtualMemoryMgr*>(&derived)}) {
    QRTVirtualFile opened;
    opened.open(borrowed, 0, 0, false);
    opened.write("x", 1);
    EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)"));
    opened.open(&derived, 0U, 4096U, false);
    EXPECT_THAT(engine.take(), ElementsAre("Dismiss(1)", "Deallocate(1)"));
    QRTVirtualMemoryMgr* const none = nullptr;
    opened.open(none, 0, 8192, false);
    opened.open(nullptr, 0, 8192, false);
    EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { opened.write("x", 1); })),
              "QRT_ASSERT(m_memMgr);");
    EXPECT_THAT(engine.take(), IsEmpty());
    engine.objects.clear();
  }
  // By their exact types, and those of a file of the system.
  using ByManager =
      void (QRTVirtualFile::*)(QRTVirtualMemoryMgr*, unsigned int, unsigned int, bool);
  using BySize = void (QRTVirtualFile::*)(unsigned int, unsigned int, unsigned int, bool);
  const ByManager byManager = &QRTVirtualFile::open;
  const BySize bySize = &QRTVirtualFile::open;
  (file.*bySize)(100U, 0, 0, false);
  (file.*byManager)(&manager, 0, 0, false);
  EXPECT_THAT(engine.take(), ElementsAre("VirtualMemoryPool(100)", "~VirtualMemoryPool()"));
  EXPECT_EQ(file.open("no such folder/file", QRTFmFile::eOpenExisting, 0), 0);
  EXPECT_EQ(file.open(I18NString("no such folder/file"), QRTFmFile::eOpenExisting, 1), 0);
  EXPECT_EQ(file.open(QRTFmFile::eStdOut), 1);
  EXPECT_EQ(write(5), 5) << "its pages are elsewhere";
  file.reset(true);  // before the other manager ends, whose engine is of the same record
}

TEST_F(OpenFormsTest, ASizeThatIsNoneLeavesTheFileAsItWas) {
  openFile();
  write(3);
  engine.take();
  for (const long long size : {-1LL, 1LL << 32, LLONG_MIN}) {
    const auto error = expectRaised<QRTAssertError>([&] { file.open(size, 0, 0, false); });
    EXPECT_THAT(textOf(error), testing::HasSubstr("a memory size is 0 to 4294967295 bytes"));
  }
  EXPECT_THAT(engine.take(), IsEmpty());
  EXPECT_EQ(length(), 3U);
}

}  // namespace
