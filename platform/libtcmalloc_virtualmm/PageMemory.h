#ifndef LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H
#define LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H

#include <cstddef>

namespace tcmalloc {

/// The size of the huge pages that MapPageMemory can ask for.
constexpr std::size_t kHugePageBytes = std::size_t{2} << 20;

/// Takes `bytes` of zeroed, page-aligned memory from the operating system; null when it has none.
/// @param huge  ask for huge pages, which save address translations; only for a multiple of
///              kHugePageBytes, and only if the system has some
char* MapPageMemory(std::size_t bytes, bool huge) noexcept;

/// Gives back what MapPageMemory returned, with the same size.
void UnmapPageMemory(char* memory, std::size_t bytes) noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGEMEMORY_H
