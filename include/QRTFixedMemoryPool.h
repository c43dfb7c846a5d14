#ifndef QRTFIXEDMEMORYPOOL_H
#define QRTFIXEDMEMORYPOOL_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "QRTChunkRecord.h"
#include "QRTCore/QRTExport.h"

class QRTChunkIndex;
class QRTChunkWindows;
struct QRTChunkFound;

/// Hands out elements of one size from chunks of 32,760 bytes. With element headers each chunk
/// keeps its own free list, wholly free chunks can be released or moved to another pool, and
/// writes past the end of an element can be detected. Without headers an element costs nothing
/// beside itself and chunks stay until the pool is destroyed.
///
/// Elements are aligned to 8 bytes. A pool is used by one thread at a time.
class QRT_EXPORT QRTFixedMemoryPool {
 public:
  /// Stands in the 8 bytes in front of every element of a pool with headers, and of every large
  /// block of a QRTMemoryArena.
  struct ElementHeader {
    std::uint32_t m_size;    ///< bytes 0-3: element size as given to the pool's constructor
    std::uint16_t m_offset;  ///< bytes 4-5: bytes from the chunk's start to this header
    std::uint8_t m_inUse;    ///< byte 6: 1 while the element is handed out, else 0
    std::uint8_t m_filler3;  ///< byte 7: 0x0E; anything else means it was overwritten
  };

  /// Makes a pool without chunks.
  /// @param size        element size in bytes, 1 to 32,752, with headers to 32,744; 0 means 8
  /// @param growable    its lowest bit says whether `alloc` obtains further chunks by itself
  /// @param useHeaders  whether elements carry headers; 0 means no
  /// @throws QRTAssertError  the size is above the limit
  QRTFixedMemoryPool(unsigned size, int growable, int useHeaders);

  /// Releases every chunk; all elements of the pool become invalid.
  ~QRTFixedMemoryPool();

  QRTFixedMemoryPool(const QRTFixedMemoryPool&) = delete;
  QRTFixedMemoryPool& operator=(const QRTFixedMemoryPool&) = delete;

  /// Hands out an element, to be given back with `free`.
  /// @return the element; null when none is free and the pool does not grow by itself
  /// @throws QRTOutOfMemoryError  a further chunk is needed and cannot be had
  /// @throws QRTAssertError       a damaged header was found; the element is not taken
  /// Cost: constant. With detection on, O(elements).
  [[gnu::always_inline]] void* alloc() {
    void* p = nullptr;
    if (m_path == eOther) {
      p = m_quickRecord->take();
    } else if (FreeElement* const first = m_freeList; first != nullptr) {
      // A pool without headers is no more than this list.
      m_freeList = first->next;
      return first;
    } else {
      p = takeAhead();
    }
    return p != nullptr ? p : allocHere();
  }

  /// Takes an element back; null is ignored.
  /// @param p  an element that `alloc` of this pool handed out
  /// @throws QRTAssertError  with headers: the header is damaged, says that the element is free
  ///                         already, or belongs to another pool; nothing is changed
  /// Cost: constant. With detection on, O(elements).
  [[gnu::always_inline]] void free(void* p) {
    if (m_path == eOther) {
      if (!m_table->guess(p)->put(p)) {
        freeHere(p);
      }
    } else if (p == nullptr) {
      return;
    } else if (m_path == eAhead) {
      putAhead(p);
    } else {
      m_freeList = new (p) FreeElement{m_freeList};
    }
  }

  /// Adds a chunk.
  /// @param chunk  a block of at least 32,760 bytes obtained with operator new, such as `reclaim`
  ///               gives; it becomes the pool's. Null obtains a new one.
  /// @throws QRTOutOfMemoryError  there is no memory for a new chunk, or none to record a given one
  ///                              with headers; the pool is unchanged, a given chunk the caller's
  /// @throws QRTAssertError       the chunk is in the pool already, which changes nothing; or
  ///                              detection found a damaged header, and the chunk is in the pool
  /// Cost: O(elements per chunk).
  void grow(void* chunk);

