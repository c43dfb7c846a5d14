#ifndef TESTS_FILE_FILETEST_H
#define TESTS_FILE_FILETEST_H

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualMemoryMgr.h"
#include "support/TestSeed.h"

/// Files in a store of 1 MiB, and text to put into them.
class FileTest : public testing::Test {
 protected:
  static void write(QRTVirtualFile& file, const std::string& bytes) {
    ASSERT_EQ(file.write(bytes.data(), static_cast<unsigned int>(bytes.size())),
              static_cast<int>(bytes.size()));
  }

  /// The bytes from the position on, at most `n`, fetched in pieces.
  static std::string read(QRTVirtualFile& file, std::size_t n = SIZE_MAX,
                          unsigned int piece = 5000) {
    std::string bytes;
    std::string room(piece, '\0');
    for (int got = 1; got != 0 && bytes.size() < n;) {
      const std::size_t wanted = std::min<std::size_t>(piece, n - bytes.size());
      got = file.read(room.data(), static_cast<unsigned int>(wanted));
      bytes.append(room, 0, static_cast<std::size_t>(got));
    }
    return bytes;
  }

  /// The content of a gzip stream from the file's position on.
  static std::string inflated(
      QRTVirtualFile& file, unsigned int piece = 4000,
      unsigned int bufferSize = QRTVirtualFileGZIPReader::kDefaultBufferSize) {
    QRTVirtualFileGZIPReader reader(file, bufferSize);
    std::string bytes;
    std::string room(piece, '\0');
    while (const unsigned int got = reader.read(room.data(), piece)) {
      bytes.append(room, 0, got);
    }
    return bytes;
  }

  std::string words(std::size_t size) {
    std::string text;
    while (text.size() < size) {
      text += "word" + std::to_string(random() % 5000) + (random() % 9 == 0 ? "\n" : " ");
    }
    text.resize(size);
    return text;
  }

  std::mt19937 random{testSeed()};
  QRTVirtualMemoryMgr manager{1U << 20, 0U, 64};
};

#endif  // TESTS_FILE_FILETEST_H
