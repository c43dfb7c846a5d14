#ifndef TESTS_ENGINE_ENGINEFIXTURE_H
#define TESTS_ENGINE_ENGINEFIXTURE_H

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "engine/ScriptedPagingFile.h"
#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/PageCipher.h"
#include "libtcmalloc_virtualmm/StoreFiles.h"
#include "support/FailingNew.h"

/// One object as its test knows it: the seed tells its content.
struct Object {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  std::uint32_t seed = 0;
};

/// Fills `size` bytes with the content that belongs to `seed`.
inline void Fill(void* address, std::uint32_t size, std::uint32_t seed) {
  std::uint64_t word = seed * 0x9E3779B97F4A7C15U + size;
  auto* at = static_cast<char*>(address);
  for (std::uint32_t left = size; left > 0; word += 0xD1B54A32D192ED03U) {
    const std::uint32_t here = std::min<std::uint32_t>(left, sizeof word);
    std::memcpy(at, &word, here);
    at += here;
    left -= here;
  }
}

/// Whether `size` bytes hold the content that belongs to `seed`.
inline bool Holds(const void* address, std::uint32_t size, std::uint32_t seed) {
  static std::vector<char> expected;
  if (expected.size() < size) {
    const FailingNew::Pause pause;
    expected.resize(size);
  }
  Fill(expected.data(), size, seed);
  return std::memcmp(address, expected.data(), size) == 0;
}

/// The values of EngineFixture::encrypted that this build of the library serves.
inline std::vector<bool> WithAndWithoutEncryption() {
  return tcmalloc::CanEncrypt() ? std::vector<bool>{false, true} : std::vector<bool>{false};
}

/// An engine of a few frames over a scripted file.
class EngineFixture : public testing::Test {
 protected:
  using Engine = tcmalloc::Engine;
  using References = std::vector<std::tuple<std::uint64_t, std::uint32_t, std::uint32_t>>;

  struct Stats : tcmalloc::VirtualMemoryStats {
    std::vector<tcmalloc::FixedPoolStats> pools;
  };

  /// Every engine of every test has to agree with itself in the end.
  void TearDown() override { ExpectConsistent(); }
  void ExpectConsistent() {
    if (engine != nullptr) {
      EXPECT_EQ(engine->Check(wasShortOfMemory), "");
    }
  }

  /// Makes the engine anew, with a budget of `frames` frames of 4 KiB; 0 leaves the number of the
  /// page table's leaves in memory to it.
  void Make(std::uint32_t frames, std::uint32_t pageSize = 4096, bool moveOnUnpin = false,
            std::uint32_t tableLeaves = 0) {
    ExpectConsistent();
    tcmalloc::EngineOptions options;
    options.budgetBytes = frames * 4096;
    options.minimumFrames = 1;
    options.pageSize = pageSize;
    options.moveOnUnpin = moveOnUnpin;
    options.tableLeaves = tableLeaves;
    options.firstGeneration = firstGeneration;
    options.encrypted = encrypted;
    auto owned = std::make_unique<ScriptedPagingFile>();
    auto ownedTable = std::make_unique<ScriptedPagingFile>();
    file = owned.get();
    tableFile = ownedTable.get();
    tcmalloc::StoreFiles files =
        tcmalloc::EncryptIfWanted(options, {std::move(owned), std::move(ownedTable)});
    engine = std::make_unique<Engine>(options, std::move(files.pages), std::move(files.table));
  }

  /// The same over the operating system's files in `path`.
  void MakeReal(std::uint32_t frames, const std::string& path, std::uint32_t tableLeaves = 0) {
    tcmalloc::EngineOptions options;
    options.budgetBytes = frames * 4096;
    options.minimumFrames = 1;
    options.tableLeaves = tableLeaves;
    options.firstGeneration = firstGeneration;
    options.encrypted = encrypted;
    file = tableFile = &idle;
    tcmalloc::StoreFiles files = tcmalloc::MakeStoreFiles(options, path.c_str());
    engine = std::make_unique<Engine>(options, std::move(files.pages), std::move(files.table));
  }

  /// Makes an object and unpins it; its offset is 0 when the engine has no room.
  Object Add(std::uint32_t size, std::uint32_t seed) {
    Object object{0, size, seed};
    if (void* address = engine->Allocate(size, object.offset)) {
      Fill(address, size, seed);
      engine->Dismiss(object.offset);
    }
    return object;
  }

