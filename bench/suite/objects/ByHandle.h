#ifndef BENCH_SUITE_OBJECTS_BYHANDLE_H
#define BENCH_SUITE_OBJECTS_BYHANDLE_H

#include <cstdint>
#include <cstring>
#include <vector>

#include "ObjectWork.h"

/// Makes a peer of something that gives a handle for each object: `Base` has what the workload
/// churn asks for (see Churn.h), `Handles` keeps the handles by key.
template <class Base, class Handles = std::vector<std::uint64_t>>
class ByHandle : public Base {
 public:
  static constexpr bool kHandleIsKey = false;
  explicit ByHandle(const Space& space) : Base(space), m_objectBytes(space.objectBytes) {
    m_handles.reserve(space.objects);
  }

  void add(const void* object) {
    m_handles.push_back(Base::make(m_objectBytes, [this, object](void* stored) {
      std::memcpy(stored, object, m_objectBytes);
    }));
  }
  std::uint64_t handle(std::uint64_t key) const { return m_handles[key]; }
  void finish() {}

  template <class Use>
  void scan(Use use) {
    std::uint64_t pinned = 0;
    bool more = true;
    for (std::uint64_t key = 0; more; ++key) {
      const std::uint64_t next = m_handles[key];
      more = use(Base::movePin(pinned, next));
      pinned = next;
    }
    Base::dismiss(pinned);
  }

 private:
  std::uint32_t m_objectBytes;
  Handles m_handles;  // by key
};

#endif  // BENCH_SUITE_OBJECTS_BYHANDLE_H
