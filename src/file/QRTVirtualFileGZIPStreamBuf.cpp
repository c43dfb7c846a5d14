#include "QRTVirtualFileGZIPStreamBuf.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <exception>

QRTVirtualFileGZIPStreamBuf::QRTVirtualFileGZIPStreamBuf(QRTVirtualFile& file,
                                                         std::size_t bufferSize)
    : m_reader(file),
      m_buffer(std::clamp<std::size_t>(bufferSize, 1, INT_MAX)),
      m_fetched(0),
      m_error{} {}

QRTVirtualFileGZIPStreamBuf::~QRTVirtualFileGZIPStreamBuf() = default;

/// Inflates up to `n` bytes and keeps the text of an error, which a stream drops.
/// @return bytes fetched; 0 at the end only
unsigned int QRTVirtualFileGZIPStreamBuf::fetch(char* to, std::size_t n) {
  try {
    const unsigned int got =
        m_reader.read(to, static_cast<unsigned int>(std::min<std::size_t>(n, INT_MAX)));
    m_fetched += got;
    return got;
  } catch (const std::exception& error) {
    std::snprintf(m_error, sizeof m_error, "%s", error.what());
    throw;
  }
}

QRTVirtualFileGZIPStreamBuf::int_type QRTVirtualFileGZIPStreamBuf::underflow() {
  if (gptr() == egptr()) {
    setg(nullptr, nullptr, nullptr);
    const unsigned int got = fetch(m_buffer.data(), m_buffer.size());
    if (got == 0) {
      return traits_type::eof();
    }
    setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + got);
  }
  return traits_type::to_int_type(*gptr());
}

// A transfer that is cut short would pass for the end of the content: where it meets damage the
// error comes out, though some bytes were copied before.
std::streamsize QRTVirtualFileGZIPStreamBuf::xsgetn(char* data, std::streamsize n) {
  std::streamsize done = 0;
  while (done < n) {
    const std::streamsize ready = egptr() - gptr();
    if (ready != 0) {
      const std::streamsize chunk = std::min(ready, n - done);
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(chunk));
      gbump(static_cast<int>(chunk));
      done += chunk;
    } else if (n - done >= static_cast<std::streamsize>(m_buffer.size())) {
      const unsigned int got = fetch(data + done, static_cast<std::size_t>(n - done));
      if (got == 0) {
        break;
      }
      done += got;
    } else if (traits_type::eq_int_type(underflow(), traits_type::eof())) {
      break;
    }
  }
  return done;
}

QRTVirtualFileGZIPStreamBuf::pos_type QRTVirtualFileGZIPStreamBuf::seekoff(
    off_type offset, std::ios_base::seekdir origin, std::ios_base::openmode which) {
  const bool asked =
      offset == 0 && origin == std::ios_base::cur && (which & std::ios_base::in) != 0;
  return asked ? m_fetched - (egptr() - gptr()) : off_type{-1};
}
