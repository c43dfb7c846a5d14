#include "Checksum.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace example {

std::uint64_t checksum(const void* bytes, std::size_t size) {
  return XXH3_64bits(bytes, size);
}

}  // namespace example
