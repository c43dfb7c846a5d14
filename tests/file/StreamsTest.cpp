// Standard streams over virtual files.

#include <gmock/gmock.h>

#include <iostream>
#include <sstream>

#include "QRTVirtualFileGZIPStreamBuf.h"
#include "QRTVirtualFileStreamBuf.h"
#include "file/FileTest.h"
#include "support/ErrorMatchers.h"
#include "support/TempDirectory.h"

namespace {

class StreamsTest : public FileTest {
 protected:
  StreamsTest() { file.open(&manager, 0, 1000, false); }

  QRTVirtualFile file;
};

TEST_F(StreamsTest, DoesWhatAStringStreamDoes) {
  for (const std::size_t bufferSize : {0U, 3U, 4096U}) {
    SCOPED_TRACE(bufferSize);
    file.reset(false);
    QRTVirtualFileStreamBuf buffer(file, bufferSize);
    std::iostream stream(&buffer);
    std::stringstream model;
    long length = 0;
    for (int step = 0; step < 3000; ++step) {
      const std::size_t n = random() % (random() % 10 == 0 ? 20000 : 40);
      switch (random() % 5) {
        case 0: {
          const long to = static_cast<long>(random() % static_cast<unsigned long>(length + 1));
          stream.seekg(to);
          model.seekg(to);
          model.seekp(to);
          break;
        }
        case 1: {
          std::string got(n, '\0');
          std::string expected(n, '\0');
          stream.read(got.data(), static_cast<std::streamsize>(n));
          model.read(expected.data(), static_cast<std::streamsize>(n));
          ASSERT_EQ(stream.gcount(), model.gcount());
          ASSERT_EQ(got, expected);
          ASSERT_EQ(stream.eof(), model.eof());
          stream.clear();
          model.clear();
          model.seekp(model.tellg());  // the two positions of a string stream are one here
          break;
        }
        case 2:
          ASSERT_EQ(stream.tellg(), model.tellg());
          ASSERT_EQ(stream.get(), model.get());
          stream.clear();
          model.clear();
          model.seekp(model.tellg());
          break;
        default: {
          const std::string text = words(n);
          stream << text << 7;
          model << text << 7;
          model.seekg(model.tellp());
          length = std::max(length, static_cast<long>(model.tellp()));
        }
      }
    }
    stream.flush();
    file.seek(0, QRTFmFile::eSeekSet);
    ASSERT_EQ(read(file), model.str());
  }
}

TEST_F(StreamsTest, SeeksAllOfAFileAndNotBeyond) {
  file.open(&manager, 0, 1U << 20, false);
  QRTVirtualFileStreamBuf buffer(file);
  std::iostream stream(&buffer);
  constexpr long long kLast = 0xFFFFFFFE;
  stream.seekp(kLast);
  stream << 'z' << std::flush;
  EXPECT_EQ(stream.tellp(), kLast + 1);
  EXPECT_TRUE(stream.good());
  stream.seekg(-1, std::ios::end);
  EXPECT_EQ(stream.get(), 'z');

  EXPECT_FALSE(stream.seekg(kLast + 1)) << "the file itself does not go there";
  stream.clear();
  EXPECT_FALSE(stream.seekg(-1));
  stream.clear();
  EXPECT_EQ(stream.tellg(), kLast + 1) << "a refused seek does not move";

  stream << "too much" << std::flush;
  EXPECT_TRUE(stream.bad());
  EXPECT_EQ(static_cast<unsigned int>(file.getLength()), kLast + 1);
}

TEST_F(StreamsTest, ErrorsOfTheFileMakeAStreamBadOrComeThrough) {
  QRTVirtualFile closed;
  QRTVirtualFileStreamBuf buffer(closed);
  std::ostream stream(&buffer);
  stream << "waits" << std::flush;
  EXPECT_TRUE(stream.bad());
  stream.clear();
  stream.exceptions(std::ios::badbit);
  stream << "waits";
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { stream.flush(); })), "QRT_ASSERT(m_memMgr);");
}

