#include <stdlib.h>

#include "support/TempDirectory.h"

std::optional<std::string> ScopedTmpdir::get() {
  const char* const value = ::getenv("TMPDIR");
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

void ScopedTmpdir::set(const std::optional<std::string>& value) {
  if (value) {
    ::setenv("TMPDIR", value->c_str(), 1);
  } else {
    ::unsetenv("TMPDIR");
  }
}
