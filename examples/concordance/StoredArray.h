#ifndef EXAMPLES_CONCORDANCE_STOREDARRAY_H
#define EXAMPLES_CONCORDANCE_STOREDARRAY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <type_traits>

#include "QRTVirtualMemoryMgr.h"
#include "StoredValue.h"

namespace example {

/// A growing array of plain records in a store, a page's worth to an object. What the process keeps
/// is 8 bytes for each of these objects.
template <class T>
class StoredArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  /// @param manager  keeps the records; must outlive the array
  explicit StoredArray(QRTVirtualMemoryMgr& manager) : m_manager(manager) {}

  /// Adds a record. Throws what the manager throws when the store is full; nothing changes then.
  void append(const T& record) {
    if (m_size == m_chunks.size() * kPerChunk) {
      m_chunks.push_back(storeValue(m_manager, Chunk()));
    }
    write(m_size, record);
    ++m_size;
  }

  T read(std::size_t index) const {
    return (*pinValue<const Chunk>(m_manager, m_chunks[index / kPerChunk]))[index % kPerChunk];
  }

  void write(std::size_t index, const T& record) {
    (*pinValue<Chunk>(m_manager, m_chunks[index / kPerChunk]))[index % kPerChunk] = record;
  }

  std::size_t size() const { return m_size; }

  /// Bytes that the process keeps for the array.
  std::uint64_t memoryBytes() const { return m_chunks.size() * sizeof(std::uint64_t); }

 private:
  static constexpr std::size_t kChunkBytes = 4096;  // a page of the store
  static constexpr std::size_t kPerChunk = kChunkBytes / sizeof(T);
  using Chunk = std::array<T, kPerChunk>;

  QRTVirtualMemoryMgr& m_manager;      // not owned
  std::deque<std::uint64_t> m_chunks;  // offsets of the objects
  std::size_t m_size = 0;              // records
};

}  // namespace example

#endif  // EXAMPLES_CONCORDANCE_STOREDARRAY_H
