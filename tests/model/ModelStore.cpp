#include "model/ModelStore.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "libtcmalloc_virtualmm/PagingFile.h"
#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

// A manager makes its engine itself, as hosts need it. Here it gets another one: the language lets
// an explicit instantiation name private members, so that no class has to open itself to this.

namespace {

template <class Tag, typename Tag::Pointer member>
struct Reveal {
  friend typename Tag::Pointer memberOf(Tag) { return member; }
};

struct PoolOfManager {
  using Pointer = tcmalloc::VirtualMemoryPool* QRTVirtualMemoryMgr::*;
  friend Pointer memberOf(PoolOfManager);
};
struct EngineOfPool {
  using Pointer = tcmalloc::Engine* tcmalloc::VirtualMemoryPool::*;
  friend Pointer memberOf(EngineOfPool);
};

template struct Reveal<PoolOfManager, &QRTVirtualMemoryMgr::m_pool>;
template struct Reveal<EngineOfPool, &tcmalloc::VirtualMemoryPool::m_engine>;

}  // namespace

namespace model {

ModelStore::ModelStore(const tcmalloc::EngineOptions& options,
                       const std::optional<std::string>& directory)
    : m_manager(1U, 0U, 0) {
  std::unique_ptr<tcmalloc::PagingFile> files[2];
  if (directory) {
    for (auto& file : files) {
      file = tcmalloc::MakePagingFile(directory->c_str());
    }
  } else {
    auto file = std::make_unique<ScriptedPagingFile>();
    auto tableFile = std::make_unique<ScriptedPagingFile>();
    m_file = file.get();
    m_tableFile = tableFile.get();
    files[0] = std::move(file);
    files[1] = std::move(tableFile);
  }
  auto engine =
      std::make_unique<tcmalloc::Engine>(options, std::move(files[0]), std::move(files[1]));
  tcmalloc::Engine*& place = (m_manager.*memberOf(PoolOfManager()))->*memberOf(EngineOfPool());
  delete place;
  place = m_engine = engine.release();
}

tcmalloc::VirtualMemoryStats ModelStore::statistics() {
  std::uint32_t needed = 0;
  m_engine->ExtractStats(nullptr, 0, needed);
  std::vector<std::uint64_t> record((needed + 7) / 8);
  m_engine->ExtractStats(reinterpret_cast<tcmalloc::VirtualMemoryStats*>(record.data()), needed,
                         needed);
  tcmalloc::VirtualMemoryStats statistics{};
  std::memcpy(&statistics, record.data(), sizeof statistics);
  return statistics;
}

std::uint64_t ModelStore::objects() {
  return statistics().currentObjects;
}

std::uint64_t ModelStore::bytesBeyondBudget() {
  const tcmalloc::VirtualMemoryStats now = statistics();
  return now.residentBytes - std::min(now.residentBytes, now.budgetBytes);
}

std::map<std::uint64_t, std::uint32_t> ModelStore::pins() {
  std::uint32_t written = 0;
  std::vector<tcmalloc::VirtualMemoryReferenceInfo> list(
      m_engine->GetOutstandingReferences(nullptr, 0, nullptr) + 1);
  m_engine->GetOutstandingReferences(list.data(), static_cast<std::uint32_t>(list.size()),
                                     &written);
  std::map<std::uint64_t, std::uint32_t> pins;
  for (std::uint32_t i = 0; i < written; ++i) {
    pins[list[i].offset] = list[i].pins;
  }
  return pins;
}

}  // namespace model
