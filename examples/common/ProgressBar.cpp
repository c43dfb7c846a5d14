#include "ProgressBar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "ByteSize.h"
#include "HostProcess.h"

namespace example {

std::string progressLine(const std::string& title, std::uint64_t done, std::uint64_t total,
                         unsigned int columns) {
  constexpr std::size_t kTitle = 8;    // columns of the title, longer ones excepted
  constexpr std::size_t kWidest = 50;  // of the bar
  constexpr std::size_t kLeast = 4;    // of a bar that says something
  const std::size_t room = columns > 1 ? columns - 1 : 0;
  std::string line = title;
  line.append(kTitle - std::min(kTitle, title.size()), ' ');
  if (total == 0) {
    line.append(" ").append(formatCount(done));
  } else {
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const std::string number = std::to_string(std::lround(part * 100));
    std::string percent(4 - number.size(), ' ');
    percent.append(number).append(" %");
    const std::size_t others = line.size() + 3 + percent.size();
    const std::size_t width = std::min(kWidest, room - std::min(room, others));
    if (width >= kLeast) {
      const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
      line.append(" [").append(filled, '#').append(width - filled, '.').append("]");
    }
    line.append(percent);
  }
  line.resize(std::min(line.size(), room));
  return line;
}

ProgressBar::ProgressBar(std::string title, std::uint64_t total)
    : m_title(std::move(title)), m_total(total), m_begun(Clock::now()), m_redraw(m_begun) {}

ProgressBar::~ProgressBar() {
  erase();
}

void ProgressBar::advance(std::uint64_t units) {
  m_done += units;
  const Clock::time_point now = Clock::now();
  if (now < m_redraw) {
    return;
  }
  m_redraw = now + std::chrono::milliseconds(100);
  const unsigned int columns = standardErrorColumns();  // asked again: a user resizes windows
  if (columns != 0) {
    std::fprintf(stderr, "\r%s", progressLine(m_title, m_done, m_total, columns).c_str());
    m_drawn = true;
  }
}

void ProgressBar::finish(const std::string& summary) {
  erase();
  const std::chrono::duration<double> elapsed = Clock::now() - m_begun;
  std::printf("%-8s %s in %.1f s\n", m_title.c_str(), summary.c_str(), elapsed.count());
  std::fflush(stdout);
}

void ProgressBar::erase() {
  if (m_drawn) {
    std::fputs("\r\033[K", stderr);
    m_drawn = false;
  }
}

}  // namespace example
