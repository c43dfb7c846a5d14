#ifndef TESTS_MODEL_HISTORY_H
#define TESTS_MODEL_HISTORY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace model {

/// The last operations of a run, for whoever has to find out what went wrong.
class History {
 public:
  /// @param operation  what is done, a literal
  /// @param a, b       what it is done with
  void note(const char* area, const char* operation, std::uint64_t a, std::uint64_t b) {
    at(m_count++) = {step, area, operation, a, b};
  }

  std::uint64_t count() const { return m_count; }

  /// A line for each, oldest first.
  std::string text() {
    std::string lines;
    for (std::uint64_t i = m_count < m_last.size() ? 0 : m_count - m_last.size(); i < m_count;
         ++i) {
      const Operation& operation = at(i);
      lines += "  step " + std::to_string(operation.step) + ": " + operation.area + " " +
               operation.name + " " + std::to_string(operation.a) + ", " +
               std::to_string(operation.b) + "\n";
    }
    return lines;
  }

  std::uint64_t step = 0;  ///< the step that is being done

 private:
  struct Operation {
    std::uint64_t step;
    const char* area;
    const char* name;
    std::uint64_t a;
    std::uint64_t b;
  };

  Operation& at(std::uint64_t number) {
    return m_last[static_cast<std::size_t>(number % m_last.size())];
  }

  std::array<Operation, 24> m_last{};  // in a ring
  std::uint64_t m_count = 0;           // operations so far
};

}  // namespace model

#endif  // TESTS_MODEL_HISTORY_H
