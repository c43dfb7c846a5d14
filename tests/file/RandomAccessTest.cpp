// Files larger than the store's memory against a string that does the same.

#include <gmock/gmock.h>

#include <fstream>

#include "file/FileTest.h"
#include "support/ErrorMatchers.h"
#include "support/TempDirectory.h"

namespace {

TEST_F(FileTest, BehavesAsAStringOfBytesWhateverThePageSize) {
  for (const unsigned int pageSize : {0U, 1U, 7U, 100U, 4096U, 8192U, 300000U}) {
    SCOPED_TRACE(pageSize);
    QRTVirtualFile file;
    file.open(&manager, 0, pageSize, false);
    std::string model;
    std::size_t position = 0;
    const std::size_t most = pageSize == 1 ? 20000 : 3000000;
    for (int step = 0; step < 400; ++step) {
      const std::size_t n = random() % (random() % 4 == 0 ? most / 20 : 300);
      switch (random() % 6) {
        case 0:  // not past the end: what is behind it is nobody's business
          position = random() % (model.size() + 1);
          ASSERT_EQ(file.seek(static_cast<int>(position), QRTFmFile::eSeekSet),
                    static_cast<int>(position));
          break;
        case 1: {
          const std::string got = read(file, n, static_cast<unsigned int>(n + 1));
          ASSERT_EQ(got, model.substr(position, n));
          position += got.size();
          break;
        }
        case 2: {
          const std::size_t length =
              random() % 3 == 0 ? random() % (model.size() + 1) : std::min(most, model.size() + n);
          file.setLength(static_cast<unsigned int>(length));
          model.resize(length);
          position = std::min(position, length);
          ASSERT_EQ(file.tell(), position);
          break;
        }
        case 3:
          if (random() % 8 == 0) {
            file.reset(random() % 2 == 0);  // pages with other bytes in them
            model.clear();
            position = 0;
          }
          break;
        default: {
          const std::string bytes = words(std::min(n, most - std::min(most, position)));
          write(file, bytes);
          model.replace(position, std::min(bytes.size(), model.size() - position), bytes);
          position += bytes.size();
        }
      }
    }
    file.seek(0, QRTFmFile::eSeekSet);
    ASSERT_EQ(read(file, SIZE_MAX, 7), model);
    ASSERT_EQ(file.getLength(), static_cast<int>(model.size()));
  }
}

TEST_F(FileTest, AStoreThatIsFullLosesNothingThatWasWritten) {
  const TempDirectory directory;
  std::ofstream(directory.path() / "file") << "in the way";
  const ScopedTmpdir tmpdir((directory.path() / "file").string());
  QRTVirtualFile file;
  file.open(1U << 20, 0, 8192, false);
  const std::string block = words(1000);
  unsigned int written = 0;
  expectRaised<QRTOutOfMemoryError>([&] {
    for (; written < 10000; ++written) {
      write(file, block);
    }
  });
  const auto length = static_cast<unsigned int>(file.getLength());
  EXPECT_GE(length, written * 1000);
  EXPECT_EQ(length % 8192, 0U) << "a page was full before the next one was missing";
  file.seek(0, QRTFmFile::eSeekSet);
  const std::string content = read(file);
  ASSERT_EQ(content.size(), length);
  for (std::size_t at = 0; at < length; at += 1000) {
    ASSERT_EQ(content.substr(at, 1000), block.substr(0, length - at)) << at;
  }
}

}  // namespace
