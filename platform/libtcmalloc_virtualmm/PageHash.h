#ifndef LIBTCMALLOC_VIRTUALMM_PAGEHASH_H
#define LIBTCMALLOC_VIRTUALMM_PAGEHASH_H

#include <cstddef>
#include <cstdint>

namespace tcmalloc {

/// The XXH3 hash of 64 bits of what goes to a file and comes back from it, with the fastest
/// instructions that the processor has.
/// @param seed  where the image belongs: one that ends up at another place does not fit
std::uint64_t PageHash(const void* bytes, std::size_t size, std::uint64_t seed) noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGEHASH_H
