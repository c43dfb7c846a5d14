#include <fcntl.h>
#include <openssl/crypto.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>

#include "engine/EngineFixture.h"
#include "support/TempDirectory.h"

// The key of an encrypted file: where in the process it is, and when it is gone.

namespace {

/// A part of the process's memory, as /proc/self/smaps tells of it.
struct Mapping {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
  bool writable = false;
  std::string flags;  // two letters each: lo(cked), dd for not dumped, wf for wiped on fork

  bool Has(const char* flag) const { return flags.find(flag) != std::string::npos; }
  bool IsSecret() const { return Has(" dd") && Has(" wf"); }
};

std::vector<Mapping> MappingsOfThisProcess() {
  std::vector<Mapping> mappings;
  std::ifstream smaps("/proc/self/smaps");
  for (std::string line; std::getline(smaps, line);) {
    Mapping mapping;
    char dash = 0;
    std::string rights;
    std::istringstream words(line);
    if (words >> std::hex >> mapping.begin >> dash >> mapping.end >> rights && dash == '-') {
      mapping.writable = rights.compare(0, 2, "rw") == 0;
      mappings.push_back(mapping);
    } else if (line.compare(0, 8, "VmFlags:") == 0) {
      mappings.back().flags = line.substr(8);
    }
  }
  return mappings;
}

constexpr std::uintptr_t kSystemPage = 4096;

/// The pages that hold keys, and nothing else.
std::vector<std::uintptr_t> SecretPages() {
  std::vector<std::uintptr_t> pages;
  for (const Mapping& mapping : MappingsOfThisProcess()) {
    for (std::uintptr_t page = mapping.begin; mapping.IsSecret() && page < mapping.end;
         page += kSystemPage) {
      pages.push_back(page);
    }
  }
  return pages;
}

/// Where in writable memory `count` bytes lie that are those at `bytes`, all turned over.
std::vector<std::uintptr_t> FindTurnedOver(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t kMostBytes = std::size_t{1} << 27;  // a sanitizer's own are larger
  std::vector<std::uintptr_t> found;
  std::vector<unsigned char> part(1 << 16);
  const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  EXPECT_GE(memory, 0);
  for (const Mapping& mapping : MappingsOfThisProcess()) {
    if (!mapping.writable || mapping.end - mapping.begin > kMostBytes) {
      continue;
    }
    for (std::uintptr_t at = mapping.begin; at < mapping.end; at += part.size() - (count - 1)) {
      const std::size_t length = std::min<std::size_t>(part.size(), mapping.end - at);
      const ssize_t read = pread(memory, part.data(), length, static_cast<off_t>(at));
      const auto end = part.begin() + std::max<ssize_t>(read, 0);
      const auto isTurnedOver = [](unsigned char a, unsigned char b) {
        return a == static_cast<unsigned char>(~b);
      };
      for (auto hit = part.begin();; ++hit) {
        hit = std::search(hit, end, bytes, bytes + count, isTurnedOver);
        if (hit == end) {
          break;
        }
        found.push_back(at + static_cast<std::uintptr_t>(hit - part.begin()));
      }
    }
    std::fill(part.begin(), part.end(), static_cast<unsigned char>(0));  // no copy stays here
  }
  close(memory);
  return found;
}

/// Ends the process with a result while its global objects end.
struct LastUser {
  std::function<int()> use;
  LastUser() = default;
  ~LastUser() {
    if (use) {
      _exit(use());
    }
  }
  LastUser(const LastUser&) = delete;
  LastUser& operator=(const LastUser&) = delete;
};

LastUser lastUser;  // begins before libcrypto and so ends after it

class EncryptionPosixTest : public EngineFixture {
 protected:
  static constexpr std::uint32_t kPage = 4096;

  EncryptionPosixTest() { encrypted = true; }

  TempDirectory directory;
};

// XTS has two keys of 32 bytes. An expanded AES key begins or ends with 16 bytes of the key itself.
TEST_F(EncryptionPosixTest, TheKeyIsInOnePageOfItsOwnAndNowhereElse) {
  const std::size_t before = SecretPages().size();
  MakeReal(8, directory.path().string(), 1);
  EXPECT_EQ(SecretPages().size(), before) << "no key before it is needed";
  const std::vector<Object> objects = AddMany(200, kPage);
  ExpectIntact(objects);
  const std::vector<std::uintptr_t> secret = SecretPages();
  ASSERT_EQ(secret.size(), before + 2) << "one for each file";
  for (const std::uintptr_t page : secret) {
    const auto* key = reinterpret_cast<const unsigned char*>(page);
    for (std::size_t part = 0; part < 64; part += 16) {
      unsigned char turned[16];
      std::transform(key + part, key + part + 16, turned,
                     [](unsigned char byte) { return static_cast<unsigned char>(~byte); });
      EXPECT_THAT(FindTurnedOver(turned, 16), testing::ElementsAre(page + part));
    }
  }
  engine.reset();
  EXPECT_EQ(SecretPages().size(), before) << "gone with the store";
}

TEST_F(EncryptionPosixTest, TheKeysPageIsLockedInMemoryWhereThatIsAllowed) {
  // A limit may forbid it, and AddressSanitizer makes nothing of it: what a page of our own gets.
  void* probe = mmap(nullptr, kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  mlock(probe, kPage);
  const auto isLocked = [](const Mapping& mapping) { return mapping.Has(" lo"); };
  std::vector<Mapping> mappings = MappingsOfThisProcess();
  const bool mayLock = std::any_of(mappings.begin(), mappings.end(), isLocked);
  munmap(probe, kPage);
  MakeReal(8, directory.path().string());
  AddMany(20, kPage);
  mappings = MappingsOfThisProcess();
  for (const Mapping& mapping : mappings) {
    EXPECT_TRUE(!mapping.IsSecret() || isLocked(mapping) == mayLock);
  }
}

TEST_F(EncryptionPosixTest, AChildHasNoKey) {
  MakeReal(8, directory.path().string());
  const std::vector<Object> objects = AddMany(200, kPage);
  const std::vector<std::uintptr_t> secret = SecretPages();
  ASSERT_FALSE(secret.empty());
  const auto isZeroed = [&] {
    const auto* key = reinterpret_cast<const char*>(secret.back());
    return std::all_of(key, key + 64, [](char byte) { return byte == 0; });
  };
  EXPECT_FALSE(isZeroed());
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    _exit(isZeroed() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  ExpectIntact(objects);
}

// A store that is a global object ends after what registered itself later, libcrypto's own clean-up
// among it. Where the host has that done, what is out cannot be read, and nothing crashes.
TEST_F(EncryptionPosixTest, AStoreMayBeUsedWhileTheProcessEnds) {
  for (const bool hostCleansUp : {false, true}) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      MakeReal(8, directory.path().string());
      const std::vector<Object> objects = AddMany(100, kPage);
      lastUser.use = [&] {
        if (hostCleansUp) {
          OPENSSL_cleanup();
        }
        std::size_t unread = 0;
        std::vector<char> expected(kPage);  // not Holds, whose memory has ended by now
        for (const Object& object : objects) {
          const void* address = engine->GetAddress(object.offset, true);
          Fill(expected.data(), kPage, object.seed);
          if (address != nullptr && std::memcmp(address, expected.data(), kPage) != 0) {
            return 1;
          }
          unread += address == nullptr ? 1 : 0;
          engine->Dismiss(object.offset);
        }
        engine.reset();
        return unread > 0 && !hostCleansUp ? 2 : 0;
      };
      std::exit(3);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "host cleans up: " << hostCleansUp;
  }
}

}  // namespace
