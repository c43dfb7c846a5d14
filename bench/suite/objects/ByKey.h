#ifndef BENCH_SUITE_OBJECTS_BYKEY_H
#define BENCH_SUITE_OBJECTS_BYKEY_H

#include <cstdint>

#include "Paging.h"
#include "Resident.h"

/// What those peers share that find objects by key.
class ByKey {
 public:
  static constexpr bool kHandleIsKey = true;

  ByKey(const ByKey&) = delete;
  ByKey& operator=(const ByKey&) = delete;

  std::uint64_t handle(std::uint64_t key) const { return key; }
  void finish() {}

 protected:
  explicit ByKey(const Space& space) : m_objectBytes(space.objectBytes) {}
  ~ByKey() = default;

  std::uint32_t m_objectBytes;
  std::uint64_t m_added = 0;  // objects, and so the next key
};

template <class P>
void addByKey(const AddPeer& add, const char* peer) {
  addResident<P>(add, peer);
  add("paging", peer, measurePaging<P>);
}

#endif  // BENCH_SUITE_OBJECTS_BYKEY_H
