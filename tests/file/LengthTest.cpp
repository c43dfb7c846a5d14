// Lengths and positions over all of 32 bits, and what cutting off and lengthening does to pages.

#include <gmock/gmock.h>

#include <algorithm>

#include "QRTVirtualFileGZIPReader.h"
#include "file/PagesTest.h"
#include "support/ErrorMatchers.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class LengthTest : public PagesTest {
 protected:
  std::string content() {
    file.seekTo(0);
    buffer.assign(file.size(), '-');
    EXPECT_EQ(file.read(buffer.data(), file.size()), static_cast<int>(buffer.size()));
    return buffer;
  }
};

TEST_F(LengthTest, CuttingOffGivesBackThePagesBehindTheEnd) {
  openFile();
  write(3 * kPage + 10);
  engine.take();
  file.setLength(3 * kPage + 10);
  file.setLength(3 * kPage + 1);
  EXPECT_THAT(engine.take(), IsEmpty()) << "the last page stays, and stays pinned";
  EXPECT_EQ(position(), 3 * kPage + 1);

  file.setLength(kPage + 1);
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(4)", "Deallocate(4)", "Deallocate(3)"));
  EXPECT_EQ(position(), kPage + 1);
  file.seekTo(100);
  file.setLength(kPage);
  EXPECT_THAT(engine.take(), ElementsAre("Deallocate(2)"));
  EXPECT_EQ(position(), 100U) << "in front of the end it stays";
  EXPECT_EQ(content(), std::string(kPage, 'x'));

  write(10);
  file.seekTo(kPage);  // the second page is still pinned and holds nothing in front of the end
  engine.take();
  file.setLength(kPage);
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(5)", "Deallocate(5)"));
  file.reset(false);
  file.setLength(0);
  EXPECT_THAT(engine.take(), ElementsAre("Deallocate(1)")) << "a page that was kept for later";
}

// Pages of this engine are full of question marks.
TEST_F(LengthTest, LengtheningReadsAsZerosAndTakesNoPagesBefore) {
  openFile();
  write(100);
  file.setLength(50);
  file.close();
  engine.take();
  file.setLength(3 * kPage);
  EXPECT_EQ(position(), 50U);
  EXPECT_THAT(engine.take(), ElementsAre("GetAddress(1, true)", "Dismiss(1)"));
  EXPECT_EQ(content(), std::string(50, 'x') + std::string(3 * kPage - 50, '\0'));

  file.setLength(10);
  file.seekTo(5);
  write(1);  // pins the page
  engine.take();
  file.setLength(20);
  file.setLength(2 * kPage);
  EXPECT_THAT(engine.take(), IsEmpty());
  file.seekTo(kPage + 100);
  write(5);  // in the middle of a page that was not there
  const std::string zeros(kPage, '\0');
  EXPECT_EQ(content(),
            "xxxxxxxxxx" + zeros.substr(10) + zeros.substr(0, 100) + "xxxxx" + zeros.substr(105));

  file.reset(false);
  file.setLength(kPage);
  EXPECT_EQ(content(), zeros) << "a page that was kept is not shown again";
}

TEST_F(LengthTest, ALengthThatCannotBeSetLeavesTheFileAsItWas) {
  openFile();
  write(2 * kPage + 5);
  file.seekTo(3);
  engine.refuseGetAddress = true;
  engine.lastError = "the disk is gone";
  const auto error = expectRaised<QRTIllegalStateError>([&] { file.setLength(3 * kPage); });
  EXPECT_THAT(textOf(error), HasSubstr("position 16389 cannot be read back: the disk is gone"));
  EXPECT_EQ(file.size(), 2 * kPage + 5);
  EXPECT_EQ(file.tell(), 3U);
  engine.refuseGetAddress = false;
  EXPECT_EQ(content(), std::string(2 * kPage + 5, 'x'));

  QRTVirtualFile unopened;
  unopened.setLength(10);
  unopened.setLength(7);
  EXPECT_EQ(unopened.size(), 7U);
}

TEST_F(LengthTest, ACompressingFileIsCutBetweenMembersOnly) {
  openFile(true);
  write(5000, 'a');
  const auto error = expectRaised<QRTIllegalStateError>([&] { file.setLength(0); });
  EXPECT_THAT(textOf(error), HasSubstr("cannot be set to 0 bytes while a gzip member is open"));
  file.close();
  const unsigned int first = file.size();
  write(100, 'b');
  file.close();
  file.setLength(first);
  write(10, 'c');
  file.close();
  file.seekTo(0);
  buffer.assign(6000, '-');
  EXPECT_EQ(QRTVirtualFileGZIPReader(file).read(buffer.data(), 6000), 5010U);
  EXPECT_EQ(buffer.substr(0, 5010), std::string(5000, 'a') + std::string(10, 'c'));
}

TEST_F(LengthTest, PositionsAndLengthsReachAllOf32Bits) {
  constexpr unsigned int kLast = 0xFFFFFFFF;
  file.open(&manager, 0, 1U << 24, false);
  EXPECT_EQ(file.tell(), 0U);
  for (const unsigned int position : {7U, 0x80000000U, 5U, kLast, 0xFFFFFFF0U}) {
    const unsigned int before = file.size();
    file.seekTo(position);
    EXPECT_EQ(file.tell(), position);
    EXPECT_EQ(file.size(), std::max(before, position));
  }
  EXPECT_THAT(engine.take(), IsEmpty());
  file.setLength(kLast);
  EXPECT_EQ(read(20), 15) << "up to the end";
  EXPECT_EQ(file.tell(), kLast);
  expectRaised<QRTOutOfMemoryError>([&] { write(1); });
  engine.take();
  file.seekTo(1);
  EXPECT_THAT(engine.take(), ElementsAre("Dismiss(1)")) << "a seek leaves the page";
  file.setLength(0x80000001U);
  EXPECT_EQ(file.size(), 0x80000001U);
  EXPECT_EQ(file.tell(), 1U);
  EXPECT_THAT(engine.take(), ElementsAre("Deallocate(1)"));
}

}  // namespace
