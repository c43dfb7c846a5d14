#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QRTVirtualMemoryMgr.h"
#include "support/TempDirectory.h"
#include "support/TestSeed.h"

// Stores and processes: one that is killed, many in one directory, another user, another program.

namespace {

namespace fs = std::filesystem;

/// A store that pages, and what has to be in it.
class PagingStore {
 public:
  static constexpr unsigned int kBytes = 4000;

  /// @param mark  what tells this store's content from another's
  explicit PagingStore(unsigned int mark) : m_mark(mark) {}

  /// Stores objects up to `count`. @return whether there is room for them
  bool fillUp(std::size_t count) {
    while (m_items.size() < count) {
      QRTVirtualPageItem item;
      write(m_manager.alloc(kBytes, item), m_items.size());
      m_manager.dismiss(item);
      m_items.push_back(item);
    }
    return true;
  }

  /// @return whether every object is what was stored
  bool isIntact() {
    std::array<char, kBytes> expected;
    for (std::size_t i = 0; i < m_items.size(); ++i) {
      const void* const address = m_manager.getAddress(m_items[i], 1);
      if (address == nullptr) {
        std::cerr << m_manager.getLastStoreError() << '\n';
        return false;
      }
      write(expected.data(), i);
      const bool same = std::memcmp(address, expected.data(), kBytes) == 0;
      m_manager.dismiss(m_items[i]);
      if (!same) {
        return false;
      }
    }
    return true;
  }

 private:
  void write(void* address, std::size_t number) const {
    unsigned long long word = number * 1000 + m_mark;
    for (unsigned int at = 0; at < kBytes; at += sizeof word) {
      word = word * 6364136223846793005ULL + 1442695040888963407ULL;
      std::memcpy(static_cast<char*>(address) + at, &word, sizeof word);
    }
  }

  QRTVirtualMemoryMgr m_manager{1U << 20U};
  unsigned int m_mark;
  std::vector<QRTVirtualPageItem> m_items;
};

// More than the budget holds, which is 256 pages.
constexpr std::size_t kMoreThanMemory = 320;

class ProcessPosixTest : public testing::Test {
 protected:
  /// Runs `body` in a child process, whose exit status is what it returns.
  template <typename Body>
  static pid_t startChild(Body body) {
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
      _exit(body());
    }
    return child;
  }

  static int statusOf(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
  }

  /// Descriptors of this process that are open on files once or now in the directory.
  std::vector<int> descriptorsInDirectory() const {
    std::vector<int> descriptors;
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc/self/fd")) {
      std::error_code none;
      const fs::path target = fs::read_symlink(entry.path(), none);
      if (!none && target.parent_path() == m_directory.path()) {
        descriptors.push_back(std::stoi(entry.path().filename()));
      }
    }
    return descriptors;
  }

  TempDirectory m_directory;
  ScopedTmpdir m_tmpdir{m_directory.path().string()};
};

TEST_F(ProcessPosixTest, AProcessKilledAtAnyMomentLeavesNoFile) {
  std::mt19937 random(testSeed());
  for (int round = 0; round < 20; ++round) {
    const pid_t child = startChild([] {
      for (unsigned int mark = 0;; ++mark) {  // makes, fills, reads and ends stores
        PagingStore store(mark);
        store.fillUp(kMoreThanMemory);
        store.isIntact();
      }
      return 0;
    });
    ASSERT_GT(child, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 30000));
    kill(child, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(statusOf(child)));
    EXPECT_TRUE(fs::is_empty(m_directory.path()));
  }
}

// All of them have their file at one time: each waits for the end of a pipe before it looks again.
TEST_F(ProcessPosixTest, TwoHundredStoresInOneDirectoryDoNotMeet) {
  constexpr unsigned int kStores = 200;
  int ready[2];
  int go[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(go), 0);
  std::vector<pid_t> children;
  for (unsigned int mark = 0; mark < kStores; ++mark) {
    children.push_back(startChild([&] {
      close(ready[0]);
      close(go[1]);
      PagingStore store(mark);
      char byte = store.fillUp(kMoreThanMemory) ? 1 : 0;
      const bool told = write(ready[1], &byte, 1) == 1;
      const bool goes = read(go[0], &byte, 1) == 0;
      return told && goes && store.isIntact() ? 0 : 1;
    }));
    ASSERT_GT(children.back(), 0);
  }
  close(ready[1]);
  close(go[0]);
  unsigned int filled = 0;
  for (char byte = 0; filled < kStores && read(ready[0], &byte, 1) == 1;) {
    ++filled;
  }
  EXPECT_EQ(filled, kStores);
  EXPECT_TRUE(fs::is_empty(m_directory.path()));
  close(go[1]);
  close(ready[0]);
  for (const pid_t child : children) {
    EXPECT_EQ(statusOf(child), 0);
  }
}

// Another user's process reaches for the file through a descriptor that it has, the only way there
// is. A file that everybody may read shows that it would get there.
TEST_F(ProcessPosixTest, AnotherUserCannotOpenThePagingFile) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can try this as another user";
  }
  const mode_t before = umask(0);
  PagingStore store(1);
  store.fillUp(kMoreThanMemory);
  umask(before);
  const std::vector<int> files = descriptorsInDirectory();
  ASSERT_EQ(files.size(), 1U);
  const std::string open_to_all = (m_directory.path() / "all").string();
  const int control = open(open_to_all.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(control, 0);
  ASSERT_EQ(fchmod(control, 0666), 0);
  const auto reopens = [](int descriptor, int how) {
    return open(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), how | O_CLOEXEC) >= 0;
  };
  const pid_t child = startChild([&] {
    constexpr uid_t kNobody = 65534;
    if (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0 ||
        prctl(PR_SET_DUMPABLE, 1) != 0 ||  // or it could not even look at its own descriptors
        !reopens(control, O_RDWR)) {
      return 2;
    }
    return reopens(files[0], O_RDONLY) || reopens(files[0], O_WRONLY) ? 1 : 0;
  });
  const int status = statusOf(child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_NE(WEXITSTATUS(status), 2) << "could not become another user";
  EXPECT_NE(WEXITSTATUS(status), 1) << "another user opened the file";
  EXPECT_TRUE(store.isIntact());
}

TEST_F(ProcessPosixTest, AProgramThatIsStartedDoesNotGetThePagingFile) {
  PagingStore store(1);
  store.fillUp(kMoreThanMemory);
  const std::string shared = (m_directory.path() / "shared").string();
  const std::string list = (m_directory.path() / "list").string();
  const int control = open(shared.c_str(), O_RDWR | O_CREAT, 0600);  // which is inherited
  ASSERT_GE(control, 0);
  ASSERT_EQ(descriptorsInDirectory().size(), 2U);
  const pid_t child = startChild([&] {
    const std::string command = "ls -l /proc/self/fd > '" + list + "'";
    execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    return 127;
  });
  EXPECT_EQ(statusOf(child), 0);
  close(control);
  std::ifstream stream(list);
  const std::string open_there((std::istreambuf_iterator<char>(stream)), {});
  EXPECT_THAT(open_there, testing::HasSubstr(shared));
  EXPECT_THAT(open_there, testing::Not(testing::HasSubstr(m_directory.path().string() + "/#")));
  EXPECT_THAT(open_there, testing::Not(testing::HasSubstr("(deleted)")));
  EXPECT_TRUE(store.isIntact());
}

}  // namespace
