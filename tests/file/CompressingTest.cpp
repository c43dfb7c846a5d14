// Compressing files, and the reader that brings their content back.

#include <gmock/gmock.h>

#include "file/FileTest.h"
#include "support/ErrorMatchers.h"

namespace {

using testing::HasSubstr;
using namespace std::literals;

class CompressingTest : public FileTest {
 protected:
  CompressingTest() { file.open(&manager, 0, 4096, true); }
  unsigned int length() { return static_cast<unsigned int>(file.getLength()); }

  /// A member with the text.
  std::string compressed(const std::string& text) {
    write(file, text);
    file.close();
    file.seekTo(0);
    return read(file);
  }

  /// What a reader gives of the bytes before it raises the error whose text has the problem in it.
  std::string contentUntil(const std::string& problem, const std::string& bytes,
                           unsigned int bufferSize = 16384) {
    QRTVirtualFile cut;
    cut.open(&manager, 0, 4096, false);
    write(cut, bytes);
    cut.seekTo(0);
    QRTVirtualFileGZIPReader reader(cut, bufferSize);
    std::string content;
    std::string room(5000, '\0');
    const auto error = expectRaised<QRTIllegalStateError>([&] {
      while (const unsigned int got = reader.read(room.data(), 5000)) {
        content.append(room, 0, got);
      }
    });
    EXPECT_THAT(textOf(error), HasSubstr(problem));
    EXPECT_THAT(textOf(error), HasSubstr("after " + std::to_string(content.size()) + " bytes"));
    expectRaised<QRTIllegalStateError>([&] { reader.read(room.data(), 1); });
    return content;
  }

  QRTVirtualFile file;
};

TEST_F(CompressingTest, EveryCloseEndsAMemberAndAllOfThemComeBack) {
  std::string all;
  for (const std::size_t size : {100U, 0U, 3000000U, 5U}) {
    const std::string text = words(size);
    for (std::size_t at = 0; at < size;) {
      const std::string piece = text.substr(at, 1 + random() % 20000);
      write(file, piece);
      at += piece.size();
    }
    write(file, "");
    EXPECT_EQ(file.close(), 1);
    all += text;
  }
  EXPECT_LT(length(), all.size() / 2);
  for (const auto& [piece, buffer] : {std::pair{4000U, 16384U}, {1U << 20, 0U}, {7U, 100U}}) {
    file.seek(0, QRTFmFile::eSeekSet);
    EXPECT_TRUE(inflated(file, piece, buffer) == all);
  }
  EXPECT_EQ(inflated(file), "") << "at the end of the file there is nothing more";
}

TEST_F(CompressingTest, ResetBeginsANewFileThatStillCompresses) {
  write(file, words(100000));
  file.reset(false);
  EXPECT_EQ(length(), 0U);
  file.open(1U << 20, 0, 0, false);
  write(file, "still compressed");
  file.close();
  file.seek(0, QRTFmFile::eSeekSet);
  EXPECT_EQ(inflated(file), "still compressed");
}

TEST_F(CompressingTest, ACutOrDamagedStreamGivesWhatIsGoodAndThenAnError) {
  const std::string text = words(300000);
  const std::string gzip = compressed(text);
  const std::string half = contentUntil("the file ends inside it", gzip.substr(0, gzip.size() / 2));
  EXPECT_GT(half.size(), text.size() / 3);
  EXPECT_TRUE(half == text.substr(0, half.size()));
  EXPECT_TRUE(contentUntil("the file ends inside it", gzip.substr(0, gzip.size() - 1)) == text);
  EXPECT_TRUE(contentUntil("position " + std::to_string(gzip.size()), gzip + '\x1F') == text)
      << "which may be how the next member began";

  std::string damaged = gzip;
  damaged[damaged.size() - 6] = static_cast<char>(damaged[damaged.size() - 6] ^ 1);
  EXPECT_TRUE(contentUntil("position 0 ", damaged) == text) << "its checksum does not fit";
}

TEST_F(CompressingTest, TrailingBytesAreCalledThatWithTheirPlace) {
  const std::string text = words(3000);
  const std::string gzip = compressed(text);
  const std::string zeros(20000, '\0');
  for (const std::string& trailing : {"no member"s, "x"s, "\x1F!"s, "\x8B\x1F"s}) {
    for (const std::size_t padding : {0U, 1U, 20000U}) {
      for (const unsigned int bufferSize : {0U, 16384U}) {  // also a byte of the two at a time
        SCOPED_TRACE(testing::Message() << trailing << padding << ' ' << bufferSize);
        const std::string where = std::to_string(gzip.size() + padding);
        EXPECT_EQ(contentUntil("trailing bytes at position " + where + " ",
                               gzip + zeros.substr(0, padding) + trailing, bufferSize),
                  text);
      }
    }
  }
  EXPECT_EQ(contentUntil("the gzip member at position 0 ", zeros), "") << "zeros behind nothing";
}

TEST_F(CompressingTest, ZerosBehindAMemberArePadding) {
  write(file, "one");
  file.close();
  const unsigned int member = length();
  for (const unsigned int padding : {1U, 7U, 50000U}) {
    file.setLength(member + padding);
    for (const unsigned int buffer : {0U, 7U, 16384U}) {
      file.seekTo(0);
      EXPECT_EQ(inflated(file, 5, buffer), "one") << padding << " bytes, " << buffer;
    }
  }
  file.seekTo(length());
  write(file, "two");
  file.close();
  file.seekTo(0);
  EXPECT_EQ(inflated(file, 5, 0), "onetwo") << "in front of another member as well";
}

}  // namespace
