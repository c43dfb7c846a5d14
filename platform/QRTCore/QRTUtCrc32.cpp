#include "QRTCore/QRTUtCrc32.h"

#include <zlib.h>

unsigned int QRTUtCrc32::crc32(unsigned int seed, const unsigned char* data,
                               unsigned int length) noexcept {
  // zlib answers null with the value of the empty input, whatever the seed.
  if (data == nullptr) {
    return seed;
  }
  return static_cast<unsigned int>(::crc32(seed, data, length));
}
