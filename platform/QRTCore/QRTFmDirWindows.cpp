#include <windows.h>

#include <string>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmDir.h"

static_assert(sizeof(wchar_t) == sizeof(char16_t));

int QRTFmDir::getTempPath(I18NString& path) {
  // The length that the first call tells includes the zero; the environment may change in between.
  std::wstring directory;
  DWORD length = GetTempPathW(0, nullptr);
  while (length > directory.size()) {
    directory.resize(length);
    length = GetTempPathW(length, directory.data());
  }
  directory.resize(length);
  // Without the separator at the end, as on the other systems; the root of a drive keeps it.
  while (directory.size() > 3 && (directory.back() == L'\\' || directory.back() == L'/')) {
    directory.pop_back();
  }
  path = I18NString(directory.data(), static_cast<int>(directory.size() * sizeof(wchar_t)), nullptr,
                    nullptr);
  const DWORD attributes = GetFileAttributesW(directory.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

std::string QRTFmDir::getNarrowPath(const I18NString& path) {
  int length = 0;
  const char* const bytes = path.c_str(nullptr, &length, nullptr, nullptr);
  return std::string(bytes, static_cast<std::size_t>(length) - 1);
}
