// PageHash in instructions that not every x86-64 processor has. Compiled on its own, with them.

#include <cstddef>
#include <cstdint>

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace tcmalloc {

std::uint64_t PageHashAvx2(const void* bytes, std::size_t size, std::uint64_t seed) noexcept;

std::uint64_t PageHashAvx2(const void* bytes, std::size_t size, std::uint64_t seed) noexcept {
  return XXH3_64bits_withSeed(bytes, size, seed);
}

}  // namespace tcmalloc
