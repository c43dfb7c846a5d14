#ifndef QRTCORE_I18NSTRING_H
#define QRTCORE_I18NSTRING_H

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

#include "QRTCore/QRTExport.h"

/// A string of UTF-16 code units in the machine's byte order; these units are its "external
/// buffer". Zero units and unpaired surrogates are kept as they are. Up to seven units are held
/// inside the object without an allocation. QRTUtUtf8 tells what becomes of ill-formed text.
///
/// Operations that need memory throw std::bad_alloc and leave the string as it was.
class QRT_EXPORT I18NString {
 public:
  /// The type of a host's conversion between encodings. This class knows UTF-8 only: every
  /// operation that takes such a function wants null and raises QRTIllegalStateError otherwise.
  /// @return the bytes written to `to`, or -1 when `from` cannot be converted
  typedef int (*ConversionFunction)(const char* from, int fromLength, char* to, int toCapacity,
                                    void* context);

  /// Makes the empty string. Allocates nothing.
  I18NString() noexcept = default;

  /// Makes a string from zero-terminated UTF-8; each ill-formed sequence becomes U+FFFD.
  /// @param utf8  the text; null gives the empty string
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  explicit I18NString(const char* utf8);

  /// Makes a string from UTF-8, zero bytes included; each ill-formed sequence becomes U+FFFD.
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  explicit I18NString(std::string_view utf8);

  /// Makes a string from UTF-16 code units without any check.
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  explicit I18NString(std::u16string_view units);

  /// Makes a string from UTF-8 of a given length, zero bytes included; each ill-formed sequence
  /// becomes U+FFFD.
  /// @param data      the bytes; null gives the empty string
  /// @param encoding  null or "UTF-8"
  /// @param length    bytes at `data`; 0 or less gives the empty string
  /// @param function  null
  /// @param context   not looked at
  /// @throws QRTIllegalStateError for another encoding or a conversion function,
  ///         QRTOutOfMemoryError when the result would be longer than `size` can tell
  I18NString(const char* data, const char* encoding, int length, ConversionFunction function,
             void* context);

  /// Makes a string from an external buffer, unit by unit without any check.
  /// @param buffer    UTF-16 code units in the machine's byte order, at any address; null gives
  ///                  the empty string
  /// @param size      bytes at `buffer`; an odd last byte is dropped, 0 or less gives the empty
  ///                  string
  /// @param function  null
  /// @param context   not looked at
  /// @throws QRTIllegalStateError for a conversion function
  I18NString(const void* buffer, int size, ConversionFunction function, void* context);

  I18NString(const I18NString& other);
  I18NString(I18NString&& other) noexcept;  ///< leaves `other` empty
  I18NString& operator=(const I18NString& other);
  I18NString& operator=(I18NString&& other) noexcept;  ///< leaves `other` empty
  ~I18NString();

  /// @return whether the string has no code units
  bool empty() const noexcept { return m_units.empty(); }

  /// @return bytes of the external buffer, twice the number of code units
  int size() const noexcept { return static_cast<int>(m_units.size() * sizeof(char16_t)); }

  /// @return the external buffer, `size()` bytes, never null; valid until the string is changed,
  ///         moved from or destroyed
  const void* getExternalBuffer() const noexcept { return m_units.data(); }

  /// @return the code units themselves, without a copy; valid until the string is changed, moved
  ///         from or destroyed, so not behind the statement for a string that a call has returned
  std::u16string_view viewUnits() const noexcept { return m_units; }

  /// Gives the string in UTF-8; an unpaired surrogate becomes U+FFFD.
  /// @param encoding  null or "UTF-8"
  /// @param length    null, or receives the number of bytes, the terminating zero included
  /// @param function  null
  /// @param context   not looked at
  /// @return the bytes with a terminating zero, never null; valid until the string is changed,
  ///         moved from or destroyed
  /// @throws QRTIllegalStateError for another encoding or a conversion function,
  ///         QRTOutOfMemoryError when `length` could not tell the number of bytes
  /// Cost: O(size) at the first call, O(1) until the string changes. The result is kept inside the
  /// string, so two threads do not call this on one string at the same time.
  const char* c_str(const char* encoding, int* length, ConversionFunction function,
                    void* context) const;

  /// The same for the default encoding: the string in UTF-8 with a terminating zero.
  const char* c_str() const { return c_str(nullptr, nullptr, nullptr, nullptr); }

  /// @return the bytes that `c_str` gives, zero bytes among them included and the terminating one
  ///         not; valid as long as those
  /// @throws as `c_str`, whose cost and threads it has
  std::string_view viewUtf8() const;

  /// @return a copy of the string in UTF-8, zero bytes included
  /// @throws as `getUtf8Length`; std::bad_alloc
  /// Cost: O(size). Keeps nothing inside the string, unlike `c_str`
  std::string toUtf8() const;

  /// @return bytes of the string in UTF-8, without a terminating zero
  /// @throws QRTOutOfMemoryError when an int cannot tell them
  /// Cost: O(size), O(1) after `c_str`. Allocates nothing.
  int getUtf8Length() const;

  /// Writes the string in UTF-8, without a terminating zero; an unpaired surrogate becomes U+FFFD.
  /// @param out  receives `getUtf8Length()` bytes; null receives nothing
  /// Cost: O(size). Allocates nothing and keeps nothing, unlike `c_str`.
  void copyUtf8(char* out) const noexcept;

  /// @return whether `getUtf8Length` is this length; most others are told without counting
  bool hasUtf8Length(std::size_t length) const noexcept;

  /// Compares with text in UTF-8 without converting either.
  /// @param bytes  as many as the string has in UTF-8, see `hasUtf8Length`; null is no text, which
  ///               is the empty string's
  /// @return whether they are the string's UTF-8
  /// Cost: O(size). Allocates nothing.
  bool equalsUtf8(const char* bytes) const noexcept;

  /// Makes the string empty and keeps its memory.
  void clear() noexcept;

  /// Adds the other string at the end.
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  I18NString& append(const I18NString& other);

  /// The same as `append`.
  I18NString& operator+=(const I18NString& other) { return append(other); }

  /// Compares code unit by code unit.
  /// @return below, equal to or above 0 as this string sorts before, equals or sorts behind `other`
  int compare(const I18NString& other) const noexcept { return m_units.compare(other.m_units); }

  /// @return a hash of the code units, the same for equal strings within one process; what
  /// std::hash gives
  std::size_t hash() const noexcept { return std::hash<std::u16string>()(m_units); }

 private:
  std::u16string m_units;          // the external buffer
  mutable std::string m_utf8;      // what c_str gave, while m_hasUtf8
  mutable bool m_hasUtf8 = false;  // whether m_utf8 matches m_units
};

inline bool operator==(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) == 0;
}
inline bool operator!=(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) != 0;
}
inline bool operator<(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) < 0;
}
inline bool operator>(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) > 0;
}
inline bool operator<=(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) <= 0;
}
inline bool operator>=(const I18NString& a, const I18NString& b) noexcept {
  return a.compare(b) >= 0;
}

/// Writes the string to a stream as UTF-8, zero bytes included, honouring the stream's width.
QRT_EXPORT std::ostream& operator<<(std::ostream& os, const I18NString& text);

template <>
struct std::hash<I18NString> {
  std::size_t operator()(const I18NString& text) const noexcept { return text.hash(); }
};

#endif  // QRTCORE_I18NSTRING_H
