// Which pages a virtual file allocates, pins, unpins and gives back, call by call.

#include <gmock/gmock.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "HZSStreams/HZSGZIPOutputStream.h"
#include "QRTVirtualFileGZIPReader.h"
#include "file/PagesTest.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/TestSeed.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(PagesTest, AFreshFileWorksWhereverNoPageIsNeeded) {
  EXPECT_EQ(file.getLength(), 0);
  EXPECT_EQ(read(10), 0);
  EXPECT_EQ(file.seek(0, kEnd), 0);
  EXPECT_EQ(file.close(), 1);
  EXPECT_EQ(write(0), 0);
  file.reset(true);
  file.dispose();

  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { write(1); })), "QRT_ASSERT(m_memMgr);");
  EXPECT_EQ(length(), 0U);
  EXPECT_EQ(file.seek(5, kSet), 5);
  file.seek(0, kSet);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { read(1); })), "QRT_ASSERT(m_memMgr);");
}

TEST_F(PagesTest, APageIsPinnedOnlyWhileItsEndIsNotReached) {
  openFile();
  EXPECT_EQ(write(kPage), static_cast<int>(kPage));
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)", "Dismiss(1)"));
  EXPECT_EQ(write(1), 1);
  EXPECT_EQ(write(1), 1);
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)"));

  file.seek(kPage + 100, kSet);
  EXPECT_THAT(engine.take(), IsEmpty()) << "a seek inside the page keeps it pinned";
  file.seek(kPage - 1, kSet);
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(2)"));
  EXPECT_EQ(read(3), 3);
  EXPECT_THAT(engine.take(),
              ElementsAre("GetAddress(1, true)", "Dismiss(1)", "GetAddress(2, true)"));
  EXPECT_EQ(file.close(), 1);
  EXPECT_EQ(file.close(), 1);
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(2)"));
  EXPECT_EQ(position(), kPage + 2);
}

TEST_F(PagesTest, SeeksLengthenWithoutAllocatingAndAreRefusedOutsideOf32Bits) {
  openFile();
  struct Case {
    int offset;
    QRTFmFile::seekorigin origin;
    unsigned int result;
    unsigned int length;
  };
  const auto mark = [](unsigned int value) { return testing::Message() << value; };
  for (const Case& c :
       {Case{50, kSet, 50, 50}, Case{-10, kEnd, 40, 50}, Case{5, kCurrent, 45, 50},
        Case{7, static_cast<QRTFmFile::seekorigin>(3), 7, 50}, Case{-1, kSet, -1U, 50},
        Case{-8, kCurrent, -1U, 50}, Case{-51, kEnd, -1U, 50},
        Case{INT_MAX, kSet, 0x7FFFFFFF, 0x7FFFFFFF},
        Case{INT_MAX, kCurrent, 0xFFFFFFFE, 0xFFFFFFFE}, Case{2, kCurrent, -1U, 0xFFFFFFFE},
        Case{1, kCurrent, -1U, 0xFFFFFFFE}, Case{1, kEnd, -1U, 0xFFFFFFFE}}) {
    SCOPED_TRACE(mark(static_cast<unsigned int>(c.offset)));
    const unsigned int before = position();
    EXPECT_EQ(static_cast<unsigned int>(file.seek(c.offset, c.origin)), c.result);
    EXPECT_EQ(length(), c.length);
    EXPECT_EQ(position(), c.result == -1U ? before : c.result);
  }
  EXPECT_THAT(engine.take(), IsEmpty());
}

TEST_F(PagesTest, TheLastByteOf32BitsIsUsableAndNoneBehindIt) {
  file.open(&manager, 0, 1U << 24, false);  // of 256 pages the last is touched
  ASSERT_EQ(file.seek(INT_MAX, kSet), INT_MAX);
  ASSERT_EQ(static_cast<unsigned int>(file.seek(INT_MAX, kCurrent)), 0xFFFFFFFE);
  const std::string text = textOf(expectRaised<QRTOutOfMemoryError>([&] { write(2); }));
  EXPECT_THAT(text, HasSubstr("2 bytes at position 4294967294"));
  EXPECT_EQ(position(), 0xFFFFFFFE);
  EXPECT_EQ(length(), 0xFFFFFFFE);
  EXPECT_THAT(engine.take(), IsEmpty());

  EXPECT_EQ(write(1), 1);
  EXPECT_EQ(length(), 0xFFFFFFFF);
  EXPECT_EQ(read(1), 0);
  EXPECT_EQ(file.seek(0, kCurrent), -1) << "what a position there would look like";
  EXPECT_EQ(static_cast<unsigned int>(file.seek(-1, kCurrent)), 0xFFFFFFFE);
  EXPECT_EQ(read(1), 1);
  file.seek(0, kSet);
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(16777216)", "Dismiss(1)"));
}

