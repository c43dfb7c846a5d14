#include <windows.h>

#include "support/TempDirectory.h"

std::optional<std::string> ScopedTmpdir::get() {
  std::wstring value(32767, L'\0');  // no variable is longer
  const DWORD length =
      GetEnvironmentVariableW(L"TMP", value.data(), static_cast<DWORD>(value.size()));
  value.resize(length);
  return length != 0 ? std::optional<std::string>(utf8Of(value)) : std::nullopt;
}

void ScopedTmpdir::set(const std::optional<std::string>& value) {
  SetEnvironmentVariableW(L"TMP", value ? pathOf(*value).wstring().c_str() : nullptr);
}
