#ifndef QRTVIRTUALI18NSTRING_H
#define QRTVIRTUALI18NSTRING_H

#include <string>
#include <string_view>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTExport.h"
#include "QRTVirtualPageItem.h"

class QRTVirtualContainer;
class QRTVirtualMemoryMgr;

/// A string whose external buffer, UTF-16 in the machine's byte order, lives in the store byte for
/// byte; the object is its handle and nothing more. It comes and goes without a conversion,
/// unpaired surrogates included, and takes twice the room of QRTVirtualUTF8String for ASCII. The
/// empty string is never stored, and unlike there an empty handle equals nothing, not even the
/// empty string.
///
/// In all else the class is as QRTVirtualUTF8String: about managers and containers, null ones,
/// handles that cannot be read, freeing and threads.
class QRT_EXPORT QRTVirtualI18NString : public QRTVirtualPageItem {
 public:
  /// Makes an empty handle.
  QRTVirtualI18NString() noexcept = default;

  /// Makes a handle of what is stored already.
  explicit QRTVirtualI18NString(const QRTVirtualPageItem& item) noexcept
      : QRTVirtualPageItem(item) {}

  /// Leaves what is stored alone.
  virtual ~QRTVirtualI18NString();

  QRTVirtualI18NString(const QRTVirtualI18NString&) noexcept = default;
  QRTVirtualI18NString& operator=(const QRTVirtualI18NString&) noexcept = default;

  /// Stores a string. Fewer bytes than before keep their place in the store; as many or more move
  /// to a new one. An empty string changes nothing: what was stored stays.
  /// @throws QRTOutOfMemoryError when the store has no room; the old string can still be read
  /// @throws QRTAssertError when the old string cannot be read to make room for a longer one
  /// Cost: O(size); may write pages to disk. Allocates nothing outside the store.
  void setString(const I18NString& s, QRTVirtualMemoryMgr* memMgr);

  /// Stores what an I18NString made from UTF-8 holds; empty text changes nothing.
  /// @throws as above, and std::bad_alloc, since the text is converted outside the store
  void setString(std::string_view utf8, QRTVirtualMemoryMgr* memMgr);

  /// The same for zero-terminated UTF-8; null is the empty string and changes nothing.
  void setString(const char* utf8, QRTVirtualMemoryMgr* memMgr);

  /// @return the stored string
  /// @throws std::bad_alloc
  /// Cost: O(size), and one read when the string is not in memory
  I18NString getString(QRTVirtualMemoryMgr* memMgr);

  /// @return the stored string in UTF-8, as I18NString::toUtf8 gives it; empty when nothing is
  ///         stored. A QRTVirtualI18NReader looks at the code units without a copy
  /// @throws QRTOutOfMemoryError when it has 2 GiB or more in UTF-8; std::bad_alloc
  /// Cost: O(size), and one read when the string is not in memory
  std::string getUtf8(QRTVirtualMemoryMgr* memMgr) const;

  /// Compares two stored strings of one manager.
  /// @return 1 when both hold the same bytes, else 0; two empty handles are not equal
  /// Cost: O(1) when the sizes differ, else O(size) and up to two reads
  int isEqual(QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr);
  int isEqual(const QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr) const;

  /// Compares with a string.
  /// @return 1 when the stored bytes are its external buffer, else 0
  /// Cost: O(1) when the sizes differ, else O(size) and one read
  int isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr);

  /// Compares with what an I18NString made from UTF-8 holds; null is the empty string, which
  /// nothing equals.
  /// @throws std::bad_alloc
  /// Cost: as above, and the conversion
  int isEqual(std::string_view utf8, QRTVirtualMemoryMgr* memMgr) const;
  int isEqual(const char* utf8, QRTVirtualMemoryMgr* memMgr) const;

  /// The same operations with the manager of a container.
  I18NString getString(QRTVirtualContainer* container);
  std::string getUtf8(QRTVirtualContainer* container) const;
  void setString(const I18NString& s, QRTVirtualContainer* container);
  void setString(std::string_view utf8, QRTVirtualContainer* container);
  void setString(const char* utf8, QRTVirtualContainer* container);
  int isEqual(QRTVirtualI18NString& other, QRTVirtualContainer* container);
  int isEqual(const I18NString& s, QRTVirtualContainer* container);
  int isEqual(std::string_view utf8, QRTVirtualContainer* container) const;
  int isEqual(const char* utf8, QRTVirtualContainer* container) const;
};

#endif  // QRTVIRTUALI18NSTRING_H
