#include "libtcmalloc_virtualmm/PageHash.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace tcmalloc {

#ifdef LIBTCMALLOC_VIRTUALMM_HAVE_AVX2

std::uint64_t PageHashAvx2(const void* bytes, std::size_t size, std::uint64_t seed) noexcept;

namespace {

const bool kHasAvx2 = __builtin_cpu_supports("avx2") != 0;

}  // namespace

#endif

std::uint64_t PageHash(const void* bytes, std::size_t size, std::uint64_t seed) noexcept {
#ifdef LIBTCMALLOC_VIRTUALMM_HAVE_AVX2
  if (kHasAvx2) {
    return PageHashAvx2(bytes, size, seed);
  }
#endif
  return XXH3_64bits_withSeed(bytes, size, seed);
}

}  // namespace tcmalloc
