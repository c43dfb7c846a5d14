// The compressor over ISA-L, which is several times faster than zlib for a tenth more bytes.

#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <cstdint>

#include "HZSStreams/GzipCompressor.h"
#include "QRTCore/QRTAssert.h"

namespace {

/// The library's working memory for each of its levels, the last one's being the largest.
constexpr std::uint32_t kLevelBytes[] = {ISAL_DEF_LVL0_DEFAULT, ISAL_DEF_LVL1_DEFAULT,
                                         ISAL_DEF_LVL2_DEFAULT, ISAL_DEF_LVL3_DEFAULT};

class IsalCompressor final : public GzipCompressor {
 public:
  void begin(int level) override {
    isal_deflate_init(&m_stream);
    m_stream.gzip_flag = IGZIP_GZIP;
    m_stream.level = static_cast<std::uint32_t>(std::clamp(level, 0, ISAL_DEF_MAX_LEVEL));
    m_stream.level_buf = m_levelBuffer.get();
    m_stream.level_buf_size = kLevelBytes[m_stream.level];
  }

  Step compress(const char* input, std::size_t size, char* output, std::size_t room,
                Mode mode) override {
    // The library only reads its input, though it does not say so.
    m_stream.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(input));
    m_stream.avail_in = static_cast<std::uint32_t>(std::min<std::size_t>(size, UINT32_MAX));
    m_stream.next_out = reinterpret_cast<std::uint8_t*>(output);
    m_stream.avail_out = static_cast<std::uint32_t>(std::min<std::size_t>(room, UINT32_MAX));
    const std::uint32_t givenIn = m_stream.avail_in;
    const std::uint32_t givenOut = m_stream.avail_out;
    m_stream.end_of_stream = mode == eFinish && givenIn == size ? 1 : 0;
    m_stream.flush = mode == eFlush ? SYNC_FLUSH : NO_FLUSH;
    const int result = isal_deflate(&m_stream);
    if (result != COMP_OK) {
      QRT_THROW(QRTIllegalStateError(0, "the compression library refuses to go on"));
    }
    const std::size_t consumed = givenIn - m_stream.avail_in;
    // Room that is left tells that nothing waits to come out.
    const bool done = mode == eFinish ? m_stream.internal_state.state == ZSTATE_END
                                      : consumed == size && m_stream.avail_out != 0;
    return {consumed, givenOut - m_stream.avail_out, done};
  }

 private:
  isal_zstream m_stream{};
  std::unique_ptr<std::uint8_t[]> m_levelBuffer{new std::uint8_t[kLevelBytes[ISAL_DEF_MAX_LEVEL]]};
};

}  // namespace

std::unique_ptr<GzipCompressor> GzipCompressor::make() {
  return std::make_unique<IsalCompressor>();
}