  /// Makes `count` objects of `size` bytes.
  std::vector<Object> AddMany(std::uint32_t count, std::uint32_t size) {
    std::vector<Object> objects;
    for (std::uint32_t i = 0; i < count; ++i) {
      objects.push_back(Add(size, i));
      EXPECT_NE(objects.back().offset, 0U) << "object " << i << ": " << engine->GetLastError();
    }
    return objects;
  }

  /// Adds objects until the engine has no room, `most` at the most.
  std::vector<Object> AddUntilFull(std::uint32_t size, std::uint32_t most) {
    std::vector<Object> objects;
    for (Object object; objects.size() < most; objects.push_back(object)) {
      object = Add(size, static_cast<std::uint32_t>(objects.size()));
      if (object.offset == 0) {
        break;
      }
    }
    return objects;
  }

  /// Makes everything that is not pinned leave memory.
  void PushOut() {
    std::uint64_t offset = 0;
    EXPECT_NE(engine->Allocate(static_cast<std::uint32_t>(GetStats().budgetBytes), offset),
              nullptr);
    engine->Deallocate(offset);
  }

  enum class Read { kIntact, kWrong, kNull };

  /// Pins, compares and unpins.
  Read Look(const Object& object, bool forWriting = true) {
    const void* address = engine->GetAddress(object.offset, forWriting);
    if (address == nullptr) {
      return Read::kNull;
    }
    const bool intact = Holds(address, object.size, object.seed);
    engine->Dismiss(object.offset);
    return intact ? Read::kIntact : Read::kWrong;
  }

  /// Gives an object new content. @return false when it cannot be pinned
  bool Change(Object& object, std::uint32_t seed) {
    void* address = engine->GetAddress(object.offset, true);
    if (address != nullptr) {
      object.seed = seed;
      Fill(address, object.size, seed);
      engine->Dismiss(object.offset);
    }
    return address != nullptr;
  }

  void ExpectIntact(const std::vector<Object>& objects) {
    for (std::size_t i = 0; i < objects.size(); ++i) {
      ASSERT_EQ(Look(objects[i]), Read::kIntact)
          << "object " << i << " of " << objects.size() << ": " << engine->GetLastError();
    }
  }

  void Free(const std::vector<Object>& objects) {
    for (const Object& object : objects) {
      engine->Deallocate(object.offset);
    }
  }

  Stats GetStats() {
    std::uint32_t needed = 0;
    engine->ExtractStats(nullptr, 0, needed);
    std::vector<char> buffer(needed);
    engine->ExtractStats(reinterpret_cast<tcmalloc::VirtualMemoryStats*>(buffer.data()), needed,
                         needed);
    Stats stats{};
    std::memcpy(static_cast<tcmalloc::VirtualMemoryStats*>(&stats), buffer.data(),
                sizeof(tcmalloc::VirtualMemoryStats));
    stats.pools.resize(stats.poolCount);
    EXPECT_EQ(needed, sizeof(tcmalloc::VirtualMemoryStats) + std::size_t{32} * stats.poolCount);
    for (std::size_t i = 0; i < stats.pools.size(); ++i) {
      std::memcpy(&stats.pools[i], &buffer[sizeof(tcmalloc::VirtualMemoryStats) + 32 * i], 32);
    }
    return stats;
  }

  /// (offset, size, pins) of the pinned objects, by offset.
  References GetReferences() {
    const std::uint32_t count = engine->GetOutstandingReferences(nullptr, 0, nullptr);
    std::vector<tcmalloc::VirtualMemoryReferenceInfo> list(count + 1);
    std::uint32_t written = 0;
    EXPECT_EQ(engine->GetOutstandingReferences(list.data(), count + 1, &written), count);
    EXPECT_EQ(written, count);
    References references;
    for (std::uint32_t i = 0; i < written; ++i) {
      references.emplace_back(list[i].offset, list[i].size, list[i].pins);
    }
    std::sort(references.begin(), references.end());
    return references;
  }

  /// The page of an object; its place in the file is this times the page size.
  static std::uint32_t PageOf(std::uint64_t offset) {
    return static_cast<std::uint32_t>(offset >> 16);
  }

  std::uint16_t firstGeneration = 0x1234;  // of the engine that Make makes
  bool encrypted = false;                  // whether it encrypts its files
  std::unique_ptr<Engine> engine;
  bool wasShortOfMemory = false;            // whether an allocation of the engine's own failed
  ScriptedPagingFile* file = nullptr;       // the engine's
  ScriptedPagingFile* tableFile = nullptr;  // its page table's
  ScriptedPagingFile idle;                  // stands for both while the files are real ones
};

#endif  // TESTS_ENGINE_ENGINEFIXTURE_H
