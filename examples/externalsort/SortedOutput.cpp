#include "SortedOutput.h"

#include <functional>

namespace example {

namespace {

constexpr std::size_t kPieceBytes = 128U << 10;

}  // namespace

void LineSum::add(std::string_view line) {
  ++lines;
  bytes += line.size() + 1;
  hashes += std::hash<std::string_view>()(line);
}

SortedOutput::SortedOutput(const std::string& path) {
  if (!path.empty()) {
    m_file.emplace(path);
  }
}

void SortedOutput::add(std::string_view line) {
  if (line < m_last) {
    ++m_misplaced;
  }
  m_last = line;
  m_sum.add(line);
  if (m_file) {
    m_waiting.insert(m_waiting.end(), line.begin(), line.end());
    m_waiting.push_back('\n');
    if (m_waiting.size() >= kPieceBytes) {
      write();
    }
  }
}

void SortedOutput::close() {
  if (m_file) {
    write();
    m_file->finish();
  }
}

void SortedOutput::write() {
  m_file->write({m_waiting.data(), m_waiting.size()});
  m_waiting.clear();
}

}  // namespace example
