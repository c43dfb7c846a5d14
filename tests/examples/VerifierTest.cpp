#include "Verifier.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <numeric>
#include <random>
#include <string>

#include "DirectoryWalk.h"
#include "QRTVirtualPin.h"
#include "TemporaryTree.h"

namespace {

using example::FileStore;
using example::UpdatePattern;
using example::Verifier;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kPart = FileStore::kPartBytes;

/// Files through a store whose memory is smaller than they are.
class VerifierTest : public testing::Test {
 protected:
  VerifierTest() : m_manager(1, 0, 0), m_catalogue(m_manager), m_store(m_manager, m_catalogue) {}

  static std::string noise(std::size_t size) {
    std::mt19937 random(static_cast<unsigned int>(size));
    std::string text(size, '\0');
    for (char& each : text) {
      each = static_cast<char>(random());
    }
    return text;
  }

  void findFiles() {
    example::DirectoryWalk walk;
    walk.walk(m_tree.root(), [this](const std::string& directory, const std::string& name,
                                    const example::FileStatus& status) {
      m_catalogue.add(directory, name, status);
    });
  }

  void storeFiles() {
    example::ProgressBar progress("store", 0);
    m_store.storeFiles(progress);
  }

  void storeTree() {
    findFiles();
    storeFiles();
  }

  /// The object that holds a part of a file.
  std::size_t objectOf(const std::string& name, std::uint32_t part) {
    for (std::size_t object = 0; object < m_store.objects().size(); ++object) {
      std::string path;
      EXPECT_TRUE(m_catalogue.readPath(m_store.objects()[object].file, path));
      if (path == m_tree.path(name) && m_store.objects()[object].part == part) {
        return object;
      }
    }
    throw std::runtime_error("nothing stored of " + name);
  }

  /// Turns a bit over in a stored object, as a failing store would.
  void damage(std::size_t object, std::size_t place) {
    const QRTVirtualPin<std::byte> pinned(m_manager, m_store.objects()[object].item);
    pinned.get()[place] ^= std::byte{1};
  }

  /// A verifier that has looked at every object twice: what it finds it is to note once.
  Verifier verified(const UpdatePattern* updates = nullptr) {
    std::vector<std::uint32_t> order(m_store.objects().size());
    std::iota(order.rbegin(), order.rend(), 0U);
    Verifier verifier(m_manager, m_catalogue, m_store);
    example::ProgressBar progress("verify", order.size());
    verifier.verify(order, updates, progress);
    verifier.verify(order, updates, progress);
    return verifier;
  }

  TemporaryTree m_tree;
  QRTVirtualMemoryMgr m_manager;
  example::FileCatalogue m_catalogue;
  FileStore m_store;
};

TEST_F(VerifierTest, files_of_all_sizes_come_back) {
  std::size_t bytes = 0;
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{1}, kPart - 1, kPart, kPart + 1, 3 * kPart, 3 * kPart + 17}) {
    m_tree.write(std::to_string(size), noise(size));
    bytes += size;
  }
  storeTree();
  EXPECT_EQ(m_store.objects().size(), 1U + 1 + 1 + 1 + 2 + 3 + 4);
  EXPECT_EQ(m_store.bytes(), bytes);

  const Verifier verifier = verified();
  EXPECT_THAT(verifier.mismatches().shown(), ElementsAre());
  EXPECT_THAT(verifier.changed().shown(), ElementsAre());
  EXPECT_EQ(verifier.bytes(), 2 * bytes);
}

TEST_F(VerifierTest, a_damaged_object_is_named_with_path_part_and_byte) {
  m_tree.write("good", noise(5000));
  m_tree.write("bad", noise(2 * kPart + 100));
  storeTree();
  damage(objectOf("bad", 2), 42);

  const Verifier verifier = verified();
  EXPECT_THAT(
      verifier.mismatches().shown(),
      ElementsAre(AllOf(HasSubstr(m_tree.path("bad") + ", part 2, byte 42 "),
                        HasSubstr("byte " + std::to_string(2 * kPart + 42) + " of the file"))));
  EXPECT_EQ(verifier.changed().count(), 0U);
}

TEST_F(VerifierTest, two_objects_that_changed_places_are_both_named) {
  m_tree.write("a", std::string(100, 'a'));
  m_tree.write("b", std::string(100, 'b'));
  storeTree();
  {
    const QRTVirtualPageItem& item = m_store.objects()[objectOf("a", 0)].item;
    const QRTVirtualPin<std::byte> a(m_manager, item);
    const QRTVirtualPin<std::byte> b(m_manager, m_store.objects()[objectOf("b", 0)].item);
    std::swap_ranges(a.get(), a.get() + item.getSize(), b.get());
  }
  EXPECT_EQ(verified().mismatches().count(), 2U);
}

