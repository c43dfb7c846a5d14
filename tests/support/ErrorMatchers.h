#ifndef TESTS_SUPPORT_ERRORMATCHERS_H
#define TESTS_SUPPORT_ERRORMATCHERS_H

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

#include "QRTCore/QRTThrowable.h"

/// One back-trace entry without its line number, which tests do not fix.
struct TraceEntry {
  std::string file;
  std::string function;  // empty where none is recorded
  std::string macro;

  bool operator==(const TraceEntry& other) const {
    return file == other.file && function == other.function && macro == other.macro;
  }
};

inline std::ostream& operator<<(std::ostream& os, const TraceEntry& entry) {
  return os << entry.macro << " in " << entry.file << " by \"" << entry.function << "\"";
}

inline std::vector<TraceEntry> traceOf(const QRTThrowable& error) {
  std::vector<TraceEntry> trace;
  for (const QRTBackTraceEntry& entry : error.getBackTrace()) {
    EXPECT_GT(entry.where.line, 0);
    trace.push_back(
        {entry.where.file, entry.function != nullptr ? entry.function : "", entry.macro});
  }
  return trace;
}

inline std::string textOf(const QRTThrowable& error) {
  return error.getText() != nullptr ? error.getText() : "(none)";
}

/// Runs a call and gives the error that it must raise, exactly of class `Error`.
/// @param when  what a failure of the test says beside it, such as the case of a table
template <class Error, class Call>
Error expectRaised(Call&& call, const std::string& when = {}) {
  try {
    call();
  } catch (const QRTThrowable& error) {
    if (typeid(error) == typeid(Error)) {
      return static_cast<const Error&>(error);
    }
    ADD_FAILURE() << "raised " << error.getClassName() << ": " << error.what() << ' ' << when;
    throw;
  }
  ADD_FAILURE() << "nothing was raised " << when;
  throw std::logic_error("nothing was raised");
}

#endif  // TESTS_SUPPORT_ERRORMATCHERS_H
