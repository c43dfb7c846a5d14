#include "CharacterSet.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <new>

namespace example {

namespace {

constexpr int kInvalid = -1;  // to the parser, a byte or a character that there is not
constexpr int kIncomplete = -2;
constexpr char kTrailer = static_cast<char>(0xA1);
constexpr int kLongest = 4;    // bytes of a character, to the parser
constexpr int kLast = 0xFFFF;  // the last character that the parser takes

const char* const kCodePoints = std::endian::native == std::endian::little ? "UCS-4LE" : "UCS-4BE";

// What iconv_open gives in the place of a converter.
const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);  // NOLINT(performance-no-int-to-ptr)

}  // namespace

int CharacterSet::handle(void*, const XML_Char* name, XML_Encoding* encoding) {
  const iconv_t converter = iconv_open(kCodePoints, name);
  if (converter == kNoConverter) {
    return XML_STATUS_ERROR;
  }
  auto* const set = new (std::nothrow) CharacterSet(converter);
  if (set == nullptr) {
    iconv_close(converter);
    return XML_STATUS_ERROR;
  }
  encoding->data = set;
  encoding->convert = onConvert;
  encoding->release = onRelease;
  for (int first = 0; first < 256; ++first) {
    encoding->map[first] = set->entryOf(first);
  }
  return XML_STATUS_OK;
}

/// What the parser is to know of a first byte: its character, or minus the bytes of one.
int CharacterSet::entryOf(int first) {
  std::array<char, kLongest> bytes{static_cast<char>(first)};
  const int alone = convert(bytes.data(), 1);
  if (alone >= 0) {
    m_lengths[first] = 1;
    return alone;
  }
  // The shortest length at which it begins a character. The bytes behind the second are tried with
  // one value only, which is good in every encoding that has characters of three or four.
  for (int second = 0x30; alone == kIncomplete && second < 256; ++second) {
    bytes = {bytes[0], static_cast<char>(second), kTrailer, kTrailer};
    int length = 2;
    while (length < kLongest && convert(bytes.data(), length) == kIncomplete) {
      ++length;
    }
    if (convert(bytes.data(), length) >= 0) {
      m_lengths[first] = length;
      return -length;
    }
  }
  return kInvalid;
}

/// @return the one character that some bytes are; kIncomplete when they are the beginning of one,
///         kInvalid when they are anything else
int CharacterSet::convert(const char* bytes, int length) {
  std::array<std::uint32_t, 4> out{};
  char* from = const_cast<char*>(bytes);
  char* to = reinterpret_cast<char*>(out.data());
  std::size_t left = static_cast<std::size_t>(length);
  std::size_t room = sizeof out;
  iconv(m_converter, nullptr, nullptr, nullptr, nullptr);
  // The second call makes converters that wait for a combining character give up what they have.
  errno = 0;
  const bool isWhole = iconv(m_converter, &from, &left, &to, &room) != static_cast<std::size_t>(-1);
  if (errno == EINVAL) {
    return kIncomplete;
  }
  iconv(m_converter, nullptr, nullptr, &to, &room);
  const bool isOne = isWhole && left == 0 && room == sizeof out - sizeof out[0];
  return isOne && out[0] <= kLast ? static_cast<int>(out[0]) : kInvalid;
}

int CharacterSet::onConvert(void* self, const char* bytes) {
  auto* const set = static_cast<CharacterSet*>(self);
  const int character = set->convert(bytes, set->m_lengths[static_cast<unsigned char>(*bytes)]);
  return character >= 0 ? character : kInvalid;
}

void CharacterSet::onRelease(void* self) {
  delete static_cast<CharacterSet*>(self);
}

}  // namespace example
