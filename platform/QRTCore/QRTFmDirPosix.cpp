#include <stdlib.h>

#include <filesystem>
#include <system_error>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmDir.h"

int QRTFmDir::getTempPath(I18NString& path) {
  // secure_getenv: a caller must not choose where a privileged program puts its files.
  const char* const named = ::secure_getenv("TMPDIR");
  std::filesystem::path directory(named != nullptr && *named != '\0' ? named : "/tmp");
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(directory, error);
  if (!error) {
    directory = absolute;
  }
  path = I18NString(directory.c_str());
  return std::filesystem::is_directory(directory, error) ? 1 : 0;
}
