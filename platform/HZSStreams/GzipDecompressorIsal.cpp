// The decompressor over ISA-L.

#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <cstdint>

#include "HZSStreams/GzipDecompressor.h"

namespace {

const char* damageOf(int result) {
  switch (result) {
    case ISAL_INCORRECT_CHECKSUM:
      return "its checksum or length does not fit its content";
    case ISAL_INVALID_WRAPPER:
    case ISAL_UNSUPPORTED_METHOD:
      return "it does not begin as one";
    default:
      return "its compressed data is damaged";
  }
}

class IsalDecompressor final : public GzipDecompressor {
 public:
  void begin() override {
    isal_inflate_init(&m_state);
    m_state.crc_flag = ISAL_GZIP;
    isal_gzip_header_init(&m_header);
  }

  Step inflate(const char* input, std::size_t size, char* output, std::size_t room) override {
    // The library only reads its input, though it does not say so.
    m_state.next_in = reinterpret_cast<std::uint8_t*>(const_cast<char*>(input));
    m_state.avail_in = static_cast<std::uint32_t>(std::min<std::size_t>(size, UINT32_MAX));
    m_state.next_out = reinterpret_cast<std::uint8_t*>(output);
    m_state.avail_out = static_cast<std::uint32_t>(std::min<std::size_t>(room, UINT32_MAX));
    const std::uint32_t givenIn = m_state.avail_in;
    const std::uint32_t givenOut = m_state.avail_out;
    // The library's inflate reads the header by itself, but forgets between calls which optional
    // fields there are. Read on its own the header may come in pieces.
    int result = ISAL_DECOMP_OK;
    if (m_state.wrapper_flag == 0) {
      result = isal_read_gzip_header(&m_state, &m_header);
    }
    if (m_state.wrapper_flag != 0) {
      result = isal_inflate(&m_state);
    }
    return {givenIn - m_state.avail_in, givenOut - m_state.avail_out,
            result == ISAL_DECOMP_OK && m_state.block_state == ISAL_BLOCK_FINISH,
            result < 0 ? damageOf(result) : nullptr};
  }

 private:
  inflate_state m_state{};
  isal_gzip_header m_header{};  // what is known of the member's header; read once, then unused
};

}  // namespace

std::unique_ptr<GzipDecompressor> GzipDecompressor::make() {
  return std::make_unique<IsalDecompressor>();
}
