#ifndef EXAMPLES_FILESTORE_CHECKSUM_H
#define EXAMPLES_FILESTORE_CHECKSUM_H

#include <cstddef>
#include <cstdint>

namespace example {

/// A 64-bit checksum. Two contents share one by accident once in 2^64 comparisons, which is what
/// lets the verifier tell a changed file from a damaged object.
std::uint64_t checksum(const void* bytes, std::size_t size);

}  // namespace example

#endif  // EXAMPLES_FILESTORE_CHECKSUM_H
