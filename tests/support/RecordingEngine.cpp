#include "support/RecordingEngine.h"

#include <algorithm>
#include <cstring>

#include "support/FailingNew.h"

namespace {

std::string number(std::uint64_t value) {
  return std::to_string(value);
}

// Counts one call of those that are made until one is refused. A negative number counts nothing.
bool isRefused(int& callsLeft) {
  return callsLeft >= 0 && callsLeft-- == 0;
}

}  // namespace

EngineRecord& EngineRecord::get() {
  static EngineRecord record;
  return record;
}

EngineRecord& EngineRecord::reset() {
  get() = EngineRecord();
  return get();
}

std::vector<std::string> EngineRecord::take() {
  std::vector<std::string> taken;
  taken.swap(calls);
  return taken;
}

std::string EngineRecord::text(std::uint64_t offset) const {
  const std::vector<unsigned char>& bytes = objects.at(offset).bytes;
  return {bytes.begin(), bytes.end()};
}

namespace tcmalloc {

class Engine {
 public:
  std::uint64_t next = 1;
  unsigned long long memorySize = 0;
};

VirtualMemoryPool::VirtualMemoryPool(unsigned int memorySize, const char* directory,
                                     bool encrypted) {
  const FailingNew::Pause pause;
  EngineRecord& record = EngineRecord::get();
  record.calls.push_back("VirtualMemoryPool(" + number(memorySize) + ")");
  record.directory = directory;
  record.encrypted = encrypted;
  if (record.onConstruct) {
    record.onConstruct();
  }
  m_engine = new Engine;
  m_engine->memorySize = memorySize;
}

VirtualMemoryPool::~VirtualMemoryPool() {
  const FailingNew::Pause pause;
  EngineRecord::get().calls.push_back("~VirtualMemoryPool()");
  EngineRecord::get().objects.clear();
  delete m_engine;
}

void* VirtualMemoryPool::Allocate(unsigned int size, PageItem& item) {
  const FailingNew::Pause pause;
  EngineRecord& record = EngineRecord::get();
  record.calls.push_back("Allocate(" + number(size) + ")");
  if (record.refuseAllocate || record.allocateUntilRefused == 0) {
    item.offset = 999;  // an engine may leave anything here when it fails
    return nullptr;
  }
  record.allocateUntilRefused -= record.allocateUntilRefused > 0 ? 1 : 0;
  item.offset = m_engine->next++;
  EngineRecord::Object& object = record.objects[item.offset];
  object.bytes.assign(std::max(size, 1U), '?');
  object.pins = 1;
  return object.bytes.data();
}

void* VirtualMemoryPool::GetAddress(PageItem& item, bool forWriting) {
  const FailingNew::Pause pause;
  EngineRecord& record = EngineRecord::get();
  record.calls.push_back("GetAddress(" + number(item.offset) +
                         (forWriting ? ", true)" : ", false)"));
  const auto found = record.objects.find(item.offset);
  if (record.refuseGetAddress || found == record.objects.end() ||
      record.unreadable.count(item.offset) != 0 || isRefused(record.pinsUntilRefused)) {
    return nullptr;
  }
  ++found->second.pins;
  return found->second.bytes.data();
}

// As one call after the other, which is what the record shows.
unsigned int VirtualMemoryPool::GetAddresses(const unsigned long long* offsets, void** addresses,
                                             unsigned int count, bool forWriting) {
  unsigned int pinned = 0;
  for (unsigned int i = 0; i < count; ++i) {
    PageItem item{offsets[i]};
    addresses[i] = offsets[i] + 1 <= 1 ? nullptr : GetAddress(item, forWriting);
    pinned += addresses[i] != nullptr ? 1 : 0;
  }
  return pinned;
}

void VirtualMemoryPool::DismissAll(const unsigned long long* offsets, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    if (offsets[i] + 1 > 1) {
      PageItem item{offsets[i]};
      Dismiss(item);
    }
  }
}

void VirtualMemoryPool::Dismiss(PageItem& item) {
  const FailingNew::Pause pause;
  EngineRecord& record = EngineRecord::get();
  record.calls.push_back("Dismiss(" + number(item.offset) + ")");
  --record.objects.at(item.offset).pins;
}

void* VirtualMemoryPool::MovePin(PageItem& from, PageItem& to) {
  Dismiss(from);
  return GetAddress(to, true);
}

// What is recorded is pinned: nothing counts as being in memory.
void* VirtualMemoryPool::GetUnpinned(PageItem&, bool) {
  return nullptr;
}

void VirtualMemoryPool::Prefetch(PageItem&) const {}

void VirtualMemoryPool::Dirty(PageItem& item) {
  const FailingNew::Pause pause;
  EngineRecord::get().calls.push_back("Dirty(" + number(item.offset) + ")");
}

unsigned int VirtualMemoryPool::GetSize(PageItem& item) {
  const auto found = EngineRecord::get().objects.find(item.offset);
  return found == EngineRecord::get().objects.end()
             ? 0
             : static_cast<unsigned int>(found->second.bytes.size());
}

void VirtualMemoryPool::Deallocate(PageItem& item) {
  const FailingNew::Pause pause;
  EngineRecord& record = EngineRecord::get();
  record.calls.push_back("Deallocate(" + number(item.offset) + ")");
  record.objects.erase(item.offset);
}

void VirtualMemoryPool::ExtractStats(VirtualMemoryStats* stats, unsigned int size,
                                     unsigned int& needed) {
  const std::vector<unsigned char>& bytes = EngineRecord::get().stats;
  needed = static_cast<unsigned int>(bytes.size());
  if (stats != nullptr && size >= needed) {
    std::memcpy(stats, bytes.data(), bytes.size());
  }
}

unsigned int VirtualMemoryPool::GetOutstandingReferences(VirtualMemoryReferenceInfo* list,
                                                         unsigned int capacity,
                                                         unsigned int* written) {
  unsigned int pinned = 0;
  unsigned int listed = 0;
  for (const auto& [offset, object] : EngineRecord::get().objects) {
    if (object.pins == 0) {
      continue;
    }
    ++pinned;
    if (list != nullptr && listed < capacity) {
      list[listed++] = {offset, static_cast<std::uint32_t>(object.bytes.size()), object.pins};
    }
  }
  if (written != nullptr) {
    *written = listed;
  }
  return pinned;
}

bool VirtualMemoryPool::SetMemorySize(unsigned long long bytes) {
  const FailingNew::Pause pause;
  EngineRecord::get().calls.push_back("SetMemorySize(" + number(bytes) + ")");
  m_engine->memorySize = bytes;
  return EngineRecord::get().lastError.empty();
}

unsigned long long VirtualMemoryPool::GetMemorySize() const {
  return m_engine->memorySize;
}

void VirtualMemoryPool::GetMemoryInUse(VirtualMemoryInUse& use) {
  use = {m_engine->memorySize, 2, 3, 4, 5, 6, 7};
}

const char* VirtualMemoryPool::GetBudgetExcess() {
  return EngineRecord::get().budgetExcess.c_str();
}

const char* VirtualMemoryPool::GetLastError() const {
  return EngineRecord::get().lastError.c_str();
}

bool VirtualMemoryPool::CanEncrypt() noexcept {
  return EngineRecord::get().canEncrypt;
}

}  // namespace tcmalloc
