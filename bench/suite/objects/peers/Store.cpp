#include "objects/Store.h"

#include "objects/ByHandle.h"
#include "objects/Churn.h"
#include "objects/Growth.h"
#include "objects/PackedHandles.h"
#include "objects/Paging.h"
#include "objects/Resident.h"

namespace objects {

namespace {

/// The other peers find objects by key with structures that lie in their budgets. So what the
/// handles take is taken off the store's.
void measurePagingStore(const Settings& settings) {
  Settings shared = settings;
  const std::uint64_t handles = PackedHandles::bytesFor(settings.bytes / 256);
  require(handles < settings.budget, "the budget does not even hold the handles");
  shared.budget -= handles;
  measurePaging<ByHandle<Store, PackedHandles>>(shared);
}

const Registration kRegistration({.name = "store",
                                  .resident = measureResident<ByHandle<Store>>,
                                  .paging = measurePagingStore,
                                  .churn = measureChurn<Store>,
                                  .growth = measureGrowth});

}  // namespace

}  // namespace objects
