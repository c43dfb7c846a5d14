#ifndef QRTVIRTUALPAGEITEM_H
#define QRTVIRTUALPAGEITEM_H

#include "QRTCore/QRTExport.h"

/// The handle of one stored object: the offset by which the store knows it, and its size. A plain
/// value of 16 bytes that owns nothing: copies name the same object, and only the manager's `free`
/// ends it. Every operation costs O(1) and throws nothing.
class QRT_EXPORT QRTVirtualPageItem {
 public:
  /// The offset of what lives in process memory instead of the store, such as a tree's root. The
  /// memory manager ignores it as it ignores 0.
  static const unsigned long long kInvalidOffset = 0xFFFFFFFFFFFFFFFFULL;

  /// Makes an empty item: offset 0, size 0.
  QRTVirtualPageItem() noexcept : m_offset(0), m_size(0) {}

  /// Makes an item that names an object.
  /// @param offset  offset of the object, 0 for none
  /// @param size    bytes of the object
  QRTVirtualPageItem(unsigned long long offset, unsigned int size) noexcept
      : m_offset(offset), m_size(size) {}

  /// Leaves the object alone.
  ~QRTVirtualPageItem() = default;

  /// @return 1 when the offset is 0, that is when the item names no object, else 0; the size is not
  ///         looked at
  int empty() const noexcept { return m_offset == 0 ? 1 : 0; }

  /// Sets offset and size to 0. Does not free the object.
  void clear() noexcept {
    m_offset = 0;
    m_size = 0;
  }

  /// @return the offset of the object; 0 when the item is empty
  unsigned long long getOffset() const noexcept { return m_offset; }

  /// Names another object and keeps the size.
  /// @param offset  offset of the object, 0 for none
  void setOffset(unsigned long long offset) noexcept { m_offset = offset; }

  /// @return bytes of the object, as it was last allocated or trimmed
  unsigned int getSize() const noexcept { return m_size; }

  /// Notes another size. Does not change the object.
  /// @param size  bytes, not above what the object has
  void setSize(unsigned int size) noexcept { m_size = size; }

  /// @return kInvalidOffset
  static unsigned long long getInvalidOffset() noexcept { return kInvalidOffset; }

  QRTVirtualPageItem(const QRTVirtualPageItem&) noexcept = default;
  QRTVirtualPageItem& operator=(const QRTVirtualPageItem&) noexcept = default;

 private:
  alignas(8) unsigned long long m_offset;  // offset of the object; 0 for none
  unsigned int m_size;                     // bytes of the object
};

static_assert(sizeof(QRTVirtualPageItem) == 16, "a handle takes 16 bytes on every platform");

#endif  // QRTVIRTUALPAGEITEM_H
