#ifndef QRTVIRTUALUTF8STRING_H
#define QRTVIRTUALUTF8STRING_H

#include <string>
#include <string_view>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTI18NBuffer.h"
#include "QRTVirtualPageItem.h"

class QRTVirtualContainer;
class QRTVirtualMemoryMgr;

/// A string whose characters live in the store as UTF-8, without a terminating zero; the object is
/// their handle and nothing more. An empty handle stands for the empty string, which is never
/// stored. `getSize` is the number of bytes stored.
///
/// The handle does not know its manager: every operation is given the one that the string was first
/// stored with, or a container, whose manager is then used. Without either, an operation does
/// nothing and gives its empty result. A handle whose object the manager does not know, or cannot
/// read back, gives the empty result as well; QRTVirtualMemoryMgr::getLastStoreError tells why.
///
/// Ill-formed text becomes U+FFFD on its way in, see QRTUtUtf8. Strings compare by the bytes of
/// their UTF-8: length first, then content, without collation or normalisation.
///
/// Nothing here frees what is stored, neither the destructor nor an empty `setString`: a host that
/// wants it back earlier than with its manager calls QRTVirtualMemoryMgr::free on the handle. One
/// thread at a time uses a handle.
class QRT_EXPORT QRTVirtualUTF8String : public QRTVirtualPageItem {
 public:
  /// Makes an empty handle.
  QRTVirtualUTF8String() noexcept = default;

  /// Makes a handle of what is stored already, for example after the handle of another
  /// QRTVirtualUTF8String was kept as a plain item.
  explicit QRTVirtualUTF8String(const QRTVirtualPageItem& item) noexcept
      : QRTVirtualPageItem(item) {}

  /// Leaves what is stored alone.
  virtual ~QRTVirtualUTF8String();

  QRTVirtualUTF8String(const QRTVirtualUTF8String&) noexcept = default;
  QRTVirtualUTF8String& operator=(const QRTVirtualUTF8String&) noexcept = default;

  /// Stores a string. Fewer bytes than before keep their place in the store; as many or more move
  /// to a new one. An empty string changes nothing: what was stored stays.
  /// @throws QRTOutOfMemoryError when the store has no room, or when the string has 2 GiB or more
  ///         in UTF-8; the old string can still be read
  /// @throws QRTAssertError when the old string cannot be read to make room for a longer one
  /// Cost: O(length); may write pages to disk. Allocates nothing outside the store.
  void setString(const I18NString& s, QRTVirtualMemoryMgr* memMgr);

  /// Stores what a buffer holds; an empty buffer changes nothing.
  void setString(const QRTI18NBuffer& buf, QRTVirtualMemoryMgr* memMgr);

  /// Stores UTF-8 as it is; each ill-formed sequence becomes U+FFFD, zero bytes are kept.
  /// @param utf8  at most 4 GiB - 1 once it is well-formed, which is more than an I18NString holds;
  ///              not from this string's own bytes in the store, which may move
  /// @throws as above
  void setString(std::string_view utf8, QRTVirtualMemoryMgr* memMgr);

  /// The same for zero-terminated UTF-8; null is the empty string and changes nothing.
  void setString(const char* utf8, QRTVirtualMemoryMgr* memMgr);

  /// @return the stored string
  /// @throws QRTOutOfMemoryError when it has more characters than an I18NString can; std::bad_alloc
  /// Cost: O(length), and one read when the string is not in memory
  I18NString getString(QRTVirtualMemoryMgr* memMgr);

  /// @return a copy of the stored bytes; empty when nothing is stored. A QRTVirtualUTF8Reader looks
  ///         at them without a copy, while it stands: what is stored has no terminating zero and no
  ///         address without a pin, so no pointer to it can be given that outlives the call
  /// @throws std::bad_alloc
  /// Cost: O(length), and one read when the string is not in memory; nothing is converted
  std::string getUtf8(QRTVirtualMemoryMgr* memMgr) const;

  /// Puts the stored string into a buffer; clears the buffer when nothing is stored.
  /// @throws as `getString`, with the buffer as it was
  void getI18NBuffer(QRTI18NBuffer& buf, QRTVirtualMemoryMgr* memMgr);

  /// Pins the stored bytes; QRTVirtualUTF8Reader does that with an end of its own.
  /// @return their address, for which the caller owes the manager a `dismiss` of this handle; null,
  ///         with nothing owed, when nothing is stored or it cannot be read
  void* getObjectPtr(QRTVirtualMemoryMgr* memMgr);

  /// Compares two stored strings of one manager.
  /// @return 1 when both hold the same bytes, else 0; two empty handles are not equal
  /// Cost: O(1) when the lengths differ, else O(length) and up to two reads
  int isEqual(const QRTVirtualUTF8String& other, QRTVirtualMemoryMgr* memMgr) const;

  /// Compares with a string.
  /// @return 1 when the stored bytes are its UTF-8, else 0; an empty handle equals the empty string
  /// Cost: O(length), O(1) for most lengths that differ, and one read when the lengths are equal.
  /// Nothing is converted and nothing allocated.
  int isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr) const;

  /// Compares with UTF-8.
  /// @return 1 when `setString` of the same text would store the same bytes, or none, else 0
  /// Cost: as above. Nothing is allocated.
  int isEqual(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) const;

  /// The same for zero-terminated UTF-8; null is the empty string.
  int isEqual(const char* utf8, QRTVirtualMemoryMgr* memMgr) const;

  /// The same operations with the manager of a container.
  void setString(const I18NString& s, QRTVirtualContainer* container);
  void setString(const QRTI18NBuffer& buf, QRTVirtualContainer* container);
  void setString(std::string_view utf8, QRTVirtualContainer* container);
  void setString(const char* utf8, QRTVirtualContainer* container);
  I18NString getString(QRTVirtualContainer* container);
  std::string getUtf8(QRTVirtualContainer* container) const;
  void getI18NBuffer(QRTI18NBuffer& buf, QRTVirtualContainer* container);
  void* getObjectPtr(QRTVirtualContainer* container);
  int isEqual(const QRTVirtualUTF8String& other, QRTVirtualContainer* container) const;
  int isEqual(const I18NString& s, QRTVirtualContainer* container) const;
  int isEqual(std::string_view utf8, QRTVirtualContainer* container) const;
  int isEqual(const char* utf8, QRTVirtualContainer* container) const;
};

#endif  // QRTVIRTUALUTF8STRING_H
