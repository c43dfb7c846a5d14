#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>

#include "engine/EngineFixture.h"
#include "support/TempDirectory.h"

// The engine over the operating system's own file: what others see of it, and who survives whom.

namespace {

namespace fs = std::filesystem;

class RealFileTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kPage = 4096;

  void MakeReal(std::uint32_t frames, const std::string& path) {
    tcmalloc::EngineOptions options;
    options.budgetBytes = frames * kPage;
    options.minimumFrames = 1;
    engine = std::make_unique<Engine>(options, tcmalloc::MakePagingFile(path.c_str()),
                                      tcmalloc::MakePagingFile(path.c_str()));
  }

  /// Runs `body` in a child process, which fails by returning a reason.
  template <typename Body>
  static void ExpectInChild(Body body) {
    std::cout.flush();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const char* reason = body();
      if (reason != nullptr) {
        std::cerr << "in the child: " << reason << '\n';
      }
      _exit(reason == nullptr ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
  }

  TempDirectory directory;
};

/// Descriptors of this process that are open on a file once or now in `path`.
std::vector<int> DescriptorsIn(const fs::path& path) {
  std::vector<int> descriptors;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    std::error_code none;
    const fs::path target = fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none);
    if (!none && target.parent_path() == path) {
      descriptors.push_back(descriptor);
    }
  }
  return descriptors;
}

TEST_F(RealFileTest, IsSeenAndReachedByNobodyElse) {
  const mode_t before = umask(0);
  MakeReal(8, directory.path().string());
  EXPECT_TRUE(DescriptorsIn(directory.path()).empty()) << "not made before it is needed";
  const std::vector<Object> objects = AddMany(100, kPage);
  umask(before);
  EXPECT_TRUE(fs::is_empty(directory.path()));
  ExpectIntact(objects);
  EXPECT_EQ(std::string(GetStats().pagingFileName).find(directory.path().string()), 0U);
  EXPECT_GE(GetStats().pageFileSize, 92U * kPage);

  const std::vector<int> descriptors = DescriptorsIn(directory.path());
  ASSERT_EQ(descriptors.size(), 1U);
  EXPECT_NE(fcntl(descriptors[0], F_GETFD) & FD_CLOEXEC, 0);
  struct stat status {};
  ASSERT_EQ(fstat(descriptors[0], &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(status.st_nlink, 0U);
  EXPECT_EQ(static_cast<std::uint64_t>(status.st_size), GetStats().pageFileSize);
  engine.reset();
  EXPECT_TRUE(DescriptorsIn(directory.path()).empty());
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(RealFileTest, NothingIsLeftOfAKilledProcess) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    MakeReal(8, directory.path().string());
    AddMany(100, kPage);
    raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(fs::is_empty(directory.path()));
}

TEST_F(RealFileTest, AForkedChildHasWhatIsInMemoryAndDisturbsNothing) {
  MakeReal(32, directory.path().string());
  std::vector<Object> objects = AddMany(200, kPage);
  const std::vector<Object> small = AddMany(50, 100);
  Object pinned = objects[7];
  void* address = engine->GetAddress(pinned.offset, true);
  ASSERT_NE(address, nullptr);
  ExpectInChild([&]() -> const char* {
    std::size_t served = 0;
    for (Object& object : objects) {
      const Read read = Look(object);
      if (read == Read::kWrong) {
        return "wrong content";
      }
      if (read == Read::kIntact && Change(object, 5000)) {
        ++served;
      }
    }
    if (served < 20 || served > 32) {
      return "what was in memory is served, what was out is not";
    }
    if (engine->GetAddress(pinned.offset, false) != address) {
      return "a pinned object moved";
    }
    AddUntilFull(kPage, 1000);
    Free(objects);
    engine.reset();
    return nullptr;
  });
  EXPECT_TRUE(Holds(address, kPage, pinned.seed));
  engine->Dismiss(pinned.offset);
  ExpectIntact(objects);
  ExpectIntact(small);
  AddMany(100, kPage);
  ExpectIntact(objects);
}

TEST_F(RealFileTest, AChildForkedBeforeThereIsAFileMakesItsOwn) {
  MakeReal(16, directory.path().string());
  const std::vector<Object> objects = AddMany(10, kPage);
  ExpectInChild([&]() -> const char* {
    std::vector<Object> own = AddUntilFull(kPage, 100);
    own.insert(own.end(), objects.begin(), objects.end());
    const bool intact = std::all_of(own.begin(), own.end(), [&](const Object& object) {
      return Look(object) == Read::kIntact;
    });
    return own.size() == 110 && intact ? nullptr : "the child is an engine of its own";
  });
  const std::vector<Object> more = AddMany(100, kPage);
  ExpectIntact(objects);
  ExpectIntact(more);
}

/// A small file system of its own, where this process may mount one.
class SmallDisk {
 public:
  explicit SmallDisk(const fs::path& path) : m_path(path) {
    m_mounted = mount("tmpfs", m_path.c_str(), "tmpfs", 0, "size=2m") == 0;
  }
  ~SmallDisk() {
    if (m_mounted) {
      umount2(m_path.c_str(), MNT_DETACH);
    }
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  bool Mounted() const { return m_mounted; }

 private:
  fs::path m_path;
  bool m_mounted = false;
};

TEST_F(RealFileTest, AFullDiskRefusesNewObjectsAndNothingElse) {
  const SmallDisk disk(directory.path());
  if (disk.Mounted()) {
    MakeReal(32, directory.path().string());
  } else {
    std::cout << "no small disk could be mounted here; a scripted file plays one\n";
    Make(32);
    file->diskBytes = 2 << 20;
  }
  for (int round = 0; round < 3; ++round) {
    std::vector<Object> objects = AddUntilFull(2000, 10000);
    EXPECT_LT(objects.size(), 1100U);
    EXPECT_GT(objects.size(), 800U);
    EXPECT_THAT(engine->GetLastError(), testing::HasSubstr("disk space"));
    ExpectIntact(objects);
    for (Object& object : objects) {
      ASSERT_TRUE(Change(object, 9));
    }
    ExpectIntact(objects);
    EXPECT_LE(GetStats().residentBytes, GetStats().budgetBytes);
    Free(objects);
  }
}

}  // namespace
