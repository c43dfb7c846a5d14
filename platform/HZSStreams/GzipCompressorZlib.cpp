// The compressor over zlib, which is there on every system.

#define ZLIB_CONST  // the library then says that it only reads its input
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>

#include "HZSStreams/GzipCompressor.h"
#include "QRTCore/QRTAssert.h"

namespace {

constexpr int kGzipFormat = 16;  // added to the window size to ask for gzip
constexpr int kMemoryLevel = 8;  // the library's default: 256 KiB in all

class ZlibCompressor final : public GzipCompressor {
 public:
  ZlibCompressor() {
    if (deflateInit2(&m_stream, 1, Z_DEFLATED, MAX_WBITS + kGzipFormat, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~ZlibCompressor() override { deflateEnd(&m_stream); }
  ZlibCompressor(const ZlibCompressor&) = delete;
  ZlibCompressor& operator=(const ZlibCompressor&) = delete;

  // The library's level 0 does not compress at all, so 1 is the fastest.
  void begin(int level) override {
    deflateReset(&m_stream);
    m_stream.avail_in = 0;
    m_stream.avail_out = 0;
    deflateParams(&m_stream, std::clamp(level, Z_BEST_SPEED, Z_BEST_COMPRESSION),
                  Z_DEFAULT_STRATEGY);
  }

  Step compress(const char* input, std::size_t size, char* output, std::size_t room,
                Mode mode) override {
    m_stream.next_in = reinterpret_cast<const Bytef*>(input);
    m_stream.avail_in = static_cast<uInt>(std::min<std::size_t>(size, UINT_MAX));
    m_stream.next_out = reinterpret_cast<Bytef*>(output);
    m_stream.avail_out = static_cast<uInt>(std::min<std::size_t>(room, UINT_MAX));
    const uInt givenIn = m_stream.avail_in;
    const uInt givenOut = m_stream.avail_out;
    static constexpr int kFlush[] = {Z_NO_FLUSH, Z_SYNC_FLUSH, Z_FINISH};
    const int result = deflate(&m_stream, givenIn == size ? kFlush[mode] : Z_NO_FLUSH);
    // Z_BUF_ERROR: there was nothing to do, as with no input or a flush after a flush.
    if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
      QRT_THROW(QRTIllegalStateError(0, "the compression library refuses to go on"));
    }
    const std::size_t consumed = givenIn - m_stream.avail_in;
    const bool done =
        mode == eFinish ? result == Z_STREAM_END : consumed == size && m_stream.avail_out != 0;
    return {consumed, givenOut - m_stream.avail_out, done};
  }

 private:
  z_stream m_stream{};
};

}  // namespace

std::unique_ptr<GzipCompressor> GzipCompressor::make() {
  return std::make_unique<ZlibCompressor>();
}
