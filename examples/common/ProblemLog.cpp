#include "ProblemLog.h"

#include <iostream>

#include "ByteSize.h"

namespace example {

void ProblemLog::add(const std::string& subject, const std::string& problem) {
  add(subject + ": " + problem);
}

void ProblemLog::add(const std::string& problem) {
  constexpr std::size_t kMostShown = 10;  // enough to see a pattern, few enough to read
  ++m_count;
  if (m_shown.size() < kMostShown) {
    m_shown.push_back(problem);
  }
}

void ProblemLog::print(const std::string& headline) const {
  if (m_count == 0) {
    return;
  }
  std::cout.flush();
  std::cerr << headline << ": " << formatCount(m_count) << '\n';
  for (const std::string& text : m_shown) {
    std::cerr << "  " << text << '\n';
  }
  if (m_count > m_shown.size()) {
    std::cerr << "  ... and " << formatCount(m_count - m_shown.size()) << " more\n";
  }
}

}  // namespace example
