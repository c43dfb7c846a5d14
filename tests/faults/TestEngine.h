#ifndef TESTS_FAULTS_TESTENGINE_H
#define TESTS_FAULTS_TESTENGINE_H

#include <cstdint>

#include "engine/ScriptedPagingFile.h"
#include "libtcmalloc_virtualmm/Engine.h"

/// The engine of the manager that was made last, good as long as that manager.
struct TestEngine {
  static TestEngine& get();

  tcmalloc::Engine* engine = nullptr;
  ScriptedPagingFile* file = nullptr;  // null where the files are the system's
  ScriptedPagingFile* tableFile = nullptr;
  std::uint16_t firstGeneration = 1;  // of the engines to be made
  bool encrypted = false;             // whether their files are encrypted

  tcmalloc::VirtualMemoryStats stats() const {
    struct {
      tcmalloc::VirtualMemoryStats stats;
      char pools[32 * 256];
    } record{};
    std::uint32_t needed = 0;
    engine->ExtractStats(&record.stats, sizeof record, needed);
    return record.stats;
  }
  std::uint64_t objects() const { return stats().currentObjects; }
  std::uint32_t pinned() const { return engine->GetOutstandingReferences(nullptr, 0, nullptr); }
};

#endif  // TESTS_FAULTS_TESTENGINE_H
