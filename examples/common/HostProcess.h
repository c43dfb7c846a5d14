#ifndef EXAMPLES_COMMON_HOSTPROCESS_H
#define EXAMPLES_COMMON_HOSTPROCESS_H

#include <cstdint>

namespace example {

/// The most memory the process ever had resident, in bytes; 0 when the system does not tell.
std::uint64_t peakResidentBytes();

/// The most memory the process ever had mapped, in bytes: address space, or on Windows, where that
/// is not counted, memory of its own. 0 when the system does not tell.
std::uint64_t peakMappedBytes();

/// Makes the system refuse the process more mapped memory than `bytes`. @return whether it will
bool limitMappedBytes(std::uint64_t bytes);

/// The memory the process has resident now, in bytes; 0 when the system does not tell.
std::uint64_t residentBytes();

/// Columns of the terminal that standard error is, 80 when it does not tell; 0 when standard error
/// is no terminal and a progress bar makes no sense.
unsigned int standardErrorColumns();

/// The same for standard output; 0 when it is a file or a pipe, whose lines may have any length.
unsigned int standardOutputColumns();

}  // namespace example

#endif  // EXAMPLES_COMMON_HOSTPROCESS_H
