// What a QRTFixedMemoryPool does with whole chunks: taking them out, releasing, counting and
// verifying them.

#include <cstdlib>
#include <new>

#include "QRTChunkIndex.h"
#include "QRTChunkWindows.h"
#include "QRTFixedMemoryPool.h"
#include "QRTFixedMemoryPoolChunk.h"
#include "checkers/QRTMemoryChecker.h"

void* QRTFixedMemoryPool::reclaim(int keep) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  Chunk* previous = nullptr;
  return takeWhollyFree(previous, keep);
}

unsigned QRTFixedMemoryPool::trim(int maxChunks) {
  // Each chunk is searched for where the last one was: chunks before that are in use.
  unsigned released = 0;
  Chunk* previous = nullptr;
  while (m_useHeaders != 0 &&
         (maxChunks == 0 || (maxChunks > 0 && released < static_cast<unsigned>(maxChunks)))) {
    if (m_detectOverWrites != 0) {
      checkForMemoryOverWrite();
    }
    int keep = 0;
    Chunk* const chunk = takeWhollyFree(previous, keep);
    if (chunk == nullptr) {
      break;
    }
    ::operator delete(chunk);
    ++released;
  }
  return released * Chunk::totalSize;
}

/// Takes the first wholly free chunk out of the pool that stands behind `previous` on the list.
/// @param previous  null for the head of the list; receives the chunk in front of the one taken
/// @param keep      how many to pass over; counted down
QRTFixedMemoryPool::Chunk* QRTFixedMemoryPool::takeWhollyFree(Chunk*& previous, int& keep) {
  if (m_useHeaders == 0) {
    return nullptr;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  Chunk* chunk = previous != nullptr ? previous->next : m_chunks;
  for (; chunk != nullptr; previous = chunk, chunk = chunk->next) {
    if (!isWhollyFree(chunk)) {
      continue;
    }
    if (keep != 0) {
      // A negative count never comes to 0.
      keep -= keep > 0 ? 1 : 0;
      continue;
    }
    if (previous != nullptr) {
      previous->next = chunk->next;
    } else {
      m_chunks = chunk->next;
    }
    if (m_current == chunk) {
      setCurrent(&QRTChunkRecord::none);
    }
    QRTChunkRecord* const record = recordOf(chunk);
    m_windows->remove(record);
    m_index->remove(record);
    if (m_watched != 0) {
      QRTMemoryChecker::open(chunk, Chunk::totalSize);
    }
    return chunk;
  }
  return nullptr;
}

void QRTFixedMemoryPool::info(int* chunkBytes, int* chunkCount, int* elementsInChunk,
                              int* chunksInUse) {
  if (m_detectOverWrites != 0) {
    checkForMemoryOverWrite();
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  if (chunkBytes != nullptr) {
    *chunkBytes = static_cast<int>(Chunk::totalSize);
  }
  if (chunksInUse != nullptr) {
    *chunksInUse = 0;
  }
  if (chunkCount != nullptr) {
    *chunkCount = 0;
    for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next) {
      ++*chunkCount;
      if (m_useHeaders != 0 && chunksInUse != nullptr && !isWhollyFree(chunk)) {
        ++*chunksInUse;
      }
    }
  }
  if (elementsInChunk != nullptr) {
    *elementsInChunk = static_cast<int>(elementsPerChunk());
  }
}

/// Whether no element of a chunk is handed out. Tests the headers it visits; the first element in
/// use ends the visit.
bool QRTFixedMemoryPool::isWhollyFree(const Chunk* chunk) const {
  if (recordOf(chunk)->head() == 0) {
    return false;
  }
  const unsigned end = elementsPerChunk() * m_esize;
  for (unsigned offset = 0; offset < end; offset += m_esize) {
    const auto* rh = reinterpret_cast<const ElementHeader*>(chunk->data + offset);
    testHeader(rh);
    if (rh->m_inUse != 0) {
      return false;
    }
  }
  return true;
}

void QRTFixedMemoryPool::checkForMemoryOverWrite() const {
  if (m_useHeaders == 0) {
    return;
  }
  const QRTMemoryChecker::Pass pass(m_watched != 0);
  const unsigned end = elementsPerChunk() * m_esize;
  for (const Chunk* chunk = m_chunks; chunk != nullptr; chunk = chunk->next) {
    for (unsigned offset = 0; offset < end; offset += m_esize) {
      const auto* rh = reinterpret_cast<const ElementHeader*>(chunk->data + offset);
      if (rh->m_size != m_size && m_abortOnOverWrites != 0) {
        std::abort();
      }
      testHeader(rh);
    }
  }
}
