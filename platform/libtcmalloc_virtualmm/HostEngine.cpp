#include "libtcmalloc_virtualmm/HostEngine.h"

#include <utility>

#include "libtcmalloc_virtualmm/Engine.h"
#include "libtcmalloc_virtualmm/StoreFiles.h"

namespace tcmalloc {

std::unique_ptr<Engine> MakeHostEngine(unsigned int memorySize, const char* directory,
                                       bool encrypted) {
  EngineOptions options;
  options.budgetBytes = memorySize;
  options.encrypted = encrypted;
#if defined(LIBTCMALLOC_VIRTUALMM_CHECK_PINS)
  options.moveOnUnpin = true;
#endif
  StoreFiles files = MakeStoreFiles(options, directory);
  return std::make_unique<Engine>(options, std::move(files.pages), std::move(files.table));
}

}  // namespace tcmalloc
