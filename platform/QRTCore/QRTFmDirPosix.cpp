#include <stdlib.h>

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmDir.h"
#include "QRTCore/QRTUtUtf8.h"

namespace {

// What a byte that is not part of UTF-8 is added to: an unpaired low surrogate. UTF-8 has none, so
// it stands for nothing else, and all other units are those of the text.
constexpr char16_t kByteBase = 0xDC00;

bool isByte(std::u16string_view units, std::size_t at) {
  const bool isPaired = at > 0 && (units[at - 1] & 0xFC00U) == 0xD800U;
  return units[at] >= kByteBase + 0x80U && units[at] <= kByteBase + 0xFFU && !isPaired;
}

I18NString fromNarrow(std::string_view bytes) {
  I18NString path;
  for (;;) {
    const std::size_t valid = QRTUtUtf8::findInvalid(bytes);
    path += I18NString(bytes.substr(0, valid));
    if (valid == bytes.size()) {
      return path;
    }
    const auto unit = static_cast<char16_t>(kByteBase + static_cast<unsigned char>(bytes[valid]));
    path += I18NString(static_cast<const void*>(&unit), sizeof unit, nullptr, nullptr);
    bytes.remove_prefix(valid + 1);
  }
}

}  // namespace

int QRTFmDir::getTempPath(I18NString& path) {
  // secure_getenv: a caller must not choose where a privileged program puts its files.
  const char* const named = ::secure_getenv("TMPDIR");
  std::filesystem::path directory(named != nullptr && *named != '\0' ? named : "/tmp");
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(directory, error);
  if (!error) {
    directory = absolute;
  }
  path = fromNarrow(directory.native());
  return std::filesystem::is_directory(directory, error) ? 1 : 0;
}

std::string QRTFmDir::getNarrowPath(const I18NString& path) {
  const std::u16string_view units(static_cast<const char16_t*>(path.getExternalBuffer()),
                                  static_cast<std::size_t>(path.size()) / sizeof(char16_t));
  std::string bytes;
  std::size_t textBegin = 0;
  for (std::size_t at = 0; at <= units.size(); ++at) {
    if (at < units.size() && !isByte(units, at)) {
      continue;
    }
    const std::u16string_view text = units.substr(textBegin, at - textBegin);
    const std::size_t before = bytes.size();
    bytes.resize(before + static_cast<std::size_t>(QRTUtUtf8::utf8Length(text)));
    QRTUtUtf8::toUtf8(text, bytes.data() + before);
    if (at < units.size()) {
      bytes += static_cast<char>(units[at] - kByteBase);
    }
    textBegin = at + 1;
  }
  return bytes;
}