TEST_F(PagesTest, ResetKeepsOrGivesUpThePages) {
  openFile();
  write(kPage + 1);
  file.reset(false);
  EXPECT_EQ(length(), 0U);
  engine.take();
  write(kPage + 1);
  EXPECT_THAT(engine.take(),
              ElementsAre("GetAddress(1, true)", "Dismiss(1)", "GetAddress(2, true)"));

  file.dispose();
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(2)", "Deallocate(2)", "Deallocate(1)"))
      << "unpinned before it is given back";
  EXPECT_EQ(length(), kPage + 1);
  file.reset(true);
  write(1);
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)"));
}

TEST_F(PagesTest, OpeningAgainLeavesTheOldManager) {
  QRTVirtualMemoryMgr other(0U, 0U, 64);
  engine.take();
  openFile();
  write(10);
  file.open(&other, 0, 0, false);
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)", "Dismiss(1)", "Deallocate(1)"));
  EXPECT_EQ(length(), 0U);
  file.open(100U, 0, 16, false);
  EXPECT_THAT(engine.take(), ElementsAre("VirtualMemoryPool(100)"));
  write(20);
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(16)", "Dismiss(1)", "Allocate(16)"));
  openFile();
  EXPECT_THAT(engine.take(),
              ElementsAre("Dismiss(2)", "Deallocate(2)", "Deallocate(1)", "~VirtualMemoryPool()"));
}

TEST_F(PagesTest, AManagerThatCannotBeMadeLeavesTheFileAsItWas) {
  openFile();
  write(3, 'k');
  engine.onConstruct = [] { throw std::bad_alloc(); };
  const auto error = expectRaised<QRTOutOfMemoryError>([&] { file.open(100U, 0, kPage, false); });
  const std::vector<TraceEntry> trace = traceOf(error);
  EXPECT_EQ(trace.back(), (TraceEntry{"QRTVirtualFile.cpp", "", "QRT_RETHROW"}));
  engine.onConstruct = nullptr;
  file.seek(0, kSet);
  EXPECT_EQ(read(5), 3);
  EXPECT_EQ(buffer, "kkk--");
}

/// A host's file that begins with a header, in the manager it is given or in another one.
class FileWithHeader : public QRTVirtualFile {
 public:
  using QRTVirtualFile::open;
  void open(QRTVirtualMemoryMgr* memMgr, unsigned int unused, unsigned int size,
            bool compress) override {
    if (take) {
      QRTVirtualFile::open(memMgr, unused, size, compress);
      write("header", 6);
    }
    if (elsewhere != nullptr) {
      QRTVirtualFile::open(elsewhere, unused, size, compress);
    }
    if (raise) {
      throw std::runtime_error("no room for the rest of the header");
    }
  }

  QRTVirtualMemoryMgr* elsewhere = nullptr;
  bool take = true;
  bool raise = true;
};

TEST_F(PagesTest, AManagerTakenByAnOverrideThatRaisesStaysTheFilesOwn) {
  auto taking = std::make_unique<FileWithHeader>();
  EXPECT_THROW(taking->open(1U, 0, kPage, false), std::runtime_error);
  ASSERT_THAT(engine.take(), ElementsAre("VirtualMemoryPool(1)", "Allocate(8192)"));
  taking->seek(0, kSet);
  buffer.assign(6, '-');
  EXPECT_EQ(taking->read(buffer.data(), 6), 6);
  EXPECT_EQ(buffer, "header");
  taking.reset();
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(1)", "~VirtualMemoryPool()"));
}

