#ifndef QRTCORE_QRTUTUTF8_H
#define QRTCORE_QRTUTUTF8_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "QRTCore/QRTExport.h"

/// The two encodings of a text, UTF-8 and UTF-16 in the machine's byte order: lengths, conversion
/// and comparison, into memory of the caller's. What is ill-formed counts, converts and compares as
/// U+FFFD: in UTF-8 one for each lead byte with the continuation bytes that follow it (also when
/// they are too many, too few, overlong, a surrogate or beyond U+10FFFF), in UTF-16 one for each
/// unpaired surrogate. Zero bytes and zero units are characters as any other.
///
/// Nothing here allocates or throws. Every operation costs O(length).
class QRT_EXPORT QRTUtUtf8 {
 public:
  /// @return the index of the first ill-formed sequence; the length when there is none
  static std::size_t findInvalid(std::string_view utf8) noexcept;

  /// @return bytes of the text with its ill-formed sequences replaced; the length itself when there
  ///         is none, up to three times that otherwise
  static std::uint64_t repairedLength(std::string_view utf8) noexcept;

  /// Copies a text with its ill-formed sequences replaced.
  /// @param out  receives `repairedLength` bytes, no terminator
  static void repair(std::string_view utf8, char* out) noexcept;

  /// @param bytes  `repairedLength` bytes
  /// @return whether they are what `repair` would write
  static bool equalsRepaired(std::string_view utf8, const char* bytes) noexcept;

  /// @return code units of the text in UTF-16, exact for well-formed text
  static std::size_t utf16Estimate(std::string_view utf8) noexcept;

  /// Converts to UTF-16 as much as there is room for.
  /// @param utf8      loses the part that was converted
  /// @param units     receives it, no terminator
  /// @param capacity  room at `units`, at least 2; as many as there are bytes are always enough
  /// @return the units written
  static std::size_t toUtf16(std::string_view& utf8, char16_t* units,
                             std::size_t capacity) noexcept;

  /// @return bytes of the text in UTF-8, at most three times its code units
  static std::uint64_t utf8Length(std::u16string_view units) noexcept;

  /// Converts a text to UTF-8.
  /// @param out  receives `utf8Length` bytes, no terminator
  static void toUtf8(std::u16string_view units, char* out) noexcept;

  /// @param bytes  `utf8Length` bytes
  /// @return whether they are what `toUtf8` would write
  static bool equalsUtf8(std::u16string_view units, const char* bytes) noexcept;
};

#endif  // QRTCORE_QRTUTUTF8_H
