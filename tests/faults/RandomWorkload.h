#ifndef TESTS_FAULTS_RANDOMWORKLOAD_H
#define TESTS_FAULTS_RANDOMWORKLOAD_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "faults/TestEngine.h"
#include "faults/Workload.h"

// What the workloads share. Each has an oracle in plain containers, which follows what succeeded,
// and what the contract of a call says of its failure.

/// Bytes that hardly compress, other ones for every seed.
inline std::string contentOf(std::size_t size, unsigned int seed) {
  constexpr std::size_t kPeriod = 10'007;
  std::string bytes(std::min(size, kPeriod), '\0');
  std::minstd_rand random(seed + 1);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const auto drawn = static_cast<std::uint32_t>(random());  // 31 bits, the lowest the worst
    const char three[] = {static_cast<char>(drawn >> 7), static_cast<char>(drawn >> 15),
                          static_cast<char>(drawn >> 23)};
    bytes.replace(i, std::min<std::size_t>(3, bytes.size() - i), three,
                  std::min<std::size_t>(3, bytes.size() - i));
  }
  while (bytes.size() < size) {
    bytes.append(bytes, 0, std::min(bytes.size(), size - bytes.size()));
  }
  return bytes;
}

/// Text of about so many letters, some of them beyond ASCII.
inline std::string textOf(std::size_t letters, unsigned int seed) {
  static constexpr const char* kWords[] = {"a few plain words ", "\xC3\xA9t\xC3\xA9 ",
                                           "\xE2\x82\xAC 17,", "x", "of the sea and the sky "};
  std::string text = std::to_string(seed);
  for (std::minstd_rand random(seed + 1); text.size() < letters;) {
    text += kWords[random() % std::size(kWords)];
  }
  return text;
}

/// A program of random steps, the same in every run.
class RandomWorkload : public Workload {
 protected:
  explicit RandomWorkload(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}
  unsigned int draw(std::size_t below) { return static_cast<unsigned int>(m_random() % below); }

  /// Frees an object, which never fails; one that could not even be remembered stays allocated, and
  /// is freed when that is possible.
  void free(Trial& trial, QRTVirtualPageItem item) {
    const QRTVirtualPageItem kept = item;
    const std::uint64_t before = TestEngine::get().objects();
    trial.attempt([&] {
      m_manager.free(item);
      return true;
    });
    EXPECT_EQ(item.empty(), 1);
    if (TestEngine::get().objects() == before) {
      EXPECT_NE(std::string_view(m_manager.getLastStoreError()).find("stays allocated"),
                std::string_view::npos);
      m_unfreed.push_back(kept);
      return;
    }
    EXPECT_EQ(TestEngine::get().objects(), before - 1);
    EXPECT_EQ(m_manager.getAddress(kept.getOffset(), 1), nullptr) << "it names nothing any more";
  }

  void freeTheRest(Trial& trial) {
    for (const QRTVirtualPageItem& item : std::exchange(m_unfreed, {})) {
      free(trial, item);
    }
  }

  QRTVirtualMemoryMgr& m_manager;
  std::minstd_rand m_random{7};
  unsigned int m_seed = 0;
  std::vector<QRTVirtualPageItem> m_unfreed;
};

#endif  // TESTS_FAULTS_RANDOMWORKLOAD_H
