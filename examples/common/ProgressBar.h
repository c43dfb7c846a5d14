#ifndef EXAMPLES_COMMON_PROGRESSBAR_H
#define EXAMPLES_COMMON_PROGRESSBAR_H

#include <chrono>
#include <cstdint>
#include <string>

namespace example {

/// A progress bar, or a counter, as one line for a terminal.
/// @param title    what is being done
/// @param done     units done
/// @param total    units in all; 0 when not known, which makes a counter
/// @param columns  the terminal's; the line is shorter, for one that fills them would wrap and stay
std::string progressLine(const std::string& title, std::uint64_t done, std::uint64_t total,
                         unsigned int columns);

/// One phase of work. On a terminal it draws a bar on standard error while the work goes on; when
/// the phase ends it leaves one line on standard output: what was done and how long it took.
class ProgressBar {
 public:
  /// @param title  what the phase does, for example "store"
  /// @param total  units of work; 0 when not known, which draws a counter in place of the bar
  ProgressBar(std::string title, std::uint64_t total);

  /// Erases a bar that an exception left behind.
  ~ProgressBar();

  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  /// Reports units of work done since the last call. Redraws at most ten times a second.
  void advance(std::uint64_t units);

  /// Ends the phase and writes its line.
  void finish(const std::string& summary);

 private:
  using Clock = std::chrono::steady_clock;

  void erase();

  std::string m_title;         // what the phase does
  std::uint64_t m_total;       // units of work; 0 when not known
  std::uint64_t m_done = 0;    // units done
  bool m_drawn = false;        // whether a bar stands on the terminal now
  Clock::time_point m_begun;   // when the phase began
  Clock::time_point m_redraw;  // earliest time of the next drawing
};

}  // namespace example

#endif  // EXAMPLES_COMMON_PROGRESSBAR_H
