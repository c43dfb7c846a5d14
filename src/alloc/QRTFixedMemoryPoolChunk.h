#ifndef QRTFIXEDMEMORYPOOLCHUNK_H
#define QRTFIXEDMEMORYPOOLCHUNK_H

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "QRTChunkIndex.h"
#include "QRTChunkRecord.h"
#include "QRTChunkWindows.h"
#include "QRTFixedMemoryPool.h"

/// @file
/// The chunk of a QRTFixedMemoryPool. Its free elements are noted through QRTChunkRecord.
///
///     bytes 0-32751      the slots, one every m_esize bytes, then what is too short for another
///     bytes 32752-32759  the trailer: next chunk and first free element of this chunk
///
/// A slot is an ElementHeader and the caller's area behind it; without headers the area alone. In a
/// free element the first word of the area is the address of the next free element's area, null
/// at the end.

/// One chunk, as obtained with operator new.
struct QRTFixedMemoryPool::Chunk {
  static constexpr unsigned size = 32752;       // bytes for slots
  static constexpr unsigned totalSize = 32760;  // with the trailer

  char data[size];

  Chunk* next() const { return m_trailer.next(); }
  void setNext(Chunk* chunk) { m_trailer.setNext(chunk); }

  /// Area of the chunk's first free element, null when there is none; used with headers only.
  char* freeHead() const { return m_trailer.freeHead(data); }
  void clearFreeHead() { m_trailer.m_free = {}; }

 private:
  /// With 4-byte pointers both stand as they are.
  struct PlainTrailer {
    Chunk* m_next;
    char* m_free;

    Chunk* next() const { return m_next; }
    void setNext(Chunk* chunk) { m_next = chunk; }
    char* freeHead(const char*) const { return m_free; }
  };

  /// With 8-byte pointers the next chunk's address keeps its 48 bits, and the free element is told
  /// by its distance from the chunk's start. A header stands in front of every area, so distance 0
  /// is none's and says that nothing is free. The distance is a half-word of its own so that the
  /// hot path loads exactly what it stored, which the processor forwards without a stall.
  struct PackedTrailer {
    std::uint32_t m_nextLow;   // bits 0-31 of the next chunk's address
    std::uint16_t m_nextHigh;  // bits 32-47
    std::uint16_t m_free;      // bytes from the chunk's start to the first free element's area

    Chunk* next() const {
      const std::uint64_t address = std::uint64_t{m_nextHigh} << 32 | m_nextLow;
      // NOLINTNEXTLINE(performance-no-int-to-ptr): the trailer has 48 bits for the address.
      return reinterpret_cast<Chunk*>(static_cast<std::uintptr_t>(address));
    }
    void setNext(Chunk* chunk) {
      const std::uint64_t address = reinterpret_cast<std::uintptr_t>(chunk);
      m_nextLow = static_cast<std::uint32_t>(address);
      m_nextHigh = static_cast<std::uint16_t>(address >> 32);
    }
    char* freeHead(const char* start) const {
      return m_free != 0 ? const_cast<char*>(start) + m_free : nullptr;
    }
  };

  std::conditional_t<sizeof(void*) == 8, PackedTrailer, PlainTrailer> m_trailer;
  static_assert(sizeof(m_trailer) == 8, "the trailer is 8 bytes everywhere");
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

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
