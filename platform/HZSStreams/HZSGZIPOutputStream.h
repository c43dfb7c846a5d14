#ifndef HZSSTREAMS_HZSGZIPOUTPUTSTREAM_H
#define HZSSTREAMS_HZSGZIPOUTPUTSTREAM_H

#include "HZSStreams/HZSOutputStream.h"
#include "QRTCore/QRTExport.h"

class GzipCompressor;

/// Compresses what is written to it and passes the gzip format (RFC 1952) on to another stream, the
/// sink. Bytes between two `finish` become one member; members in a row are a valid gzip stream.
///
/// A stream takes about half a megabyte, however much is written, and holds back up to a few
/// hundred kilobytes of it until `flush` or `finish`. Destroyed without `finish` it writes nothing
/// more, which leaves its last member cut off.
///
/// An error that the sink raises passes through. Nobody can tell then what the sink has kept, so
/// the member is lost: every later operation raises QRTIllegalStateError, whose text says how much
/// was written to the member and how much of its compressed form the sink has taken.
class QRT_EXPORT HZSGZIPOutputStream : public HZSOutputStream {
 public:
  static constexpr int kMinLevel = 0;      ///< fastest
  static constexpr int kMaxLevel = 9;      ///< smallest result
  static constexpr int kDefaultLevel = 1;  ///< nearly as fast, and much smaller than level 0

  /// Makes a stream without a sink.
  /// @throws std::bad_alloc
  HZSGZIPOutputStream();

  /// Drops what was not passed on. The sink is not touched.
  ~HZSGZIPOutputStream() override;

  /// Binds the stream to the one that receives the compressed bytes.
  /// @param sink  not owned, outlives the last operation of this stream; null unbinds
  void setSink(HZSOutputStream* sink);

  /// Chooses how hard to compress, from the next member on.
  /// @param level  kMinLevel to kMaxLevel; what lies outside is moved to the nearer end
  void setLevel(int level);

  /// Compresses bytes; begins a new member when the last one is finished.
  /// @param data  the bytes; null only with `n` 0
  /// @param n     how many; 0 does nothing
  /// @throws QRTAssertError without a sink or with null data, QRTIllegalStateError after an error
  ///         of the sink, and what the sink raises
  void write(const char* data, unsigned int n) override;

  /// Passes on everything written so far, so that a reader gets all of it, and flushes the sink.
  /// Costs compression when done often.
  /// @throws as `write`
  void flush() override;

  /// `finish`, then closes the sink.
  /// @throws as `write`
  void close() override;

  /// Passes on what is held back and ends the member. Without a byte written it makes an empty
  /// member, a second call in a row does nothing.
  /// @throws as `write`
  void finish();

  /// @return whether an error of the sink has cost the current member
  bool isLost() const noexcept { return m_state == eFailed; }

 private:
  enum State { eFresh, eInMember, eFinished, eFailed };

  void beginMember();
  void compress(const char* data, unsigned int n, int mode);
  [[noreturn]] void raiseLost() const;

  HZSOutputStream* m_sink;        // receives the compressed bytes, not owned
  GzipCompressor* m_compressor;   // the compression library, owned
  char* m_buffers;                // kBufferBytes of input, then as many of output; owned
  unsigned int m_gathered;        // bytes of input waiting in the first half
  unsigned long long m_written;   // bytes of input that the current member was given
  unsigned long long m_passedOn;  // bytes of its compressed form that the sink has taken
  int m_level;                    // for the next member
  State m_state;                  // where the current member stands
};

#endif  // HZSSTREAMS_HZSGZIPOUTPUTSTREAM_H