class InflatingStreamsTest : public FileTest {
 protected:
  InflatingStreamsTest() {
    file.open(&manager, 0, 1000, true);
    write(file, text.substr(0, 30000));
    file.close();
    write(file, text.substr(30000));
    file.close();
    file.seekTo(0);
  }

  const std::string text = words(100000);
  QRTVirtualFile file;
};

TEST_F(InflatingStreamsTest, ReadsLikeAStringStreamOfTheContent) {
  for (const std::size_t bufferSize : {0U, 3U, 16384U}) {
    SCOPED_TRACE(bufferSize);
    file.seekTo(0);
    QRTVirtualFileGZIPStreamBuf buffer(file, bufferSize);
    std::istream stream(&buffer);
    std::istringstream model(text);
    for (bool more = true; more;) {
      std::string got(random() % (random() % 9 == 0 ? 30000 : 40), '\0');
      std::string expected = got;
      switch (random() % 3) {
        case 0:
          std::getline(stream, got);
          std::getline(model, expected);
          break;
        case 1:
          stream >> got;
          model >> expected;
          break;
        default:
          stream.read(got.data(), static_cast<std::streamsize>(got.size()));
          model.read(expected.data(), static_cast<std::streamsize>(got.size()));
          ASSERT_EQ(stream.gcount(), model.gcount());
      }
      ASSERT_EQ(got, expected);
      ASSERT_EQ(stream.rdstate(), model.rdstate());
      ASSERT_EQ(stream.tellg(), model.tellg());
      more = stream.good();
    }
    EXPECT_EQ(buffer.getError(), nullptr);
    stream.clear();
    EXPECT_FALSE(stream.seekg(0)) << "it goes one way";
  }
}

TEST_F(InflatingStreamsTest, DamageMakesAStreamBadAndItsReasonIsKept) {
  file.setLength(file.size() - 1);
  const auto expectBad = [&](const QRTVirtualFileGZIPStreamBuf& buffer, std::istream& stream) {
    EXPECT_TRUE(stream.bad());
    ASSERT_NE(buffer.getError(), nullptr);
    EXPECT_THAT(buffer.getError(), testing::HasSubstr("the file ends inside it"));
  };
  std::string all;
  {
    file.seekTo(0);
    QRTVirtualFileGZIPStreamBuf buffer(file);
    std::istream stream(&buffer);
    for (std::string line; std::getline(stream, line) || !line.empty(); line.clear()) {
      all += line + '\n';
    }
    expectBad(buffer, stream);
  }
  EXPECT_EQ(all.substr(0, text.size()), text) << "what comes before it is given";

  std::string room(text.size() + 1, '\0');
  file.seekTo(0);
  QRTVirtualFileGZIPStreamBuf buffer(file);
  std::istream stream(&buffer);
  stream.read(room.data(), static_cast<std::streamsize>(room.size()));
  expectBad(buffer, stream);
  stream.clear();
  stream.exceptions(std::ios::badbit);
  expectRaised<QRTIllegalStateError>([&] { stream.get(); });
}

TEST_F(StreamsTest, CopiesAFileIntoAnother) {
  const std::string text = words(50000);
  write(file, text);
  file.seek(0, QRTFmFile::eSeekSet);
  QRTVirtualFile compressed;
  compressed.open(&manager, 0, 0, true);
  {
    QRTVirtualFileStreamBuf from(file);
    QRTVirtualFileStreamBuf to(compressed);
    std::ostream(&to) << &from;
  }
  compressed.close();
  compressed.seek(0, QRTFmFile::eSeekSet);
  EXPECT_EQ(inflated(compressed), text);

  const TempDirectory directory;
  QRTFmFile real;
  ASSERT_EQ(real.open((directory.path() / "real").string().c_str(), QRTFmFile::eCreateNew, 0), 1);
  file.seek(10, QRTFmFile::eSeekSet);
  EXPECT_EQ(real.append(file), 49990) << "a virtual file is a file";
  EXPECT_EQ(file.append(real), -1) << "but has no file of the system to append to";
}

}  // namespace
