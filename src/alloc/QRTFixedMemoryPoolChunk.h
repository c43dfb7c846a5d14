#ifndef QRTFIXEDMEMORYPOOLCHUNK_H
#define QRTFIXEDMEMORYPOOLCHUNK_H

#include <cstring>

#include "QRTChunkIndex.h"
#include "QRTChunkRecord.h"
#include "QRTChunkWindows.h"
#include "QRTFixedMemoryPool.h"

/// @file
/// The chunk of a QRTFixedMemoryPool. Its free elements are noted through QRTChunkRecord.
///
///     bytes 0-32751      the slots, one every m_esize bytes, then what is too short for another
///     bytes 32752-32759  the trailer: the next chunk and, where pointers have 4 bytes, the first
///                        free element of this one
///
/// With pointers of 8 bytes the first one fills the trailer. Then the record alone knows the first
/// free element; so alloc and free do not touch the trailer, which is a line of its own.
///
/// A slot is an ElementHeader and the caller's area behind it; without headers the area alone. In a
/// free element the first word of the area is the address of the next free element's area, null
/// at the end.

/// One chunk, as obtained with operator new.
struct QRTFixedMemoryPool::Chunk {
  static constexpr unsigned size = 32752;       // bytes for slots
  static constexpr unsigned totalSize = 32760;  // with the trailer

  char data[size];
  Chunk* next;  // of the same pool; null at the end
};

/// The link in the area of a free element.
inline char* qrtLoadLink(const char* area) {
  char* next;
  std::memcpy(&next, area, sizeof next);
  return next;
}
inline void qrtStoreLink(char* area, const char* next) {
  std::memcpy(area, &next, sizeof next);
}

/// The record of the chunk of this pool, or of another bin of its arena, that a place lies in.
inline QRTChunkRecord* QRTFixedMemoryPool::recordOf(const void* place) const {
  return m_windows != nullptr ? m_windows->find(place) : &QRTChunkRecord::none;
}

inline void QRTFixedMemoryPool::setCurrent(QRTChunkRecord* record) {
  if (m_currentRecord != &QRTChunkRecord::none && m_currentRecord->head() == 0) {
    m_currentRecord->noteFull();
  }
  m_currentRecord = record;
  *m_quickPlace = isQuick() ? record : &QRTChunkRecord::none;
  m_current = reinterpret_cast<Chunk*>(record->start);
}

/// Gives up the current chunk, which has no free element, and finds the newest one that has.
/// @return false when there is none
[[gnu::always_inline]] inline bool QRTFixedMemoryPool::findElsewhere(QRTChunkFound& found) {
  if (m_currentRecord != &QRTChunkRecord::none) {
    setCurrent(&QRTChunkRecord::none);
  }
  return m_chunks != nullptr && m_index->findNewest(found);
}

/// alloc when the current chunk is full: takes from the newest chunk that has a free element.
/// @return null when there is none, or when its header is not exactly as it should be
[[gnu::always_inline]] inline void* QRTFixedMemoryPool::allocElsewhere() {
  // Mostly there is no current chunk then, and nothing to look at.
  if (m_currentRecord != &QRTChunkRecord::none && m_currentRecord->head() != 0) {
    return nullptr;
  }
  QRTChunkFound found;
  if (!findElsewhere(found)) {
    return nullptr;
  }
  if (!found.record->hasOne()) {
    setCurrent(found.record);
    return found.record->take();
  }
  void* const p = found.record->takeOnly();
  if (p != nullptr) {
    QRTChunkIndex::noteFull(found);
  }
  return p;
}

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