  /// Takes a wholly free chunk out of a pool with headers, the newest first.
  /// @param keep  how many wholly free chunks to pass over; a negative number passes over all
  /// @return the chunk, which is now the caller's, to be given to `grow` of any fixed pool or to
  ///         operator delete; null when there is none
  /// @throws QRTAssertError  a damaged header was found
  /// Cost: O(chunks + elements of the free ones).
  void* reclaim(int keep);

  /// Releases wholly free chunks of a pool with headers.
  /// @param maxChunks  how many at most; 0 means all, a negative number none
  /// @return the bytes released, a multiple of 32,760
  /// @throws QRTAssertError  a damaged header was found; chunks before it are released
  unsigned trim(int maxChunks);

  /// Reports the pool's figures. Every pointer may be null.
  /// @param chunkBytes        receives 32,760
  /// @param chunkCount        receives the number of chunks
  /// @param elementsPerChunk  receives the elements of one chunk
  /// @param chunksInUse       receives the chunks with an element handed out; counted only with
  ///                          headers and only when chunkCount is asked for, else 0
  /// @throws QRTAssertError  a damaged header was found
  /// Cost: O(chunks), with chunksInUse O(elements).
  void info(int* chunkBytes, int* chunkCount, int* elementsPerChunk, int* chunksInUse);

  /// Tells the size recorded in the header in front of a block.
  /// @param p  an element of a pool with headers or a block of a QRTMemoryArena; may be null
  /// @return the element size or the size asked for; 0 for null
  /// @throws QRTAssertError  the header is damaged
  static unsigned allocSize(void* p);

  /// Verifies the header of every element, free or handed out; does nothing without headers.
  /// Ends the process when a header is damaged and that was asked for.
  /// @throws QRTAssertError  the last byte of a header was overwritten
  /// Cost: O(elements).
  void checkForMemoryOverWrite() const;

  /// Switches detection on (non-zero) or off: every operation then verifies every header.
  void setDetectMemoryOverWrites(int on);

  /// @return 1 when detection is on, else 0
  int getDetectMemoryOverWrites() const;

  /// Chooses whether a damaged header ends the process (non-zero) or raises an error.
  void setAbortProcessOnMemoryOverWrites(int on);

  /// @return 1 when a damaged header ends the process, else 0
  int getAbortProcessOnMemoryOverWrites() const;

 private:
  friend class QRTAllocatorView;
  friend class QRTMemoryArena;
  friend struct QRTChunkRecord;

  struct Chunk;

  // An element of a pool without headers that is free.
  struct FreeElement {
    FreeElement* next;
  };

  // What stands behind that in a large pool.
  struct Hint {
    void* ahead;
  };

  // What alloc and free do at once.
  enum Path : std::uint8_t {
    ePlain,  // without headers: take from the list and put on it
    eAhead,  // the same in a large pool, whose free elements are prefetched
    eOther   // with headers: take from the chunk of m_quickRecord and put into those of m_table.
             // There are none while detection is on or a memory checker watches.
  };

  static constexpr unsigned kHeaderBytes = QRTChunkRecord::kHeaderBytes;

  // The free elements of a pool without headers. Only those of ePlain are where alloc looks first.
  FreeElement*& freeList() { return m_path == ePlain ? m_freeList : m_otherList; }
  const FreeElement* freeList() const { return m_path == ePlain ? m_freeList : m_otherList; }

