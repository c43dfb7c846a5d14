#ifndef EXAMPLES_XMLTREE_STOREDTEXT_H
#define EXAMPLES_XMLTREE_STOREDTEXT_H

#include <string_view>

#include "QRTVirtualMemoryMgr.h"
#include "QRTVirtualUTF8Reader.h"

namespace example {

/// Strings in the store. Between calls a plain page item names a QRTVirtualUTF8String, which would
/// take half as much again in every node; the empty string is the empty item.
namespace stored_text {

/// Strings up to this length are shared when they are names. It bounds what the pool can take.
constexpr std::size_t kMostSharedBytes = 256;

/// Stores a string of its own. @throws QRTOutOfMemoryError when the store is full
QRTVirtualPageItem put(QRTVirtualMemoryMgr& manager, std::string_view text);

/// Stores a string that recurs: short ones are shared through the manager's page item pool.
QRTVirtualPageItem putShared(QRTVirtualMemoryMgr& manager, std::string_view text);

/// Frees a string made by `put` and empties the item.
void free(QRTVirtualMemoryMgr& manager, QRTVirtualPageItem& item);

/// Frees a string made by `putShared` unless it is shared, and empties the item.
void freeShared(QRTVirtualMemoryMgr& manager, QRTVirtualPageItem& item);

}  // namespace stored_text

/// A stored string, pinned while this stands.
class StoredTextView {
 public:
  /// @throws std::runtime_error when the store cannot read the string back
  StoredTextView(QRTVirtualMemoryMgr& manager, const QRTVirtualPageItem& item);

  /// The string, good while this stands.
  std::string_view view() const { return m_reader.view(); }

 private:
  QRTVirtualUTF8Reader m_reader;
};

}  // namespace example

#endif  // EXAMPLES_XMLTREE_STOREDTEXT_H
