#ifndef QRTFIXEDMEMORYPOOL_H
#define QRTFIXEDMEMORYPOOL_H

#include <cstddef>
#include <cstdint>

#include "QRTCore/QRTExport.h"

class QRTChunkIndex;

/// Hands out elements of one size from chunks of 32,760 bytes. With element headers each chunk
/// keeps its own free list, wholly free chunks can be released or moved to another pool, and
/// writes past the end of an element can be detected. Without headers an element costs nothing
/// beside itself and chunks stay until the pool is destroyed.
///
/// Elements are aligned to 8 bytes. A pool is used by one thread at a time.
class QRT_EXPORT QRTFixedMemoryPool {
 public:
  /// The 8 bytes in front of every element of a pool with headers, and of every large
  /// block of a QRTMemoryArena. Programs that AddressSanitizer or Valgrind watches may not read it
  /// by themselves: these bytes are closed to them. `allocSize` reads it for them.
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
  /// @throws QRTAssertError       a damaged header or free list was found; the element is not taken
  /// Cost: constant. With detection on, O(elements).
  void* alloc();

  /// Takes an element back; null is ignored.
  /// @param p  an element that `alloc` of this pool handed out
  /// @throws QRTAssertError  with headers: the header is damaged, says that the element is free
  ///                         already, or belongs to a pool of another size; nothing is changed. An
  ///                         element of another pool of this size goes back to that one's chunk;
  ///                         with detection on it is refused.
  /// Cost: constant. With detection on, O(elements).
  void free(void* p);

  /// Resizes an element as the C runtime's `realloc` does. It stays where it is: all elements are
  /// equally large.
  /// @param p     an element of this pool; null asks for a new one
  /// @param size  bytes wanted; 0 gives the element back
  /// @return the element; null when it was given back, when none is larger than `size` asks, or,
  ///         for a new one, where `alloc` gives null. Unless given back, p stays as it was.
  /// @throws  what `alloc` and `free` throw
  void* realloc(void* p, unsigned size);

  /// Adds a chunk.
  /// @param chunk  a block of at least 32,760 bytes obtained with operator new, such as `reclaim`
  ///               gives; it becomes the pool's. Null obtains a new one. A given one is all that
  ///               is needed: nothing is asked of the heap that the pool could not do without.
  /// @throws QRTOutOfMemoryError  there is no memory for a new chunk; the pool is unchanged
  /// @throws QRTAssertError       the chunk is in the pool already, which changes nothing; or
  ///                              detection found a damaged header, and the chunk is in the pool
  /// Cost: O(elements per chunk).
  void grow(void* chunk);

  /// Takes a wholly free chunk out of a pool with headers, the newest first. A chunk is wholly free
  /// when no header says that its element is in use and its free list holds all its elements.
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
  /// @param chunksInUse       receives the chunks that are not wholly free; counted only with
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
  friend class QRTChunkIndex;
  friend class QRTMemoryArena;

  struct Chunk;

  // The fast paths of alloc and free. They are for a pool that is unchecked: without detection and
  // without a memory checker.
  void* takeFromCurrent();
  void* allocFromIndex();
  void* takeFromIndex();
  bool putIfIntact(void* p);
  bool isUnchecked() const { return m_detectOverWrites == 0 && m_watched == 0; }

  // The checked paths of alloc and free: growth, detection, memory checkers, errors.
  void* allocChecked();
  void freeChecked(void* p);
  char* firstFree(Chunk*& chunk);
  void putChecked(char* area);
  Chunk* chunkOf(const char* area) const;

  bool has(const void* chunk) const;
  void format(Chunk* chunk);
  void updateIndex(Chunk* added) noexcept;
  void trimInto(int maxChunks, unsigned& released);
  Chunk* takeWhollyFree(Chunk*& previous, int& keep);
  bool isWhollyFree(const Chunk* chunk) const;
  std::uint64_t countInUse() const;
  void testHeader(const ElementHeader* rh) const;
  unsigned elementsPerChunk() const;
  unsigned headerBytes() const { return m_useHeaders != 0 ? sizeof(ElementHeader) : 0; }
  unsigned callerBytes() const { return m_esize - headerBytes(); }

  Chunk* m_chunks;                        // all chunks, the newest first; owned
  std::uint32_t m_esize;                  // bytes from slot to slot
  std::uint32_t m_size;                   // element size as given, 8 for 0
  char* m_freeList;                       // first free element, without headers
  std::uint32_t m_growable : 1;           // whether alloc obtains chunks by itself
  std::uint32_t m_detectOverWrites : 1;   // whether every operation verifies every header
  std::uint32_t m_abortOnOverWrites : 1;  // whether a damaged header ends the process
  std::uint32_t m_watched : 1;            // whether a memory checker observes the process
  int m_useHeaders;                       // whether elements carry headers
  Chunk* m_current;                       // chunk that alloc tries first, with headers; or null
  QRTChunkIndex* m_index;                 // finds chunks faster than their list; owned; null while
                                          // there are few or no memory for it can be had
};

static_assert(sizeof(QRTFixedMemoryPool::ElementHeader) == 8, "one header is one 8-byte word");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_offset) == 4, "bytes 4-5");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_inUse) == 6, "byte 6");
static_assert(offsetof(QRTFixedMemoryPool::ElementHeader, m_filler3) == 7, "byte 7");

#endif  // QRTFIXEDMEMORYPOOL_H
