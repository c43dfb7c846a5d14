#include "SortBuffer.h"

#include <algorithm>

#include "LineKey.h"

namespace example {

// Lines of usual lists have about 50 bytes, so a quarter of the memory is for their records.
SortBuffer::SortBuffer(std::size_t bytes) {
  m_lines.reserve(bytes / 4 / sizeof(Line));
  m_text.reserve(bytes - bytes / 4);
}

bool SortBuffer::add(std::string_view line) {
  if (line.size() > m_text.capacity() - m_text.size() || m_lines.size() == m_lines.capacity()) {
    return false;
  }
  m_lines.push_back({lineKey(line), static_cast<std::uint32_t>(m_text.size()),
                     static_cast<std::uint32_t>(line.size())});
  m_text.insert(m_text.end(), line.begin(), line.end());
  return true;
}

void SortBuffer::sort() {
  std::sort(m_lines.begin(), m_lines.end(), [this](const Line& a, const Line& b) {
    return lineBefore(a.key, textOf(a), b.key, textOf(b));
  });
}

void SortBuffer::clear() {
  m_text.clear();
  m_lines.clear();
}

}  // namespace example
