// The decompressor over zlib.

#define ZLIB_CONST  // the library then says that it only reads its input
#include <zlib.h>

#include <algorithm>
#include <climits>
#include <new>

#include "HZSStreams/GzipDecompressor.h"

namespace {

constexpr int kGzipFormat = 16;  // added to the window size to ask for gzip

class ZlibDecompressor final : public GzipDecompressor {
 public:
  ZlibDecompressor() {
    if (inflateInit2(&m_stream, MAX_WBITS + kGzipFormat) != Z_OK) {
      throw std::bad_alloc();
    }
  }
  ~ZlibDecompressor() override { inflateEnd(&m_stream); }
  ZlibDecompressor(const ZlibDecompressor&) = delete;
  ZlibDecompressor& operator=(const ZlibDecompressor&) = delete;

  void begin() override { inflateReset(&m_stream); }

  Step inflate(const char* input, std::size_t size, char* output, std::size_t room) override {
    m_stream.next_in = reinterpret_cast<const Bytef*>(input);
    m_stream.avail_in = static_cast<uInt>(std::min<std::size_t>(size, UINT_MAX));
    m_stream.next_out = reinterpret_cast<Bytef*>(output);
    m_stream.avail_out = static_cast<uInt>(std::min<std::size_t>(room, UINT_MAX));
    const uInt givenIn = m_stream.avail_in;
    const uInt givenOut = m_stream.avail_out;
    const int result = ::inflate(&m_stream, Z_NO_FLUSH);
    if (result == Z_MEM_ERROR) {  // its window is allocated when first needed
      throw std::bad_alloc();
    }
    const bool damaged = result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR;
    const char* const damage = m_stream.msg != nullptr ? m_stream.msg : "its data is damaged";
    return {givenIn - m_stream.avail_in, givenOut - m_stream.avail_out, result == Z_STREAM_END,
            damaged ? damage : nullptr};
  }

 private:
  z_stream m_stream{};
};

}  // namespace

std::unique_ptr<GzipDecompressor> GzipDecompressor::make() {
  return std::make_unique<ZlibDecompressor>();
}
