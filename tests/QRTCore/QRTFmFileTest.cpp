#include "QRTCore/QRTFmFile.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "QRTCore/QRTFmFileSystem.h"
#include "support/TempDirectory.h"

namespace {

class QRTFmFileTest : public testing::Test {
 protected:
  std::string pathOf(const std::string& name) const {
    return directory.path().string() + "/" + name;
  }
  std::string make(const std::string& name, const std::string& content) const {
    std::ofstream(pathOf(name)) << content;
    return pathOf(name);
  }
  static std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::string read(unsigned int n) {
    std::string bytes(n, '-');
    const int got = file.read(bytes.data(), n);
    return got < 0 ? "failed" : bytes.substr(0, static_cast<std::size_t>(got));
  }

  static std::uintmax_t sizeOf(const std::string& utf8) {
    return std::filesystem::file_size(std::u8string(utf8.begin(), utf8.end()));
  }
  /// The last error in terms that all systems share.
  std::error_condition lastError() {
    return std::system_category().default_error_condition(
        static_cast<int>(file.getLastErrorNumber()));
  }

  const TempDirectory directory;
  QRTFmFile file;
};

TEST_F(QRTFmFileTest, CreateModesDoWhatTheySayAboutFilesThatExistAndThatDoNot) {
  struct Case {
    QRTFmFile::createmode mode;
    std::errc missing;  // error when there is no such file
    std::errc there;    // error when there is one
    bool empties;
  };
  constexpr std::errc kNone{};
  constexpr std::errc kNoFile = std::errc::no_such_file_or_directory;
  constexpr std::errc kInvalid = std::errc::invalid_argument;
  for (const Case& c : {Case{QRTFmFile::eOpenExisting, kNoFile, kNone, false},
                        Case{QRTFmFile::eCreateNew, kNone, std::errc::file_exists, false},
                        Case{QRTFmFile::eCreateAlways, kNone, kNone, true},
                        Case{QRTFmFile::eOpenAlways, kNone, kNone, false},
                        Case{QRTFmFile::eTruncateExisting, kNoFile, kNone, true},
                        Case{static_cast<QRTFmFile::createmode>(7), kInvalid, kInvalid, false}}) {
    SCOPED_TRACE(c.mode);
    const std::string missing = pathOf("missing" + std::to_string(c.mode));
    EXPECT_EQ(file.open(missing.c_str(), c.mode, 0), c.missing == kNone ? 1 : 0);
    EXPECT_EQ(lastError(), c.missing);
    EXPECT_EQ(std::filesystem::exists(missing), c.missing == kNone);

    const std::string there = make("there", "content");
    EXPECT_EQ(file.open(I18NString(there.c_str()), c.mode, 0), c.there == kNone ? 1 : 0);
    EXPECT_EQ(lastError(), c.there);
    EXPECT_EQ(contentOf(there), c.empties ? "" : "content");
  }
  const std::string there = make("there", "content");
  EXPECT_EQ(file.open(there.c_str(), QRTFmFile::eTruncateExisting, 1), 0);
  EXPECT_EQ(file.open(there.c_str(), QRTFmFile::eCreateAlways, 1), 0);
  EXPECT_EQ(file.getLastErrorNumber(), qrtfile::invalidArgument());
  EXPECT_EQ(contentOf(there), "content");
}

TEST_F(QRTFmFileTest, BytesPositionsAndLengths) {
  const std::string path = pathOf(
      "Stra\xC3\x9F"
      "e \xF0\x9F\x97\x82");
  ASSERT_EQ(file.open(path.c_str(), QRTFmFile::eCreateNew, 0), 1);
  EXPECT_EQ(file.write("0123456789", 10), 10);
  EXPECT_EQ(file.seek(-4, QRTFmFile::eSeekEnd), 6);
  EXPECT_EQ(read(100), "6789");
  EXPECT_EQ(read(1), "");
  EXPECT_EQ(file.getLastErrorNumber(), 0U);
  EXPECT_EQ(file.seek(2, QRTFmFile::eSeekSet), 2);
  EXPECT_EQ(file.seek(-3, QRTFmFile::eSeekCurrent), -1);
  EXPECT_NE(file.getLastErrorNumber(), 0U);
  EXPECT_EQ(file.seek(1, QRTFmFile::eSeekCurrent), 3) << "a refused seek does not move";
  EXPECT_EQ(file.seek(0, static_cast<QRTFmFile::seekorigin>(3)), -1);
  EXPECT_EQ(file.getLength(), 10);
  EXPECT_EQ(file.truncate(-1), 0);
  EXPECT_EQ(file.truncate(2), 1);
  EXPECT_EQ(file.seek(0, QRTFmFile::eSeekCurrent), 2) << "a position past the end moves to it";
  EXPECT_EQ(file.truncate(4), 1);
  EXPECT_EQ(file.flush(), 1);
  EXPECT_EQ(read(9), std::string("\0\0", 2));
  EXPECT_EQ(file.close(), 1);
  EXPECT_EQ(sizeOf(path), 4U);

  // Past 2 and 4 GiB the low 32 bits come back.
  ASSERT_EQ(file.open(path.c_str(), QRTFmFile::eOpenExisting, 0), 1);
  for (int i = 0; i < 3; ++i) {
    file.seek(INT_MAX, QRTFmFile::eSeekCurrent);
  }
  EXPECT_EQ(file.write("!", 1), 1);
  EXPECT_EQ(sizeOf(path), 3ULL * INT_MAX + 1);
  EXPECT_EQ(static_cast<unsigned int>(file.getLength()),
            static_cast<unsigned int>(3ULL * INT_MAX + 1));
}

TEST_F(QRTFmFileTest, OperationsOnAFileThatIsNotOpenFailAndSayWhy) {
  char byte = 0;
  QRTFmFile other;
  const auto failed = [this] { return file.getLastErrorNumber() == qrtfile::invalidHandle(); };
  EXPECT_TRUE(file.read(&byte, 1) == -1 && failed());
  EXPECT_TRUE(file.write(&byte, 0) == -1 && failed());
  EXPECT_TRUE(file.seek(0, QRTFmFile::eSeekSet) == -1 && failed());
  EXPECT_TRUE(file.append(other) == -1 && failed());
  EXPECT_TRUE(file.close() == 0 && failed());
  EXPECT_TRUE(file.getLength() == -1 && failed());
  EXPECT_TRUE(file.flush() == 0 && failed());
  EXPECT_TRUE(file.truncate(0) == 0 && failed());
  EXPECT_NE(file.getLastErrorMessage(), I18NString());

  ASSERT_EQ(file.open(make("a", "text").c_str(), QRTFmFile::eOpenExisting, 1), 1);
  EXPECT_EQ(file.getLastErrorMessage(), I18NString());
  EXPECT_EQ(file.write("x", 1), -1) << "read only";
  EXPECT_EQ(file.read(nullptr, 1), -1);
  EXPECT_EQ(file.read(&byte, 1U << 31), -1);
  EXPECT_EQ(file.getLastErrorNumber(), qrtfile::invalidArgument());
  EXPECT_EQ(file.append(other), -1);
}

TEST_F(QRTFmFileTest, WhatIsNoFileIsRefused) {
  EXPECT_EQ(file.open(directory.path().string().c_str(), QRTFmFile::eOpenExisting, 1), 0);
  EXPECT_NE(file.getLastErrorNumber(), 0U);
  EXPECT_EQ(file.open(static_cast<const char*>(nullptr), QRTFmFile::eOpenExisting, 0), 0);
  const std::string zero = make("zero", "") + std::string("\0more", 5);
  const I18NString withZero(zero.data(), nullptr, static_cast<int>(zero.size()), nullptr, nullptr);
  EXPECT_EQ(file.open(withZero, QRTFmFile::eOpenExisting, 0), 0) << "no name is cut short";
  EXPECT_EQ(file.seek(0, QRTFmFile::eSeekSet), -1) << "nothing is open after a failure";
}

TEST_F(QRTFmFileTest, AppendCopiesFromThePositionToTheEnd) {
  QRTFmFile other;
  const std::string large(200000, 'l');
  ASSERT_EQ(other.open(make("from", "skip" + large).c_str(), QRTFmFile::eOpenExisting, 1), 1);
  ASSERT_EQ(file.open(make("to", "begin").c_str(), QRTFmFile::eOpenExisting, 0), 1);
  other.seek(4, QRTFmFile::eSeekSet);
  EXPECT_EQ(file.append(other), 200000);
  EXPECT_EQ(file.append(other), 0);
  EXPECT_EQ(contentOf(pathOf("to")), "begin" + large);

  EXPECT_EQ(file.append(file), -1);
  QRTFmFile again;
  ASSERT_EQ(again.open(pathOf("to").c_str(), QRTFmFile::eOpenExisting, 1), 1);
  EXPECT_EQ(file.append(again), 200005) << "the same file ends as well";
}

}  // namespace
