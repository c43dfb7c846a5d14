#include "SortedOutput.h"

#include <functional>
#include <sstream>
#include <stdexcept>

namespace example {

namespace {

constexpr std::size_t kPieceBytes = 128U << 10;

}  // namespace

void LineSum::add(std::string_view line) {
  ++lines;
  bytes += line.size() + 1;
  hashes += std::hash<std::string_view>()(line);
}

SortedOutput::SortedOutput(const std::string& path) : m_path(path) {
  if (!path.empty() && m_file.open(path.c_str(), QRTFmFile::eCreateAlways, 0) == 0) {
    std::ostringstream text;
    text << path << ": " << m_file.getLastErrorMessage();
    throw std::runtime_error(text.str());
  }
}

void SortedOutput::add(std::string_view line) {
  if (line < m_last) {
    ++m_misplaced;
  }
  m_last = line;
  m_sum.add(line);
  if (!m_path.empty()) {
    m_waiting.insert(m_waiting.end(), line.begin(), line.end());
    m_waiting.push_back('\n');
    if (m_waiting.size() >= kPieceBytes) {
      write();
    }
  }
}

void SortedOutput::close() {
  if (!m_path.empty()) {
    write();
    m_file.close();
  }
}

void SortedOutput::write() {
  const int size = static_cast<int>(m_waiting.size());
  if (m_file.write(m_waiting.data(), static_cast<unsigned int>(size)) != size) {
    std::ostringstream text;
    text << m_path << " cannot be written: " << m_file.getLastErrorMessage();
    throw std::runtime_error(text.str());
  }
  m_waiting.clear();
}

}  // namespace example