TEST_F(PagesTest, AManagerThatAnOverrideDoesNotKeepEnds) {
  FileWithHeader refusing;
  refusing.take = false;
  EXPECT_THROW(refusing.open(1U, 0, kPage, false), std::runtime_error);
  EXPECT_THAT(engine.take(), ElementsAre("VirtualMemoryPool(1)", "~VirtualMemoryPool()"));

  for (const bool raise : {false, true}) {
    auto leaving = std::make_unique<FileWithHeader>();
    leaving->elsewhere = &manager;
    leaving->raise = raise;
    try {
      leaving->open(1U, 0, kPage, false);
    } catch (const std::runtime_error&) {
      EXPECT_TRUE(raise);
    }
    EXPECT_EQ(engine.take().back(), "~VirtualMemoryPool()");
    leaving.reset();
    ASSERT_THAT(engine.take(), IsEmpty()) << "the manager that it ends with is borrowed";
  }
}

TEST_F(PagesTest, EndingAFileGivesBackWhatItBorrowed) {
  for (const bool owned : {false, true}) {
    engine.take();
    auto ending = std::make_unique<QRTVirtualFile>();
    if (owned) {
      ending->open(1U, 0, kPage, false);
    } else {
      ending->open(&manager, 0, kPage, false);
    }
    ending->write("content", 7);
    ending.reset();
    const std::vector<std::string> calls = engine.take();
    EXPECT_EQ(calls.back(), owned ? "~VirtualMemoryPool()" : "Deallocate(1)");
    EXPECT_EQ(calls.end()[-2], "Dismiss(1)");
  }
}

TEST_F(PagesTest, AWriteOrReadThatIsInterruptedSaysHowFarItGot) {
  openFile();
  write(kPage - 2);
  engine.refuseAllocate = true;
  expectRaised<QRTOutOfMemoryError>([&] { write(100, 'y'); });
  EXPECT_EQ(position(), kPage);
  EXPECT_EQ(length(), kPage);
  engine.refuseAllocate = false;
  EXPECT_EQ(write(100, 'z'), 100) << "the file works again when there is room";

  file.seek(kPage - 2, kSet);
  buffer.assign(102, '-');
  file.read(buffer.data(), 2);
  engine.refuseGetAddress = true;
  engine.lastError = "the disk is gone";
  const auto error = expectRaised<QRTIllegalStateError>([&] { file.read(buffer.data() + 2, 100); });
  EXPECT_THAT(textOf(error), HasSubstr("position 8192 cannot be read back: the disk is gone"));
  EXPECT_EQ(position(), kPage);
  engine.refuseGetAddress = false;
  EXPECT_EQ(file.read(buffer.data() + 2, 100), 100);
  EXPECT_EQ(buffer, "yy" + std::string(100, 'z'));
}

TEST_F(PagesTest, NullDataIsRefusedUnlessThereIsNone) {
  openFile();
  EXPECT_EQ(file.write(nullptr, 0), 0);
  EXPECT_EQ(file.read(nullptr, 0), 0);
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { file.write(nullptr, 1); })),
            "QRT_ASSERT(data);");
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { file.read(nullptr, 1); })),
            "QRT_ASSERT(data);");
  EXPECT_THAT(engine.take(), IsEmpty());
}

TEST_F(PagesTest, TheNestedStreamStoresBytesAsTheyAre) {
  QRTVirtualFile::QRTVirtualFileOuputStream stream;
  const auto error = expectRaised<QRTAssertError>([&] { stream.write("a", 1); });
  EXPECT_EQ(textOf(error), "QRT_ASSERT(m_vfileIo);");
  EXPECT_THAT(traceOf(error), ElementsAre(TraceEntry{"QRTVirtualFile.cpp", "", "QRT_THROW"}));

  openFile(true);
  stream.init(file);
  stream.write("", 0);
  EXPECT_EQ(length(), 0U);
  stream.write("plain", 5);
  stream.flush();
  stream.close();
  EXPECT_THAT(engine.take(), ElementsAre("Allocate(8192)")) << "still pinned";
  file.seek(0, kSet);
  EXPECT_EQ(read(5), 5);
  EXPECT_EQ(buffer, "plain");
}

