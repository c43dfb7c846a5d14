#include "ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "ByteSize.h"
#include "HostProcess.h"

namespace example {

ProgressBar::ProgressBar(std::string title, std::uint64_t total)
    : m_title(std::move(title)),
      m_total(total),
      m_visible(standardErrorIsTerminal()),
      m_begun(Clock::now()),
      m_redraw(m_begun) {}

ProgressBar::~ProgressBar() {
  erase();
}

void ProgressBar::advance(std::uint64_t units) {
  m_done += units;
  if (!m_visible) {
    return;
  }
  const Clock::time_point now = Clock::now();
  if (now >= m_redraw) {
    draw();
    m_drawn = true;
    m_redraw = now + std::chrono::milliseconds(100);
  }
}

void ProgressBar::finish(const std::string& summary) {
  erase();
  const std::chrono::duration<double> elapsed = Clock::now() - m_begun;
  std::printf("%-8s %s in %.1f s\n", m_title.c_str(), summary.c_str(), elapsed.count());
  std::fflush(stdout);
}

void ProgressBar::draw() const {
  if (m_total == 0) {
    std::fprintf(stderr, "\r%-8s %s", m_title.c_str(), formatCount(m_done).c_str());
    return;
  }
  constexpr unsigned int kWidth = 50;
  const double part = std::min(1.0, static_cast<double>(m_done) / static_cast<double>(m_total));
  const auto filled = static_cast<unsigned int>(part * kWidth);
  const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
  std::fprintf(stderr, "\r%-8s [%s] %3.0f %%", m_title.c_str(), bar.c_str(), part * 100);
}

void ProgressBar::erase() {
  if (m_drawn) {
    std::fputs("\r\033[K", stderr);
    m_drawn = false;
  }
}

}  // namespace example
