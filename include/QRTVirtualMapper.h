#ifndef QRTVIRTUALMAPPER_H
#define QRTVIRTUALMAPPER_H

#include "QRTCore/QRTExport.h"

/// What a mapping mode that keeps a record per object would know about one object. The paging
/// engine keeps these figures itself, so the manager has no such record to show and
/// `QRTVirtualMemoryMgr::getMapper` gives null; pinned objects are listed by `dumpReferences`.
class QRT_EXPORT QRTVirtualMapper {
 public:
  /// @param offset    offset of the object
  /// @param refCount  pins of the object
  /// @param size      bytes of the object
  /// @param flags     state bits of the mapping mode
  QRTVirtualMapper(unsigned long long offset, int refCount, unsigned int size,
                   unsigned short flags) noexcept
      : m_offset(offset), m_refCount(refCount), m_size(size), m_flags(flags) {}

  /// @return offset of the object
  unsigned long long getOffset() const noexcept { return m_offset; }

  /// @return pins of the object
  int getRefCount() const noexcept { return m_refCount; }

  /// @return bytes of the object
  unsigned int getSize() const noexcept { return m_size; }

  /// @return state bits of the mapping mode
  unsigned short getFlags() const noexcept { return m_flags; }

 private:
  unsigned long long m_offset;  // offset of the object
  int m_refCount;               // its pins
  unsigned int m_size;          // its bytes
  unsigned short m_flags;       // state bits of the mapping mode
};

#endif  // QRTVIRTUALMAPPER_H
