#ifndef LIBTCMALLOC_VIRTUALMM_STOREFILES_H
#define LIBTCMALLOC_VIRTUALMM_STOREFILES_H

#include <memory>

#include "libtcmalloc_virtualmm/EngineOptions.h"
#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

/// The two private files of an engine, not open yet.
struct StoreFiles {
  std::unique_ptr<PagingFile> pages;  ///< the paging file
  std::unique_ptr<PagingFile> table;  ///< the page table's own
};

/// The operating system's files in `directory` (see MakePagingFile), encrypted if the options say
/// so.
/// @throws std::bad_alloc
StoreFiles MakeStoreFiles(const EngineOptions& options, const char* directory);

/// Puts encryption before both files, each with a key of its own, if the options say so. In a build
/// without a cipher the result cannot be opened: nothing that was to be encrypted is written as it
/// is.
/// @throws std::bad_alloc
StoreFiles EncryptIfWanted(const EngineOptions& options, StoreFiles files);

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_STOREFILES_H
