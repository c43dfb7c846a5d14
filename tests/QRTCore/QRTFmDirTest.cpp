#include "QRTCore/QRTFmDir.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "QRTCore/I18NString.h"
#include "support/TempDirectory.h"

namespace {

std::string tempPath(int expectedResult) {
  I18NString path("left over");
  EXPECT_EQ(QRTFmDir::getTempPath(path), expectedResult);
  return path.c_str(nullptr, nullptr, nullptr, nullptr);
}

TEST(QRTFmDir, NamesTheDirectoryOfTmpdir) {
  const TempDirectory directory;
  const std::filesystem::path inside = directory.path() / u8"Br\u00FCcke";
  std::filesystem::create_directory(inside);
  const ScopedTmpdir tmpdir(utf8Of(inside));
  EXPECT_EQ(tempPath(1), utf8Of(inside));
}

TEST(QRTFmDir, FallsBackWhenTmpdirIsEmpty) {
  const ScopedTmpdir tmpdir("");
  const std::filesystem::path fallback = pathOf(tempPath(1));
  EXPECT_TRUE(std::filesystem::is_directory(fallback));
  EXPECT_NE(fallback, std::filesystem::current_path());
}

TEST(QRTFmDir, NamesADirectoryThatDoesNotExistButSaysSo) {
  const TempDirectory directory;
  const std::string missing = (directory.path() / "missing").string();
  {
    const ScopedTmpdir tmpdir(missing);
    EXPECT_EQ(tempPath(0), missing);
  }
  std::ofstream(missing) << "a file";
  const ScopedTmpdir tmpdir(missing);
  EXPECT_EQ(tempPath(0), missing);
}

TEST(QRTFmDir, ARelativeNameKeepsItsMeaning) {
  const ScopedTmpdir tmpdir("some/where");
  const std::filesystem::path expected = std::filesystem::current_path() / "some/where";
  EXPECT_EQ(tempPath(0), std::filesystem::path(expected).make_preferred().string());
}

}  // namespace
