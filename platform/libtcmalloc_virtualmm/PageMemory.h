#ifndef LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H
#define LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H

#include <cstddef>

namespace tcmalloc {

/// Takes `bytes` of zeroed, page-aligned memory from the operating system; null when it has none.
char* MapPageMemory(std::size_t bytes) noexcept;

/// Gives back what MapPageMemory returned, with the same size.
void UnmapPageMemory(char* memory, std::size_t bytes) noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H
