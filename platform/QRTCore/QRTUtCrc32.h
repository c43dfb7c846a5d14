#ifndef QRTCORE_QRTUTCRC32_H
#define QRTCORE_QRTUTCRC32_H

#include "QRTCore/QRTExport.h"

/// The 32-bit cyclic redundancy check of gzip and zip files (ISO-HDLC: polynomial 0x04C11DB7, bits
/// reflected, initial value and final exclusive-or all-ones).
class QRT_EXPORT QRTUtCrc32 {
 public:
  /// Extends a check value by more bytes, so that a long input can be given in pieces.
  /// @param seed    0 for the first piece, then what the piece before gave
  /// @param data    the bytes; null leaves the value as it is
  /// @param length  how many bytes
  /// @return the check value of everything so far. Throws nothing; cost O(length).
  static unsigned int crc32(unsigned int seed, const unsigned char* data,
                            unsigned int length) noexcept;
};

#endif  // QRTCORE_QRTUTCRC32_H
