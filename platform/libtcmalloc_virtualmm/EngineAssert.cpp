#include "libtcmalloc_virtualmm/EngineAssert.h"

#include <cstdio>
#include <cstdlib>

namespace tcmalloc {

void AssertionFailed(const char* file, int line, const char* condition) noexcept {
  std::fprintf(stderr, "%s:%d: the paging engine broke its rule: %s\n", file, line, condition);
  std::abort();
}

}  // namespace tcmalloc
