#include "DirectoryWalk.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "TemporaryTree.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DirectoryWalkTest : public testing::Test {
 protected:
  /// The files a walk finds, as paths below the tree's root.
  std::vector<std::string> found(const std::vector<std::string>& roots) {
    std::vector<std::string> files;
    for (const std::string& root : roots) {
      m_walk.walk(root, [&](const std::string& directory, const std::string& name,
                            const example::FileStatus& status) {
        EXPECT_TRUE(status.isRegularFile);
        const std::filesystem::path whole = std::filesystem::path(directory) / name;
        files.push_back(whole.lexically_relative(m_tree.root()).string());
      });
    }
    return files;
  }

  TemporaryTree m_tree;
  example::DirectoryWalk m_walk;
};

TEST_F(DirectoryWalkTest, finds_files_in_the_order_of_their_names) {
  m_tree.write("b/2", "");
  m_tree.write("b/1", "");
  m_tree.write("a/deep/er/3", "");
  m_tree.write("c", "");
  EXPECT_THAT(found({m_tree.root()}), ElementsAre("c", "a/deep/er/3", "b/1", "b/2"));
}

TEST_F(DirectoryWalkTest, does_not_follow_links_below_the_root) {
  m_tree.write("real/file", "content");
  std::filesystem::create_symlink("file", m_tree.path("real/link"));
  std::filesystem::create_directory_symlink("..", m_tree.path("real/loop"));
  std::filesystem::create_symlink("nowhere", m_tree.path("real/dangling"));
  EXPECT_THAT(found({m_tree.root()}), ElementsAre("real/file"));
  EXPECT_EQ(m_walk.unreadable().count(), 0U);
}

TEST_F(DirectoryWalkTest, a_root_may_be_named_by_a_link) {
  m_tree.write("real/file", "");
  std::filesystem::create_directory_symlink("real", m_tree.path("link"));
  EXPECT_THAT(found({m_tree.path("link")}), ElementsAre("real/file"));
}

TEST_F(DirectoryWalkTest, finds_a_file_of_two_names_once) {
  m_tree.write("a/first", "content");
  std::filesystem::create_directories(m_tree.path("b"));
  std::filesystem::create_hard_link(m_tree.path("a/first"), m_tree.path("b/second"));
  EXPECT_THAT(found({m_tree.root()}), ElementsAre("a/first"));
}

TEST_F(DirectoryWalkTest, finds_files_once_when_directories_overlap) {
  m_tree.write("a/b/file", "");
  EXPECT_THAT(found({m_tree.path("a/b"), m_tree.root(), m_tree.path("a/../a")}),
              ElementsAre("a/b/file"));
}

TEST_F(DirectoryWalkTest, passes_over_what_is_no_regular_file) {
  m_tree.write("file", "");
  ASSERT_EQ(mkfifo(m_tree.path("pipe").c_str(), 0600), 0);
  EXPECT_THAT(found({m_tree.root()}), ElementsAre("file"));
}

TEST_F(DirectoryWalkTest, notes_a_root_that_does_not_exist) {
  EXPECT_THAT(found({m_tree.path("missing")}), IsEmpty());
  ASSERT_EQ(m_walk.unreadable().count(), 1U);
  EXPECT_THAT(m_walk.unreadable().shown().front(), HasSubstr("missing: No such file"));
}

}  // namespace
