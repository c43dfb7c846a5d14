#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "QRTCore/QRTFmFile.h"
#include "support/TempDirectory.h"

// What a file owes to POSIX systems.

namespace {

TEST(QRTFmFilePosixTest, AFullDiskIsAShortCountOrAFailureWithAReason) {
  if (::access("/dev/full", W_OK) != 0) {
    GTEST_SKIP() << "this system has no /dev/full";
  }
  QRTFmFile file;
  ASSERT_EQ(file.open("/dev/full", QRTFmFile::eOpenExisting, 0), 1);
  EXPECT_EQ(file.write("x", 1), -1);
  EXPECT_EQ(file.getLastErrorNumber(), static_cast<unsigned int>(ENOSPC));
  EXPECT_EQ(file.getLength(), -1) << "a device has no length";
}

TEST(QRTFmFilePosixTest, ADirectoryIsNoFile) {
  QRTFmFile file;
  EXPECT_EQ(file.open("/", QRTFmFile::eOpenExisting, 1), 0);
  EXPECT_EQ(file.getLastErrorNumber(), static_cast<unsigned int>(EISDIR));
}

TEST(QRTFmFilePosixTest, ChildrenInheritNothingAndStandardStreamsStayOpen) {
  const TempDirectory directory;
  const std::string path = (directory.path() / "secret").string();
  std::ofstream(path) << "secret";
  QRTFmFile file;
  ASSERT_EQ(file.open(path.c_str(), QRTFmFile::eOpenExisting, 0), 1);
  // Every descriptor that a program started from here gets to see.
  EXPECT_EQ(std::system("! ls -l /proc/self/fd | grep -q secret"), 0);

  EXPECT_EQ(file.open(QRTFmFile::eStdErr), 1);
  EXPECT_EQ(file.write("", 0), 0);
  EXPECT_EQ(file.close(), 1);
  EXPECT_GE(::fcntl(STDERR_FILENO, F_GETFD), 0);
  EXPECT_EQ(file.open(static_cast<QRTFmFile::stdiotypes>(3)), 0);
}

}  // namespace
