#ifndef QRTLARGEBLOCKS_H
#define QRTLARGEBLOCKS_H

#include <cstddef>
#include <cstdint>
#include <vector>

/// The large blocks that a QRTMemoryArena has handed out, by address.
///
/// A table with open addressing: a tree touches a node for every level, each of them a cache miss
/// when there are thousands of blocks, and obtains one for every block.
class QRTLargeBlocks {
 public:
  QRTLargeBlocks() = default;
  QRTLargeBlocks(const QRTLargeBlocks&) = delete;
  QRTLargeBlocks& operator=(const QRTLargeBlocks&) = delete;

  /// Enters a block.
  /// @return false when it is there already
  /// @throws std::bad_alloc  there is no memory for a larger table; nothing is changed
  bool insert(void* block);

  /// Takes a block out.
  /// @return the number taken out, 0 or 1
  std::size_t erase(const void* block) noexcept;

  /// @return all blocks in ascending order
  std::vector<void*> sorted() const;

  /// Takes all blocks out.
  /// @param visit  called with each of them in ascending order
  template <class Visit>
  void drain(Visit visit) noexcept {
    const std::size_t count = gather();
    for (std::size_t i = 0; i < count; ++i) {
      visit(m_places[i]);
    }
    m_places.clear();
    m_count = 0;
  }

 private:
  std::size_t placeOf(const void* block) const noexcept;
  std::size_t find(const void* block) const noexcept;
  std::size_t gather() noexcept;
  void grow();

  std::vector<void*> m_places;  // a power of two or none, a quarter of them null
  std::size_t m_count = 0;      // blocks
};

#endif  // QRTLARGEBLOCKS_H
