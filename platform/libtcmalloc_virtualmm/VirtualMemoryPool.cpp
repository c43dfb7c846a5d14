#include "libtcmalloc_virtualmm/VirtualMemoryPool.h"

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/HostEngine.h"
#include "libtcmalloc_virtualmm/PageCipher.h"

namespace tcmalloc {

VirtualMemoryPool::VirtualMemoryPool(unsigned int memorySize, const char* directory, bool encrypted)
    : m_engine(MakeHostEngine(memorySize, directory, encrypted).release()) {}

VirtualMemoryPool::~VirtualMemoryPool() {
  delete m_engine;
}

void* VirtualMemoryPool::Allocate(unsigned int size, PageItem& item) {
  return m_engine->Allocate(size, item.offset);
}

void* VirtualMemoryPool::GetAddress(PageItem& item, bool forWriting) {
  return m_engine->GetAddress(item.offset, forWriting);
}

unsigned int VirtualMemoryPool::GetAddresses(const unsigned long long* offsets, void** addresses,
                                             unsigned int count, bool forWriting) {
  return m_engine->GetAddresses(offsets, addresses, count, forWriting);
}

void VirtualMemoryPool::DismissAll(const unsigned long long* offsets, unsigned int count) {
  m_engine->DismissAll(offsets, count);
}

void VirtualMemoryPool::Dismiss(PageItem& item) {
  m_engine->Dismiss(item.offset);
}

void* VirtualMemoryPool::MovePin(PageItem& from, PageItem& to) {
  return m_engine->MovePin(from.offset, to.offset);
}

void* VirtualMemoryPool::GetUnpinned(PageItem& item, bool forWriting) {
  return m_engine->GetUnpinned(item.offset, forWriting);
}

void VirtualMemoryPool::Prefetch(PageItem& item) const {
  m_engine->Prefetch(item.offset);
}

void VirtualMemoryPool::Dirty(PageItem& item) {
  m_engine->Dirty(item.offset);
}

unsigned int VirtualMemoryPool::GetSize(PageItem& item) {
  return m_engine->GetSize(item.offset);
}

void VirtualMemoryPool::Deallocate(PageItem& item) {
  m_engine->Deallocate(item.offset);
}

void VirtualMemoryPool::ExtractStats(VirtualMemoryStats* stats, unsigned int size,
                                     unsigned int& needed) {
  m_engine->ExtractStats(stats, size, needed);
}

unsigned int VirtualMemoryPool::GetOutstandingReferences(VirtualMemoryReferenceInfo* list,
                                                         unsigned int capacity,
                                                         unsigned int* written) {
  return m_engine->GetOutstandingReferences(list, capacity, written);
}

bool VirtualMemoryPool::SetMemorySize(unsigned long long bytes) {
  return m_engine->SetMemorySize(bytes);
}

unsigned long long VirtualMemoryPool::GetMemorySize() const {
  return m_engine->GetMemorySize();
}

void VirtualMemoryPool::GetMemoryInUse(VirtualMemoryInUse& use) {
  m_engine->GetMemoryInUse(use);
}

const char* VirtualMemoryPool::GetBudgetExcess() {
  return m_engine->GetBudgetExcess();
}

const char* VirtualMemoryPool::GetLastError() const {
  return m_engine->GetLastError();
}

bool VirtualMemoryPool::CanEncrypt() noexcept {
  return tcmalloc::CanEncrypt();
}

}  // namespace tcmalloc
