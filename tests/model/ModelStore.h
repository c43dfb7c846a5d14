#ifndef TESTS_MODEL_MODELSTORE_H
#define TESTS_MODEL_MODELSTORE_H

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "QRTVirtualMemoryMgr.h"
#include "engine/ScriptedPagingFile.h"
#include "libtcmalloc_virtualmm/Engine.h"

namespace model {

/// A manager over an engine as a test wants it: with a budget below the least that hosts get, and
/// with paging files that fail on demand.
class ModelStore {
 public:
  /// @param directory  for real paging files; nothing for scripted ones
  ModelStore(const tcmalloc::EngineOptions& options, const std::optional<std::string>& directory);

  QRTVirtualMemoryMgr& manager() { return m_manager; }
  tcmalloc::Engine& engine() { return *m_engine; }

  /// The scripted files; null when they are real.
  ScriptedPagingFile* file() { return m_file; }
  ScriptedPagingFile* tableFile() { return m_tableFile; }

  /// Objects that the store has, and the bytes of its pages in memory beyond its budget.
  std::uint64_t objects();
  std::uint64_t bytesBeyondBudget();

  /// Pins of each pinned object, by offset.
  std::map<std::uint64_t, std::uint32_t> pins();

 private:
  tcmalloc::VirtualMemoryStats statistics();

  QRTVirtualMemoryMgr m_manager;
  tcmalloc::Engine* m_engine = nullptr;       // the manager's
  ScriptedPagingFile* m_file = nullptr;       // the engine's
  ScriptedPagingFile* m_tableFile = nullptr;  // its page table's
};

}  // namespace model

#endif  // TESTS_MODEL_MODELSTORE_H
