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
  write(file, text);
  file.close();
  file.seek(0, QRTFmFile::eSeekSet);
  const std::string gzip = read(file);

  QRTVirtualFile cut;
  cut.open(&manager, 0, 4096, false);
  const auto contentOf = [&](const std::string& bytes, const std::string& problem,
                             unsigned int bufferSize = 16384) {
    cut.reset(false);
    write(cut, bytes);
    cut.seek(0, QRTFmFile::eSeekSet);
    QRTVirtualFileGZIPReader reader(cut, bufferSize);
    std::string room(text.size() + 1, '\0');
    unsigned int got = 0;
    const auto error = expectRaised<QRTIllegalStateError>([&] {
      for (unsigned int n = 1; n != 0; got += n) {
        n = reader.read(room.data() + got, 5000);
      }
    });
    EXPECT_THAT(textOf(error), HasSubstr(problem));
    EXPECT_THAT(textOf(error), HasSubstr("after " + std::to_string(got) + " bytes"));
    char more = 0;
    expectRaised<QRTIllegalStateError>([&] { reader.read(&more, 1); });
    room.resize(got);
    return room;
  };
  const std::string half = contentOf(gzip.substr(0, gzip.size() / 2), "the file ends inside it");
  EXPECT_GT(half.size(), text.size() / 3);
  EXPECT_TRUE(half == text.substr(0, half.size()));
  EXPECT_TRUE(contentOf(gzip.substr(0, gzip.size() - 1), "the file ends inside it") == text);
  EXPECT_TRUE(contentOf(gzip + '\x1F', "position " + std::to_string(gzip.size())) == text)
      << "which may be how the next member began";

  std::string damaged = gzip;
  damaged[damaged.size() - 6] = static_cast<char>(damaged[damaged.size() - 6] ^ 1);
  EXPECT_TRUE(contentOf(damaged, "position 0 ") == text) << "its checksum does not fit";

  const std::string zeros(20000, '\0');
  for (const std::string& trailing : {"no member"s, "x"s, "\x1F!"s, "\x8B\x1F"s}) {
    for (const std::size_t padding : {0U, 1U, 20000U}) {
      for (const unsigned int bufferSize : {0U, 16384U}) {  // also a byte of the two at a time
        SCOPED_TRACE(testing::Message() << trailing << padding << ' ' << bufferSize);
        const std::string where = std::to_string(gzip.size() + padding);
        EXPECT_TRUE(contentOf(gzip + zeros.substr(0, padding) + trailing,
                              "trailing bytes at position " + where + " ", bufferSize) == text);
      }
    }
  }
  EXPECT_EQ(contentOf(zeros, "the gzip member at position 0 "), "") << "zeros behind nothing";
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
