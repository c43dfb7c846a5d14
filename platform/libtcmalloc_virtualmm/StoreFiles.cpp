#include "libtcmalloc_virtualmm/StoreFiles.h"

#include <cstddef>
#include <utility>

#include "libtcmalloc_virtualmm/EncryptedPagingFile.h"
#include "libtcmalloc_virtualmm/PageCipher.h"
#include "libtcmalloc_virtualmm/PageTable.h"

namespace tcmalloc {

namespace {

/// @param unit  bytes that all offsets and sizes in the file are multiples of
std::unique_ptr<PagingFile> Encrypt(std::unique_ptr<PagingFile> file, std::size_t unit) {
  return std::make_unique<EncryptedPagingFile>(std::move(file), MakePageCipher(unit), unit);
}

}  // namespace

StoreFiles MakeStoreFiles(const EngineOptions& options, const char* directory) {
  return EncryptIfWanted(options, {MakePagingFile(directory), MakePagingFile(directory)});
}

// The page table's file holds which pages are in use and the hashes of their contents, which tell
// whoever guesses a content that it is there: it is encrypted as well.
StoreFiles EncryptIfWanted(const EngineOptions& options, StoreFiles files) {
  if (options.encrypted) {
    files.pages = Encrypt(std::move(files.pages), std::size_t{1} << options.PageShift());
    files.table = Encrypt(std::move(files.table), PageTable::kImageBytes);
  }
  return files;
}

}  // namespace tcmalloc