  // In a large pool without headers that was freed in random order, each free element lies on a
  // cache line of its own, whose address stands on the one before. So each also holds the address
  // of the element that was freed kAhead frees before it, which alloc prefetches. It is a hint and
  // nothing else: what is written over it does no harm. Where frees and allocs alternate there is
  // no need: then the next element is the last one freed when it is handed out, and is not when
  // another one is freed.
  static constexpr unsigned kAhead = 8;
  void putAhead(void* p) {
    FreeElement* const next = m_otherList;
    if (next == m_lastFreed) {
      void*& recent = m_recent[m_noted++ % kAhead];
      new (static_cast<FreeElement*>(p) + 1) Hint{recent};
      recent = p;
    }
    m_lastFreed = m_otherList = new (p) FreeElement{next};
  }
  void* takeAhead() {
    FreeElement* const first = m_otherList;
    if (first != nullptr) {
      if (first != m_lastFreed) {
        const void* const hint = first + 1;
        __builtin_prefetch(static_cast<const Hint*>(hint)->ahead, 1);
      }
      m_otherList = first->next;
    }
    return first;
  }

  // What is left of alloc and free: other chunks, growth, checks, errors.
  void* allocHere();
  void freeHere(void* p);
  void* allocElsewhere();
  void* allocSlow();
  bool isQuick() const { return m_detectOverWrites == 0 && m_watched == 0; }
  void choosePath();
  void setWindows(QRTChunkWindows* windows);
  void share(QRTChunkWindows* windows, QRTChunkRecord** quickPlace);

  QRTChunkRecord* findFree();
  bool findElsewhere(QRTChunkFound& found);
  QRTChunkRecord* recordOf(const void* place) const;
  QRTChunkRecord* enter(Chunk* chunk) noexcept;
  void setCurrent(QRTChunkRecord* record);
  void format(Chunk* chunk, QRTChunkRecord* record);
  void giveBack(char* area);
  void testHeader(const ElementHeader* rh) const;
  bool isWhollyFree(const Chunk* chunk) const;
  Chunk* takeWhollyFree(Chunk*& previous, int& keep);
  unsigned elementsPerChunk() const;
  unsigned callerBytes() const { return m_useHeaders != 0 ? m_esize - 8 : m_esize; }

  Chunk* m_chunks;                        // all chunks, the newest first; owned
  std::uint32_t m_esize;                  // bytes from slot to slot
  std::uint32_t m_size;                   // element size as given, 8 for 0
  FreeElement* m_freeList;                // free elements of the whole pool where that is all that
                                          // alloc and free need to know
  std::uint32_t m_growable : 1;           // whether alloc obtains chunks by itself
  std::uint32_t m_detectOverWrites : 1;   // whether every operation verifies every header
  std::uint32_t m_abortOnOverWrites : 1;  // whether a damaged header ends the process
  std::uint32_t m_watched : 1;            // whether a memory checker observes the process
  int m_useHeaders;                       // whether elements carry headers
  Chunk* m_current;                       // chunk that alloc tries first, with headers
  QRTChunkRecord* m_currentRecord;        // that of m_current, or of none
  QRTChunkRecord* m_quickRecord;          // the same where alloc needs not look further
  QRTChunkRecord** m_quickPlace;          // where that is kept: here, or in an arena for its bins
  FreeElement* m_otherList;               // free elements of other pools without headers
  void* m_recent[kAhead];                 // the last elements freed in a row, by m_noted
  FreeElement* m_lastFreed;               // the last one of them freed
  unsigned m_noted;                       // elements that were put into m_recent
  const QRTChunkTable* m_table;           // that of m_windows where free needs not look further
  QRTChunkIndex* m_index;                 // the chunks by age, with headers; owned
  QRTChunkWindows* m_windows;             // the chunks by address; owned unless it is an arena's
  unsigned m_added;                       // chunks added so far
  Path m_path;                            // what alloc and free do at once
  bool m_sharesWindows;                   // whether it is
};

static_assert(sizeof(QRTFixedMemoryPool::ElementHeader) == 8, "one header is one 8-byte word");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_offset) == 4, "bytes 4-5");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_inUse) == 6, "byte 6");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_filler3) == 7, "byte 7");

#endif  // QRTFIXEDMEMORYPOOL_H
