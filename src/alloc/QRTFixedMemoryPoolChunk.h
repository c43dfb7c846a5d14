#ifndef QRTFIXEDMEMORYPOOLCHUNK_H
#define QRTFIXEDMEMORYPOOLCHUNK_H

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "QRTChunkIndex.h"
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
  void setFreeHead(char* area) { m_trailer.setFreeHead(data, area); }

 private:
  /// With 4-byte pointers both stand as they are.
  struct PlainTrailer {
    Chunk* m_next;
    char* m_free;

    Chunk* next() const { return m_next; }
    void setNext(Chunk* chunk) { m_next = chunk; }
    char* freeHead(const char*) const { return m_free; }
    void setFreeHead(const char*, char* area) { m_free = area; }
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
    void setFreeHead(const char* start, char* area) {
      m_free = area != nullptr ? static_cast<std::uint16_t>(area - start) : std::uint16_t{0};
    }
  };

  std::conditional_t<sizeof(void*) == 8, PackedTrailer, PlainTrailer> m_trailer;
  static_assert(sizeof(m_trailer) == 8, "the trailer is 8 bytes everywhere");
};

/// The header as one word, as the hot path tests and changes it: bytes 0-3 the size, 4-5 the
/// offset, 6 in use, 7 the filler. Always loaded and stored whole, for the reason given above.
struct QRTFixedMemoryPoolHeader {
  static constexpr std::uint64_t kOffsetMask = std::uint64_t{0xFFFF} << 32;
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
  static unsigned offset(std::uint64_t word) { return static_cast<std::uint16_t>(word >> 32); }
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

[[gnu::always_inline]] inline void* QRTFixedMemoryPool::tryAlloc() {
  using Header = QRTFixedMemoryPoolHeader;
  if (m_detectOverWrites != 0 || m_watched != 0) {
    return nullptr;
  }
  char* const area = m_currentHead;
  if (area == nullptr) {
    return nullptr;
  }
  const std::uint64_t header = Header::load(area);
  if (!Header::isIntact(header)) {
    return nullptr;
  }
  char* const next = qrtLoadLink(area);
  m_currentHead = next;
  m_current->setFreeHead(next);
  Header::store(area, header | Header::kInUse);
  return area;
}

[[gnu::always_inline]] inline bool QRTFixedMemoryPool::tryFree(void* p) {
  using Header = QRTFixedMemoryPoolHeader;
  if (p == nullptr || m_useHeaders == 0 || m_detectOverWrites != 0 || m_watched != 0) {
    return false;
  }
  char* const area = static_cast<char*>(p);
  const std::uint64_t header = Header::load(area);
  char* const start = area - Header::kBytes;
  Chunk* chunk = reinterpret_cast<Chunk*>(start - Header::offset(header));
  unsigned age = 0;
  if (m_index != nullptr) {
    // In a large pool the header and the chunk's trailer are cache misses. Neither is waited for:
    // the address tells the chunk, the index its free element, and the comparison below is
    // predicted, so that the misses of several frees overlap.
    age = m_index->ageOf(start);
    if (age == QRTChunkIndex::kNone) {
      return false;
    }
    chunk = m_index->chunkAt(age);
  }
  // One comparison tells an intact header, an element in use, this pool's element size, and that
  // the header belongs where it stands.
  const auto offset = static_cast<std::uint64_t>(start - chunk->data);
  if (header != (m_size | offset << 32 | Header::kInUse | Header::kFiller)) {
    return false;
  }
  char* next;
  if (chunk == m_current) {
    next = m_currentHead;
    m_currentHead = area;
  } else if (m_index != nullptr) {
    const unsigned head = m_index->headAt(age);
    next = head != 0 ? chunk->data + head : nullptr;
    m_index->setHeadAt(age, static_cast<unsigned>(offset) + Header::kBytes);
    m_index->noteFree(age);
  } else {
    next = chunk->freeHead();
  }
  qrtStoreLink(area, next);
  chunk->setFreeHead(area);
  Header::store(area, header & ~Header::kInUse);
  return true;
}

#endif  // QRTFIXEDMEMORYPOOLCHUNK_H
