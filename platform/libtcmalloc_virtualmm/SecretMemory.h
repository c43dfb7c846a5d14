#ifndef LIBTCMALLOC_VIRTUALMM_SECRETMEMORY_H
#define LIBTCMALLOC_VIRTUALMM_SECRETMEMORY_H

#include <cstddef>

namespace tcmalloc {

/// Takes zeroed memory for a key from the operating system, in pages of its own. As far as the
/// system allows, they are kept out of its swap space and of core dumps, and are zeros in a child
/// made by fork. Null when there is no memory.
char* MapSecretMemory(std::size_t bytes) noexcept;

/// Overwrites what MapSecretMemory returned and gives it back, with the same size.
void UnmapSecretMemory(char* memory, std::size_t bytes) noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SECRETMEMORY_H
