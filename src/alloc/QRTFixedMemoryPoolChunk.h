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
/// The chunk of a QRTFixedMemoryPool, and the common cases of its alloc and free, which the arena
/// uses too.
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
  /// @param distance  its distance from the chunk's start, 0 for none
  void setFreeHead(unsigned distance) { m_trailer.setFreeHead(data, distance); }

 private:
  /// With 4-byte pointers both stand as they are.
  struct PlainTrailer {
    Chunk* m_next;
    char* m_free;

    Chunk* next() const { return m_next; }
    void setNext(Chunk* chunk) { m_next = chunk; }
    char* freeHead(const char*) const { return m_free; }
    void setFreeHead(char* start, unsigned distance) {
      m_free = distance != 0 ? start + distance : nullptr;
    }
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
    void setFreeHead(const char*, unsigned distance) {
      m_free = static_cast<std::uint16_t>(distance);
    }
  };

  std::conditional_t<sizeof(void*) == 8, PackedTrailer, PlainTrailer> m_trailer;
  static_assert(sizeof(m_trailer) == 8, "the trailer is 8 bytes everywhere");
};

/// The header as one word, as the hot path tests and changes it: bytes 0-3 the size, 4-5 the
/// offset, 6 in use, 7 the filler. Always loaded and stored whole, for the reason given above.
struct QRTFixedMemoryPoolHeader {
  static constexpr std::uint64_t kInUse = std::uint64_t{1} << 48;
  static constexpr std::uint64_t kFiller = std::uint64_t{0x0E} << 56;
  static constexpr unsigned kBytes = 8;

  static std::uint64_t load(const char* area) {
    std::uint64_t word;
    std::memcpy(&word, area - kBytes, sizeof word);
    return word;
  }
  static void store(char* area, std::uint64_t word) {
    std::memcpy(area - kBytes, &word, sizeof word);
  }
  /// The header of the same element once it is handed out.
  static std::uint64_t inUse(std::uint64_t word) { return (word & ~(0xFF * kInUse)) | kInUse; }
  /// The same once it is given back.
  static std::uint64_t free(std::uint64_t word) { return word & ~(0xFF * kInUse); }
  static bool isIntact(std::uint64_t word) { return word >> 56 == kFiller >> 56; }
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
  return m_windows != nullptr ? m_windows->find(place) : nullptr;
}

inline void QRTFixedMemoryPool::setCurrent(QRTChunkRecord* record) {
  m_currentRecord = record;
  m_current = record != nullptr ? record->chunk : nullptr;
}

/// Takes a chunk's next free element if its header is intact.
/// @param record  of a chunk that has one
[[gnu::always_inline]] inline void* QRTFixedMemoryPool::tryTake(QRTChunkRecord* record) {
  using Header = QRTFixedMemoryPoolHeader;
  char* const start = record->chunk->data;
  const std::uint16_t* const top = record->stack() + record->free;
  char* const area = start + *top;
  const std::uint64_t header = Header::load(area);
  if (!Header::isIntact(header)) {
    return nullptr;
  }
  record->free = static_cast<std::uint16_t>(record->free - 1);
  record->chunk->setFreeHead(top[-1]);
  Header::store(area, Header::inUse(header));
  return area;
}

/// alloc from the current chunk.
[[gnu::always_inline]] inline void* QRTFixedMemoryPool::tryAlloc() {
  if (m_currentRecord == nullptr || m_currentRecord->free == 0 || m_detectOverWrites != 0 ||
      m_watched != 0) {
    return nullptr;
  }
  return tryTake(m_currentRecord);
}

/// free of an element whose header is as it should be.
/// @param record  of the chunk that its address lies in; one of this pool
[[gnu::always_inline]] inline bool QRTFixedMemoryPool::tryFree(QRTChunkRecord* record, void* p) {
  using Header = QRTFixedMemoryPoolHeader;
  if (m_detectOverWrites != 0 || m_watched != 0) {
    return false;
  }
  // The header and the chunk's trailer are cache misses in a large pool. Neither is waited for: the
  // record tells where the element lies and which one was freed before it, and the comparison is
  // predicted, so that the misses of several frees overlap. It tells at once an intact header, an
  // element in use, this pool's element size, and that the header belongs where it stands.
  char* const area = static_cast<char*>(p);
  Chunk* const chunk = record->chunk;
  const auto distance = static_cast<unsigned>(area - chunk->data);
  const std::uint64_t header =
      m_size | std::uint64_t{distance - Header::kBytes} << 32 | Header::kFiller;
  const unsigned free = record->free;
  if (Header::load(area) != (header | Header::kInUse) || free == record->elements) {
    return false;
  }
  std::uint16_t* const top = record->stack() + free;
  qrtStoreLink(area, free != 0 ? chunk->data + *top : nullptr);
  top[1] = static_cast<std::uint16_t>(distance);
  record->free = static_cast<std::uint16_t>(free + 1);
  chunk->setFreeHead(distance);
  Header::store(area, header);
  if (free == 0) {
    m_index->noteFree(record);
  }
  return true;
}

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
