#include "InputLines.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "ByteSize.h"

namespace example {

namespace {

constexpr std::size_t kLeastBuffer = 128U << 10;

}  // namespace

InputLines::InputLines(std::vector<std::string> files, std::uint64_t bytes, std::size_t longest)
    : m_files(std::move(files)), m_wanted(bytes), m_buffer(std::max(longest + 1, kLeastBuffer)) {
  for (const std::string& path : m_files) {
    SourceFile file;
    FileStatus status;
    if (!file.openNamed(path) || !file.readStatus(status)) {
      throw std::runtime_error(path + ": " + file.error());
    }
    m_onceBytes += status.size;
  }
}

bool InputLines::next(std::string_view& line) {
  if (m_wanted != 0 && m_given >= m_wanted) {
    return false;
  }
  std::size_t searched = 0;
  for (;;) {
    const char* const begin = m_buffer.data() + m_begin;
    const std::size_t size = m_end - m_begin;
    const void* const newline = std::memchr(begin + searched, '\n', size - searched);
    if (newline != nullptr) {
      line = {begin, static_cast<std::size_t>(static_cast<const char*>(newline) - begin)};
      m_begin += line.size() + 1;
      break;
    }
    searched = size;
    if (fill()) {
      continue;
    }
    if (m_begin != m_end) {  // the file's last line, without a newline
      line = {m_buffer.data() + m_begin, m_end - m_begin};
      m_begin = m_end;
      break;
    }
    if (!nextFile()) {
      return false;
    }
    searched = 0;
  }
  m_given += line.size() + 1;
  return true;
}

bool InputLines::nextFile() {
  if (m_nextFile == m_files.size()) {
    if (m_wanted == 0 || empty()) {
      return false;
    }
    m_nextFile = 0;
  }
  const std::string& path = m_files[m_nextFile++];
  m_offset = 0;
  m_isOpen = m_file.openNamed(path);
  if (!m_isOpen) {
    throw std::runtime_error(path + ": " + m_file.error());
  }
  return true;
}

/// Reads more of the file behind what is left of the line. @return false at the file's end
bool InputLines::fill() {
  if (!m_isOpen) {
    return false;
  }
  std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
  m_end -= m_begin;
  m_begin = 0;
  const std::string& path = m_files[m_nextFile - 1];
  if (m_end == m_buffer.size()) {
    throw std::runtime_error(path + ": a line is longer than " + formatBytes(m_end) +
                             ", which the budget allows; raise --budget");
  }
  auto* const to = reinterpret_cast<std::byte*>(m_buffer.data() + m_end);
  const std::size_t got = m_file.read(m_offset, to, m_buffer.size() - m_end);
  if (!m_file.error().empty()) {
    throw std::runtime_error(path + ": " + m_file.error());
  }
  m_offset += got;
  m_end += got;
  return got != 0;
}

}  // namespace example
