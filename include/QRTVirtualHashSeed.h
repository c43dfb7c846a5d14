#ifndef QRTVIRTUALHASHSEED_H
#define QRTVIRTUALHASHSEED_H

#include <cstddef>

#include "QRTCore/QRTExport.h"

/// A random number, and hashes that depend on it. Whoever chooses keys without knowing the number
/// cannot choose such that collide, so that a map of strangers' keys stays as fast as any other.
/// A plain value; copies make the same hashes. It keeps out guessers and is no cipher.
class QRT_EXPORT QRTVirtualHashSeed {
 public:
  /// Draws a seed that no other seed of the process has. The system's source of random numbers is
  /// asked once a process; where it fails, the clock stands in.
  QRTVirtualHashSeed() noexcept;

  /// @param number  such as a std::hash, which may be the key itself
  /// @return 64 bits that all depend on every bit of the number and of the seed
  unsigned long long ofNumber(unsigned long long number) const noexcept;

  /// @param bytes  what to hash; may be null when `size` is 0
  /// @param size   how many bytes
  /// @return 64 bits that all depend on every byte and on the seed
  unsigned long long ofBytes(const void* bytes, std::size_t size) const noexcept;

 private:
  unsigned long long m_seed;  // as it was drawn
};

#endif  // QRTVIRTUALHASHSEED_H
