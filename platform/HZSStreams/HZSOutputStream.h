#ifndef HZSSTREAMS_HZSOUTPUTSTREAM_H
#define HZSSTREAMS_HZSOUTPUTSTREAM_H

#include "QRTCore/QRTExport.h"

/// Something that takes bytes. Writers are handed one of these and know nothing of what is behind.
class QRT_EXPORT HZSOutputStream {
 public:
  HZSOutputStream() = default;
  virtual ~HZSOutputStream();

  HZSOutputStream(const HZSOutputStream&) = delete;
  HZSOutputStream& operator=(const HZSOutputStream&) = delete;

  /// Takes bytes; all of them, or it raises an error.
  /// @param data  the bytes, not kept after the call
  /// @param n     how many
  virtual void write(const char* data, unsigned int n) = 0;

  /// Passes on what is held back. Does nothing here.
  virtual void flush();

  /// Ends the stream. Does nothing here.
  virtual void close();
};

#endif  // HZSSTREAMS_HZSOUTPUTSTREAM_H
