#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <iostream>

#include "engine/EngineFixture.h"
#include "support/TempDirectory.h"

// The engine over the operating system's own file: what others see of it, and who survives whom.

namespace {

namespace fs = std::filesystem;

// With the parameter true the files are encrypted.
class RealFileTest : public EngineFixture, public testing::WithParamInterface<bool> {
 protected:
  static constexpr std::uint32_t kPage = 4096;

  RealFileTest() { encrypted = GetParam(); }

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

TEST_P(RealFileTest, IsSeenAndReachedByNobodyElse) {
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

TEST_P(RealFileTest, PagesThatAreNeverUsedAgainTakeNoDiskSpace) {
  const int probe = open((directory.path() / "probe").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(probe, 0);
  const bool canPunch = ftruncate(probe, kPage) == 0 &&
                        fallocate(probe, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, kPage) == 0;
  close(probe);
  if (!canPunch) {
    GTEST_SKIP() << "the file system takes no space back from within a file";
  }
  fs::remove(directory.path() / "probe");
  firstGeneration = 0xFFFE;  // one life a page
  MakeReal(8, directory.path().string());
  const std::vector<Object> objects = AddMany(100, kPage);
  for (std::uint32_t i = 0; i < 1500; ++i) {  // too few for the end of the file to be cut off
    engine->Deallocate(Add(kPage, i).offset);
  }
  const Object last = Add(kPage, 1);
  EXPECT_EQ(PageOf(last.offset), 1600U);
  ExpectIntact(objects);
  struct stat status {};
  ASSERT_EQ(fstat(DescriptorsIn(directory.path()).at(0), &status), 0);
  EXPECT_GE(status.st_size, 1500 * kPage);
  EXPECT_LE(status.st_blocks * 512, 101 * kPage + (3 << 20)) << "and what is set aside ahead";
}

TEST_P(RealFileTest, NothingIsLeftOfAKilledProcess) {
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

TEST_P(RealFileTest, AForkedChildHasWhatIsInMemoryAndDisturbsNothing) {
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

TEST_P(RealFileTest, AChildForkedBeforeThereIsAFileMakesItsOwn) {
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

TEST_P(RealFileTest, AFullDiskRefusesNewObjectsAndNothingElse) {
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

TEST_P(RealFileTest, ALimitOfTheFilesSizeIsAFullDiskAndNoSignal) {
  ExpectInChild([&]() -> const char* {
    const auto limitTo = [](rlim_t bytes) {
      const struct rlimit limit { bytes, RLIM_INFINITY };
      return setrlimit(RLIMIT_FSIZE, &limit) == 0;
    };
    if (!limitTo(1 << 20)) {
      return "no limit could be set";
    }
    MakeReal(32, directory.path().string());
    std::vector<Object> objects = AddUntilFull(kPage, 10000);
    if (objects.size() < 200 || objects.size() > 300) {
      return "the limit is the end";
    }
    if (std::string(engine->GetLastError()).find("ulimit -f") == std::string::npos) {
      return engine->GetLastError();
    }
    const auto areIntact = [&] {
      return std::all_of(objects.begin(), objects.end(),
                         [&](const Object& object) { return Look(object) == Read::kIntact; });
    };
    if (!areIntact()) {
      return "something is lost";
    }
    // Below what the file has already: what changes stays in memory.
    if (!limitTo(kPage + 100) || !Change(objects[100], 7777)) {
      return "no change could be made";
    }
    for (int round = 0; round < 3; ++round) {
      if (!areIntact()) {
        return "something is lost under the lower limit";
      }
    }
    return limitTo(RLIM_INFINITY) && AddUntilFull(kPage, 1000).size() == 1000 && areIntact()
               ? nullptr
               : "the store does not go on without the limit";
  });
}

/// Has the kernel refuse, from now on and in this process: files without a name, as some file
/// systems do, and if wanted the removal of files. @return whether it will
bool RefuseNamelessFiles(bool andRemoval) {
  const auto arg = [](std::size_t n) {
    return static_cast<std::uint32_t>(offsetof(seccomp_data, args) + 8 * n);  // little-endian
  };
  const auto jump = [](std::uint16_t test, std::uint32_t with, std::uint8_t yes, std::uint8_t no) {
    return sock_filter{static_cast<std::uint16_t>(BPF_JMP | BPF_K | test), yes, no, with};
  };
  constexpr std::uint16_t kLoad = BPF_LD | BPF_W | BPF_ABS;
  constexpr std::uint16_t kReturn = BPF_RET | BPF_K;
  constexpr std::uint32_t kNamelessBit = O_TMPFILE & ~O_DIRECTORY;
  const std::uint32_t removal = andRemoval ? SECCOMP_RET_ERRNO | EPERM : SECCOMP_RET_ALLOW;
  sock_filter program[] = {
      {kLoad, 0, 0, offsetof(seccomp_data, nr)},
      jump(BPF_JEQ, SYS_unlink, 5, 0),
      jump(BPF_JEQ, SYS_unlinkat, 4, 0),
      jump(BPF_JEQ, SYS_openat, 0, 4),
      {kLoad, 0, 0, arg(2)},
      jump(BPF_JSET, kNamelessBit, 0, 2),
      {kReturn, 0, 0, SECCOMP_RET_ERRNO | EOPNOTSUPP},
      {kReturn, 0, 0, removal},
      {kReturn, 0, 0, SECCOMP_RET_ALLOW},
  };
  const sock_fprog filter{sizeof program / sizeof program[0], program};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

TEST_P(RealFileTest, WithoutNamelessFilesTheNameIsGoneAtOnceOrThereIsNoFile) {
  for (const bool removable : {true, false}) {
    SCOPED_TRACE(testing::Message() << "files can be removed: " << removable);
    ExpectInChild([&]() -> const char* {
      if (!RefuseNamelessFiles(!removable)) {
        std::cout << "system calls cannot be filtered here\n";
        return nullptr;
      }
      MakeReal(32, directory.path().string());
      const std::vector<Object> objects = AddUntilFull(kPage, 200);
      if (removable) {
        const bool named = !fs::is_empty(directory.path());
        return named || objects.size() < 200 ? "the file has no name" : nullptr;
      }
      return objects.size() == 200 ? "a file that cannot be removed is filled" : nullptr;
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Engine, RealFileTest, testing::ValuesIn(WithAndWithoutEncryption()),
                         [](const auto& setup) { return setup.param ? "Encrypted" : "Plain"; });

}  // namespace
