#ifndef BENCH_SUITE_OBJECTS_PACKEDHANDLES_H
#define BENCH_SUITE_OBJECTS_PACKEDHANDLES_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ObjectWork.h"

/// Handles in 3 1/8 bytes each, as a host keeps them that has millions: those of objects allocated
/// one after the other are numbers close to each other, so each group of 64 keeps its lowest and
/// the distances to it.
class PackedHandles {
 public:
  /// Bytes that `n` handles take.
  static std::uint64_t bytesFor(std::uint64_t n) {
    return (n + kGroup - 1) / kGroup * sizeof(Group);
  }

  void reserve(std::uint64_t n) { m_groups.reserve((n + kGroup - 1) / kGroup); }

  void push_back(std::uint64_t handle) {
    m_last[m_size++ % kGroup] = handle;
    if (m_size % kGroup == 0) {
      pack();
    }
  }

  std::uint64_t operator[](std::uint64_t key) const {
    if (key / kGroup == m_groups.size()) {
      return m_last[key % kGroup];
    }
    const Group& group = m_groups[key / kGroup];
    std::uint32_t distance = 0;
    std::memcpy(&distance, group.distances + key % kGroup * kDistanceBytes, kDistanceBytes);
    return group.lowest + distance;
  }

 private:
  static constexpr std::uint64_t kGroup = 64;
  static constexpr std::uint64_t kDistanceBytes = 3;

  struct Group {
    std::uint64_t lowest;
    unsigned char distances[kGroup * kDistanceBytes];
  };
  static_assert(sizeof(Group) == 200);

  void pack() {
    Group group{};
    group.lowest = *std::min_element(m_last.begin(), m_last.end());
    for (std::uint64_t i = 0; i < kGroup; ++i) {
      const std::uint64_t distance = m_last[i] - group.lowest;
      suite::require(distance >> (8 * kDistanceBytes) == 0,
                     "handles lie too far from each other to pack");
      std::memcpy(group.distances + i * kDistanceBytes, &distance, kDistanceBytes);
    }
    m_groups.push_back(group);
  }

  std::vector<Group> m_groups;
  std::array<std::uint64_t, kGroup> m_last{};  // those of the group that is not full
  std::uint64_t m_size = 0;
};

#endif  // BENCH_SUITE_OBJECTS_PACKEDHANDLES_H
