#include "QRTVirtualFileStreamBuf.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "QRTVirtualFile.h"

// The buffer serves one direction at a time:
//   reading  the get area is what was read ahead; the file's position is at its end
//   writing  the put area is what waits to be written at the file's position
// Neither area is set while nothing is buffered.

QRTVirtualFileStreamBuf::QRTVirtualFileStreamBuf(QRTVirtualFile& file, std::size_t bufferSize)
    : m_file(file), m_buffer(std::clamp<std::size_t>(bufferSize, 1, INT_MAX)) {}

QRTVirtualFileStreamBuf::~QRTVirtualFileStreamBuf() {
  try {
    endWriting();
  } catch (...) {
    // Whoever wants to know has flushed before.
  }
}

/// Puts the file's position back over what was read ahead.
void QRTVirtualFileStreamBuf::endReading() {
  if (gptr() != egptr()) {
    m_file.seek(static_cast<int>(gptr() - egptr()), QRTFmFile::eSeekCurrent);
  }
  setg(nullptr, nullptr, nullptr);
}

/// Writes what waits.
void QRTVirtualFileStreamBuf::endWriting() {
  const auto waiting = static_cast<unsigned int>(pptr() - pbase());
  setp(nullptr, nullptr);
  if (waiting != 0) {
    m_file.write(m_buffer.data(), waiting);
  }
}

QRTVirtualFileStreamBuf::int_type QRTVirtualFileStreamBuf::underflow() {
  endWriting();
  setg(nullptr, nullptr, nullptr);
  const int got = m_file.read(m_buffer.data(), static_cast<unsigned int>(m_buffer.size()));
  if (got == 0) {
    return traits_type::eof();
  }
  setg(m_buffer.data(), m_buffer.data(), m_buffer.data() + got);
  return traits_type::to_int_type(*gptr());
}

QRTVirtualFileStreamBuf::int_type QRTVirtualFileStreamBuf::overflow(int_type c) {
  endReading();
  endWriting();
  setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
  if (traits_type::eq_int_type(c, traits_type::eof())) {
    return traits_type::not_eof(c);
  }
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

std::streamsize QRTVirtualFileStreamBuf::xsgetn(char* data, std::streamsize n) {
  std::streamsize done = 0;
  while (done < n) {
    const std::streamsize ready = egptr() - gptr();
    if (ready != 0) {
      const std::streamsize chunk = std::min(ready, n - done);
      std::memcpy(data + done, gptr(), static_cast<std::size_t>(chunk));
      gbump(static_cast<int>(chunk));
      done += chunk;
    } else if (n - done >= static_cast<std::streamsize>(m_buffer.size())) {
      endWriting();
      const auto chunk = static_cast<unsigned int>(std::min<std::streamsize>(n - done, INT_MAX));
      const int got = m_file.read(data + done, chunk);
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

std::streamsize QRTVirtualFileStreamBuf::xsputn(const char* data, std::streamsize n) {
  for (std::streamsize done = 0; done < n;) {
    const std::streamsize room = epptr() - pptr();
    if (n - done <= room) {
      std::memcpy(pptr(), data + done, static_cast<std::size_t>(n - done));
      pbump(static_cast<int>(n - done));
      done = n;
    } else if (n - done >= static_cast<std::streamsize>(m_buffer.size())) {
      endReading();
      endWriting();
      const auto chunk = static_cast<unsigned int>(std::min<std::streamsize>(n - done, INT_MAX));
      m_file.write(data + done, chunk);
      done += chunk;
    } else {
      overflow(traits_type::eof());
    }
  }
  return n;
}

int QRTVirtualFileStreamBuf::sync() {
  endReading();
  endWriting();
  return 0;
}

/// The stream's position.
QRTVirtualFileStreamBuf::off_type QRTVirtualFileStreamBuf::getPosition() const {
  const auto position = static_cast<unsigned int>(m_file.seek(0, QRTFmFile::eSeekCurrent));
  return off_type{position} - (egptr() - gptr()) + (pptr() - pbase());
}

// The file takes ints, so far ways are gone in steps.
QRTVirtualFileStreamBuf::pos_type QRTVirtualFileStreamBuf::seekoff(off_type offset,
                                                                   std::ios_base::seekdir origin,
                                                                   std::ios_base::openmode) {
  if (origin == std::ios_base::cur && offset == 0) {
    return getPosition();  // asked for, not moved: what is buffered stays
  }
  sync();
  off_type target = 0;
  if (origin == std::ios_base::cur) {
    target = getPosition();
  } else if (origin == std::ios_base::end) {
    target = static_cast<unsigned int>(m_file.getLength());
  }
  constexpr off_type kMaxPosition = off_type{UINT_MAX} - 1;  // the last that the file seeks to
  if (offset < -target || offset > kMaxPosition - target) {
    return off_type{-1};
  }
  target += offset;
  while (off_type way = target - getPosition()) {
    way = std::clamp<off_type>(way, -INT_MAX, INT_MAX);
    if (m_file.seek(static_cast<int>(way), QRTFmFile::eSeekCurrent) == -1) {
      return off_type{-1};
    }
  }
  return target;
}

QRTVirtualFileStreamBuf::pos_type QRTVirtualFileStreamBuf::seekpos(pos_type position,
                                                                   std::ios_base::openmode which) {
  return seekoff(position, std::ios_base::beg, which);
}
