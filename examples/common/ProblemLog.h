#ifndef EXAMPLES_COMMON_PROBLEMLOG_H
#define EXAMPLES_COMMON_PROBLEMLOG_H

#include <cstdint>
#include <string>
#include <vector>

namespace example {

/// Counts problems of one kind and keeps the first few, to be shown once the progress bar is gone.
class ProblemLog {
 public:
  /// @param subject  what the problem is with, for example a path
  /// @param problem  what is wrong with it
  void add(const std::string& subject, const std::string& problem);

  /// @param problem  a text that names its subject itself
  void add(const std::string& problem);

  std::uint64_t count() const { return m_count; }
  const std::vector<std::string>& shown() const { return m_shown; }

  /// Writes the problems to standard error under a headline; nothing when there were none.
  void print(const std::string& headline) const;

 private:
  std::uint64_t m_count = 0;         // problems in all
  std::vector<std::string> m_shown;  // the first of them
};

}  // namespace example

#endif  // EXAMPLES_COMMON_PROBLEMLOG_H
