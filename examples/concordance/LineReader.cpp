#include "LineReader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "SourceFile.h"

namespace example {

LineReader::LineReader() : m_buffer(std::make_unique<char[]>(kLongestLine)) {}

LineReader::~LineReader() {
  close();
}

void LineReader::close() {
  if (m_file != nullptr) {
    gzclose(m_file);
    m_file = nullptr;
  }
}

bool LineReader::open(const std::string& path) {
  close();
  m_at = m_end = 0;
  m_lineNumber = 0;
  m_bytes = 0;
  m_ended = m_isBinary = m_inLine = false;
  m_error.clear();
  SourceFile file;
  if (!file.openNamed(path)) {
    m_error = file.error();
    return false;
  }
  const int descriptor = file.release();
  m_file = gzdopen(descriptor, "rb");
  if (m_file == nullptr) {
    ::close(descriptor);
    m_error = "no memory to decompress it";
    return false;
  }
  fill();
  m_isBinary = std::memchr(m_buffer.get(), 0, m_end) != nullptr;
  return m_error.empty();
}

// Moves what is left to the front of the buffer and reads behind it.
void LineReader::fill() {
  std::memmove(m_buffer.get(), m_buffer.get() + m_at, m_end - m_at);
  m_end -= m_at;
  m_at = 0;
  while (!m_ended && m_end < kLongestLine) {
    const int got =
        gzread(m_file, m_buffer.get() + m_end, static_cast<unsigned int>(kLongestLine - m_end));
    if (got <= 0) {
      m_ended = true;
      int code = Z_OK;
      const char* const text = gzerror(m_file, &code);
      if (code == Z_ERRNO) {
        m_error = std::system_category().message(errno);
      } else if (code != Z_OK) {
        m_error = text;
      }
      return;
    }
    m_end += static_cast<std::size_t>(got);
    m_bytes += static_cast<std::size_t>(got);
  }
}

bool LineReader::next(std::string_view& line) {
  const auto findEnd = [&] {
    return static_cast<const char*>(std::memchr(m_buffer.get() + m_at, '\n', m_end - m_at));
  };
  const char* lineEnd = findEnd();
  if (lineEnd == nullptr && !m_ended) {
    fill();
    lineEnd = findEnd();
  }
  if (m_at == m_end) {
    return false;
  }
  if (!m_inLine) {
    ++m_lineNumber;
  }
  const char* const begin = m_buffer.get() + m_at;
  std::size_t length = m_end - m_at;
  if (lineEnd != nullptr) {
    length = static_cast<std::size_t>(lineEnd - begin);
    m_at += length + 1;
  } else {
    // A piece of a long line ends in front of a character, not inside it.
    if (!m_ended) {
      for (int i = 0; i < 3 && (static_cast<unsigned char>(begin[length - 1]) & 0xC0U) == 0x80U;
           ++i) {
        --length;
      }
      length -= static_cast<unsigned char>(begin[length - 1]) >= 0xC0U ? 1U : 0U;
    }
    m_at += length;
  }
  m_inLine = lineEnd == nullptr;
  if (length != 0 && !m_inLine && begin[length - 1] == '\r') {
    --length;
  }
  line = std::string_view(begin, length);
  return true;
}

}  // namespace example
