#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>

#include "libtcmalloc_virtualmm/PagingFile.h"
#include "support/TempDirectory.h"

// The operating system's own paging file on Windows: what others see of it, and how far it reaches.

namespace {

namespace fs = std::filesystem;

TEST(WindowsFileTest, IsReachedByNobodyElseAndGoesWithItsHandle) {
  const TempDirectory temp;
  const fs::path directory = temp.path() / pathOf(
                                               "Br\xC3\xBC"
                                               "cke \xE6\xA9\x8B");
  fs::create_directory(directory);
  auto file = tcmalloc::MakePagingFile(utf8Of(directory).c_str());
  EXPECT_TRUE(fs::is_empty(directory)) << "not made before it is needed";
  ASSERT_EQ(file->Open(), 0);
  const fs::path name = pathOf(file->Path());
  EXPECT_EQ(name.parent_path(), directory);
  EXPECT_TRUE(fs::exists(name));
  const HANDLE other = CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_EQ(other, INVALID_HANDLE_VALUE);
  auto second = tcmalloc::MakePagingFile(utf8Of(directory).c_str());
  ASSERT_EQ(second->Open(), 0);
  EXPECT_STRNE(second->Path(), file->Path());
  second.reset();
  file.reset();
  EXPECT_TRUE(fs::is_empty(directory));
}

TEST(WindowsFileTest, ReadsAndWritesBeyondFourGigabytes) {
  const TempDirectory temp;
  const auto file = tcmalloc::MakePagingFile(temp.path().string().c_str());
  ASSERT_EQ(file->Open(), 0);
  constexpr std::uint64_t kFar = (std::uint64_t{5} << 30) + 123;
  char out[] = "abcdefgh";
  const tcmalloc::IoSlice parts[] = {{out, 3, 0}, {out + 3, 5, 0}};
  ASSERT_EQ(file->WriteSome(kFar, parts, 2), 8);
  char in[16] = "";
  const tcmalloc::IoSlice room[] = {{in, 5, 0}, {in + 5, 9, 0}};
  EXPECT_EQ(file->ReadSome(kFar, room, 2), 8) << "the file ends in the second slice";
  EXPECT_STREQ(in, out);
  EXPECT_EQ(file->ReadSome(kFar + 8, room, 2), 0);
  EXPECT_EQ(file->Truncate(4096), 0);
  EXPECT_EQ(file->ReadSome(kFar, room, 1), 0);
}

TEST(WindowsFileTest, TellsWhyItCannotBeMade) {
  const TempDirectory temp;
  const auto file = tcmalloc::MakePagingFile((temp.path() / "missing").string().c_str());
  EXPECT_EQ(file->Open(), ENOENT);
  char text[128];
  tcmalloc::DescribeSystemError(ENOENT, text, sizeof text);
  EXPECT_STREQ(text, "No such file or directory");
}

}  // namespace
