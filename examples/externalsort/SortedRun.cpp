#include "SortedRun.h"

#include <cstring>

#include "LineKey.h"

namespace example {

SortedRun::SortedRun(QRTVirtualMemoryMgr& manager, const MemoryPlan& plan, bool compress)
    : m_compress(compress) {
  m_file.open(&manager, 0, plan.pageSize, compress);
  m_waiting.reserve(plan.pageSize);
}

void SortedRun::add(std::string_view line) {
  if (line.size() + 1 > m_waiting.capacity() - m_waiting.size()) {
    write();
  }
  if (line.size() + 1 > m_waiting.capacity()) {
    m_file.write(line.data(), static_cast<unsigned int>(line.size()));
  } else {
    m_waiting.insert(m_waiting.end(), line.begin(), line.end());
  }
  m_waiting.push_back('\n');
  m_plainBytes += line.size() + 1;
}

void SortedRun::write() {
  m_file.write(m_waiting.data(), static_cast<unsigned int>(m_waiting.size()));
  m_waiting.clear();
}

void SortedRun::close() {
  write();
  m_file.close();
  std::vector<char>().swap(m_waiting);
}

RunReader::RunReader(SortedRun& run, const MemoryPlan& plan)
    : m_file(run.m_file), m_buffer(plan.bufferBytes) {
  m_file.seek(0, QRTFmFile::eSeekSet);
  if (run.m_compress) {
    m_reader = std::make_unique<QRTVirtualFileGZIPReader>(
        m_file, static_cast<unsigned int>(plan.bufferBytes));
  }
}

bool RunReader::next() {
  for (std::size_t searched = 0;;) {
    const char* const begin = m_buffer.data() + m_begin;
    const std::size_t size = m_end - m_begin;
    const void* const newline = std::memchr(begin + searched, '\n', size - searched);
    if (newline != nullptr) {
      m_line = {begin, static_cast<std::size_t>(static_cast<const char*>(newline) - begin)};
      m_key = lineKey(m_line);
      m_begin += m_line.size() + 1;
      return true;
    }
    searched = size;
    if (!fill()) {
      return false;
    }
  }
}

/// Reads more of the run behind what is left of the line. @return false at the end
bool RunReader::fill() {
  std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
  m_end -= m_begin;
  m_begin = 0;
  if (m_end == m_buffer.size()) {
    m_buffer.resize(m_buffer.size() * 2);
  }
  char* const to = m_buffer.data() + m_end;
  const auto room = static_cast<unsigned int>(m_buffer.size() - m_end);
  const unsigned int got = m_reader != nullptr ? m_reader->read(to, room)
                                               : static_cast<unsigned int>(m_file.read(to, room));
  m_end += got;
  return got != 0;
}

}  // namespace example
