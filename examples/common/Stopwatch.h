#ifndef EXAMPLES_COMMON_STOPWATCH_H
#define EXAMPLES_COMMON_STOPWATCH_H

#include <chrono>

namespace example {

/// Adds up the time between start and stop.
class Stopwatch {
 public:
  void start() { m_started = Clock::now(); }
  void stop() { m_total += Clock::now() - m_started; }
  double seconds() const { return std::chrono::duration<double>(m_total).count(); }

 private:
  using Clock = std::chrono::steady_clock;

  Clock::time_point m_started{};  // when the present stretch began
  Clock::duration m_total{};      // the finished stretches together
};

}  // namespace example

#endif  // EXAMPLES_COMMON_STOPWATCH_H
