#ifndef QRTCORE_QRTI18NBUFFER_H
#define QRTCORE_QRTI18NBUFFER_H

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTExport.h"

/// A buffer in which a string is put together piece by piece, or handed from call to call without
/// a fresh allocation each time: `clear` keeps the memory.
///
/// Operations that need memory throw std::bad_alloc and leave the buffer as it was.
class QRT_EXPORT QRTI18NBuffer {
 public:
  /// Makes an empty buffer. Allocates nothing.
  QRTI18NBuffer() noexcept = default;

  /// Makes a buffer that holds the string.
  explicit QRTI18NBuffer(const I18NString& text) : m_text(text) {}

  /// Replaces what the buffer holds.
  QRTI18NBuffer& operator=(const I18NString& text);

  /// Replaces what the buffer holds by the string's own memory; leaves `text` empty.
  QRTI18NBuffer& operator=(I18NString&& text) noexcept;

  /// @return 1 when the buffer holds nothing, else 0
  int empty() const noexcept { return m_text.empty() ? 1 : 0; }

  /// @return bytes of the text in UTF-16
  int size() const noexcept { return m_text.size(); }

  /// @return a copy of what the buffer holds
  I18NString getString() const { return m_text; }

  /// @return what the buffer holds, without a copy; changes and goes with the buffer
  const I18NString& viewString() const noexcept { return m_text; }

  /// Adds a string at the end.
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  QRTI18NBuffer& append(const I18NString& text);

  /// Adds zero-terminated UTF-8 at the end; each ill-formed sequence becomes U+FFFD, null adds
  /// nothing.
  /// @throws QRTOutOfMemoryError when the result would be longer than `size` can tell
  QRTI18NBuffer& append(const char* utf8);

  /// Empties the buffer and keeps its memory.
  void clear() noexcept { m_text.clear(); }

 private:
  I18NString m_text;  // what the buffer holds
};

#endif  // QRTCORE_QRTI18NBUFFER_H
