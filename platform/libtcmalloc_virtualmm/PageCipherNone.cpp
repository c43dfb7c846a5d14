// A build without a library of ciphers.

#include "libtcmalloc_virtualmm/PageCipher.h"

namespace tcmalloc {

bool CanEncrypt() noexcept {
  return false;
}

std::unique_ptr<PageCipher> MakePageCipher(std::size_t /*unit*/) {
  return nullptr;
}

}  // namespace tcmalloc
