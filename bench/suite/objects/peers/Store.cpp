#include "Store.h"

#include "ByHandle.h"
#include "Churn.h"
#include "PackedHandles.h"
#include "Paging.h"
#include "Resident.h"

namespace {

/// The other peers find objects by key with structures that lie in their budgets. So what the
/// handles take is taken off the store's.
void measurePagingStore(const Settings& settings) {
  Settings shared = settings;
  const std::uint64_t handles = PackedHandles::bytesFor(settings.bytes.value / 256);
  suite::require(handles < settings.budget.value, "the budget does not even hold the handles");
  shared.budget.value -= handles;
  QRTVirtualMemoryMgr::setPagingFileEncryption(settings.encrypt ? 1 : 0);
  measurePaging<ByHandle<Store, PackedHandles>>(shared);
}

}  // namespace

void addStore(const AddPeer& add) {
  addResident<ByHandle<Store>>(add, "store");
  add("paging", "store", measurePagingStore);
  add("churn", "store", measureChurn<Store>);
  add("growth", "store", measureGrowth);
}
