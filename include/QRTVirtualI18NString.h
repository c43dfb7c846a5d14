#ifndef QRTVIRTUALI18NSTRING_H
#define QRTVIRTUALI18NSTRING_H

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

  /// @return the stored string
  /// @throws std::bad_alloc
  /// Cost: O(size), and one read when the string is not in memory
  I18NString getString(QRTVirtualMemoryMgr* memMgr);

  /// Compares two stored strings of one manager.
  /// @return 1 when both hold the same bytes, else 0; two empty handles are not equal
  /// Cost: O(1) when the sizes differ, else O(size) and up to two reads
  int isEqual(QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr);
  int isEqual(const QRTVirtualI18NString& other, QRTVirtualMemoryMgr* memMgr) const;

  /// Compares with a string.
  /// @return 1 when the stored bytes are its external buffer, else 0
  /// Cost: O(1) when the sizes differ, else O(size) and one read
  int isEqual(const I18NString& s, QRTVirtualMemoryMgr* memMgr);

  /// The same operations with the manager of a container.
  I18NString getString(QRTVirtualContainer* container);
  void setString(const I18NString& s, QRTVirtualContainer* container);
  int isEqual(QRTVirtualI18NString& other, QRTVirtualContainer* container);
  int isEqual(const I18NString& s, QRTVirtualContainer* container);
};

#endif  // QRTVIRTUALI18NSTRING_H
