#include "faults/FaultPlan.h"

#include <cstdlib>

// Made before the first allocation asks for it, and never ended.
FaultPlan& FaultPlan::get() {
  static constinit FaultPlan plan;
  return plan;
}

void FaultPlan::begin(const FaultMode* mode, std::size_t nth) {
  m_counts = {};
  m_hits = 0;
  m_mode = mode;
  m_nth = nth;
}

FaultPlan::Fate FaultPlan::next(Site site) {
  if (m_armed == 0 || m_paused != 0) {
    return {};
  }
  const std::size_t made = ++m_counts[static_cast<std::size_t>(site)];
  if (m_mode == nullptr || m_mode->site != site || made < m_nth) {
    return {};
  }
  const std::size_t index = made - m_nth;
  Fate fate;
  fate.half = index < m_mode->halved;
  fate.error = !fate.half && index - m_mode->halved < m_mode->failing ? m_mode->error : 0;
  m_hits += fate.half || fate.error != 0 ? 1 : 0;
  return fate;
}

extern "C" {

// The names are the linker's: --wrap=malloc sends the program's calls here, operator new's as well.
void* __real_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __wrap_malloc(std::size_t size);  // NOLINT(bugprone-reserved-identifier)

void* __wrap_malloc(std::size_t size) {
  return FaultPlan::get().next(Site::eHeap).error != 0 ? nullptr : __real_malloc(size);
}
}