TEST_F(PagesTest, ACompressorThatCannotBeMadeChangesNothing) {
  openFile(true);
  for (std::size_t nth = 1;; ++nth) {
    const FailingNew failing(nth);
    try {
      file.write("abc", 3);
      EXPECT_GT(nth, 3U) << "making a compressor takes memory";
      break;
    } catch (const QRTOutOfMemoryError& error) {
      const FailingNew::Pause pause;
      EXPECT_THAT(traceOf(error), ElementsAre(TraceEntry{"QRTVirtualFile.cpp", "", "QRT_THROW"}));
    }
    EXPECT_EQ(length(), 0U);
  }
}

TEST_F(PagesTest, ClosingEndsEvenWhenTheCompressorCannot) {
  openFile(true);
  EXPECT_EQ(write(100), 100);
  engine.refuseAllocate = true;
  expectRaised<QRTOutOfMemoryError>([&] { file.close(); });
  EXPECT_EQ(file.close(), 1);
  EXPECT_EQ(length(), 0U);
  engine.refuseAllocate = false;
  EXPECT_EQ(write(100), 100);
  EXPECT_EQ(file.close(), 1);
  EXPECT_GT(length(), 18U) << "a member was stored";
}

/// Bytes that do not shrink, so that they leave the compressor while they are written.
std::string noise(std::size_t n) {
  std::mt19937 random(testSeed());
  std::string bytes(n, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  return bytes;
}

TEST_F(PagesTest, AMemberThatAWriteLostIsReportedOnceOrGoesWithItsPages) {
  const std::string bytes = noise(1U << 20);
  const auto loseAMember = [&] {
    openFile(true);
    file.write("begun", 5);
    engine.refuseAllocate = true;
    expectRaised<QRTOutOfMemoryError>(
        [&] { file.write(bytes.data(), static_cast<unsigned int>(bytes.size())); });
    engine.refuseAllocate = false;
    expectRaised<QRTIllegalStateError>([&] { write(1); });
  };

  loseAMember();
  const auto error = expectRaised<QRTIllegalStateError>([&] { file.close(); });
  EXPECT_THAT(textOf(error), HasSubstr("1048581 bytes were given to it"));
  EXPECT_EQ(file.close(), 1);
  EXPECT_EQ(write(100), 100) << "a new member";

  loseAMember();
  file.reset(true);
  EXPECT_TRUE(engine.objects.empty());
  EXPECT_EQ(length(), 0U);
  EXPECT_EQ(file.close(), 1);

  loseAMember();
  file.dispose();
  EXPECT_TRUE(engine.objects.empty());
  EXPECT_EQ(file.close(), 1);

  // No write has failed yet, but the end of the member does not fit.
  openFile(true);
  write(100);
  engine.refuseAllocate = true;
  file.reset(true);
  EXPECT_TRUE(engine.objects.empty());
  EXPECT_EQ(file.close(), 1);
}

// The second page cannot be read when the reader asks for it; the first one has been moved by then.
TEST_F(PagesTest, AReaderLosesNothingWhenAPageCannotBeReadForAMoment) {
  openFile(true);
  const std::string content = noise(5 * kPage);
  file.write(content.data(), static_cast<unsigned int>(content.size()));
  file.close();
  file.seekTo(0);
  QRTVirtualFileGZIPReader reader(file, kPage + 100);
  std::string back(content.size(), '-');
  unsigned int done = reader.read(back.data(), 100);
  EXPECT_EQ(done, 100U);

  engine.refuseGetAddress = true;
  const auto room = static_cast<unsigned int>(back.size());
  done += reader.read(back.data() + done, room - done);
  EXPECT_GT(done, kPage / 2) << "what was read ahead is given first";
  for (int again = 0; again < 2; ++again) {
    const auto error =
        expectRaised<QRTIllegalStateError>([&] { reader.read(back.data() + done, room - done); });
    EXPECT_THAT(textOf(error), HasSubstr("cannot be read back"));
  }
  engine.refuseGetAddress = false;
  done += reader.read(back.data() + done, room - done);
  EXPECT_TRUE(back == content);
  char more = 0;
  EXPECT_EQ(reader.read(&more, 1), 0U);
}

}  // namespace