TEST_F(VerifierTest, a_damaged_path_is_a_mismatch_of_its_own) {
  m_tree.write("file", noise(100));
  storeTree();
  QRTVirtualPageItem path;  // the pool hands out the item the catalogue holds
  m_manager.allocUsingPool("file", 4, path);
  {
    const QRTVirtualPin<std::byte> pinned(m_manager, path);
    pinned.get()[0] = std::byte{'m'};
  }
  const Verifier verifier = verified();
  EXPECT_THAT(verifier.mismatches().shown(),
              testing::Each(AllOf(HasSubstr(m_tree.path("mile")), HasSubstr("the path is not"))));
  EXPECT_GT(verifier.mismatches().count(), 0U);
  EXPECT_EQ(verifier.changed().count(), 0U) << "the content is intact and its file not known";
}

TEST_F(VerifierTest, a_freed_object_is_named) {
  m_tree.write("file", noise(100));
  storeTree();
  QRTVirtualPageItem item = m_store.objects()[0].item;
  m_manager.free(item);
  EXPECT_THAT(verified().mismatches().shown(),
              ElementsAre(AllOf(HasSubstr(m_tree.path("file") + ", part 0"),
                                HasSubstr("cannot be read back"))));
}

TEST_F(VerifierTest, a_file_changed_after_it_was_stored_is_not_a_mismatch) {
  m_tree.write("edited", noise(1000));
  m_tree.write("grown", noise(1000));
  m_tree.write("removed", noise(1000));
  m_tree.write("shrunk", noise(1000));
  storeTree();
  std::string edited = noise(1000);
  edited[10] = static_cast<char>(edited[10] ^ 1);
  m_tree.write("edited", edited);
  m_tree.write("grown", noise(1000) + "more");  // what was stored is still its beginning
  std::filesystem::remove(m_tree.path("removed"));
  m_tree.write("shrunk", noise(1000).substr(0, 10));

  const Verifier verifier = verified();
  EXPECT_THAT(verifier.mismatches().shown(), ElementsAre());
  EXPECT_THAT(verifier.changed().shown(),
              testing::UnorderedElementsAre(HasSubstr("edited"), HasSubstr("removed"),
                                            HasSubstr("shrunk")));
}

TEST_F(VerifierTest, a_changed_file_does_not_hide_a_damaged_object) {
  m_tree.write("edited", noise(1000));
  m_tree.write("removed", noise(1000));
  storeTree();
  m_tree.write("edited", "something else");
  std::filesystem::remove(m_tree.path("removed"));
  damage(objectOf("edited", 0), 500);
  damage(objectOf("removed", 0), 0);

  const Verifier verifier = verified();
  EXPECT_THAT(verifier.mismatches().shown(),
              testing::UnorderedElementsAre(HasSubstr("edited"), HasSubstr("removed")));
  EXPECT_EQ(verifier.changed().count(), 0U);
}

TEST_F(VerifierTest, updates_are_expected_where_they_were_made_and_only_there) {
  for (std::size_t size = 1000; size < 1100; ++size) {
    m_tree.write(std::to_string(size), noise(size));
  }
  storeTree();
  const UpdatePattern pattern(1);
  std::size_t updated = 0;
  for (std::size_t object = 0; object < m_store.objects().size(); ++object) {
    if (pattern.selects(object)) {
      EXPECT_TRUE(m_store.update(object, pattern));
      ++updated;
    }
  }
  ASSERT_GT(updated, 0U);
  EXPECT_EQ(verified(&pattern).mismatches().count(), 0U);
  EXPECT_EQ(verified(nullptr).mismatches().count(), updated) << "updates not asked for";

  // An update that was lost, and one that hit the wrong object.
  std::size_t selected = 0;
  while (!pattern.selects(selected)) {
    ++selected;
  }
  std::size_t unselected = 0;
  while (pattern.selects(unselected)) {
    ++unselected;
  }
  m_store.update(selected, pattern);
  m_store.update(unselected, pattern);
  EXPECT_EQ(verified(&pattern).mismatches().count(), 2U);
}

TEST_F(VerifierTest, a_path_damaged_before_its_file_is_stored_is_no_unreadable_file) {
  m_tree.write("file", noise(10));
  findFiles();
  QRTVirtualPageItem path;
  m_manager.allocUsingPool("file", 4, path);
  m_manager.free(path);
  storeFiles();
  EXPECT_EQ(m_store.lostPaths().count(), 1U);
  EXPECT_EQ(m_store.unreadable().count(), 0U);
}

TEST_F(VerifierTest, a_file_that_is_gone_before_it_is_stored_is_noted) {
  m_tree.write("here", noise(10));
  m_tree.write("gone", noise(10));
  findFiles();
  std::filesystem::remove(m_tree.path("gone"));
  storeFiles();
  EXPECT_EQ(m_store.objects().size(), 1U);
  EXPECT_THAT(m_store.unreadable().shown(),
              ElementsAre(AllOf(HasSubstr("gone"), HasSubstr("No such file"))));
}

}  // namespace
