#ifndef EXAMPLES_COMMON_BYTESIZE_H
#define EXAMPLES_COMMON_BYTESIZE_H

#include <cstdint>
#include <string>

namespace example {

/// Reads a byte count such as "4096", "512K", "16M" or "1G" (powers of 1,024, either case).
/// @throws std::invalid_argument with a text for the user: not a number, an unknown suffix, or more
///         than 64 bits hold
std::uint64_t parseByteSize(const std::string& text);

/// Reads a memory budget for a store: a byte count of 1 to 4 GiB - 1, what a manager takes.
/// @throws std::invalid_argument with a text for the user
unsigned int parseBudget(const std::string& text);

/// Writes a byte count for people, for example "16.0 MiB".
std::string formatBytes(std::uint64_t bytes);

/// Writes a count with its thousands apart, for example "56,736".
std::string formatCount(std::uint64_t count);

/// Writes a speed in decimal megabytes a second; "-" when no time passed.
std::string formatSpeed(std::uint64_t bytes, double seconds);

}  // namespace example

#endif  // EXAMPLES_COMMON_BYTESIZE_H
