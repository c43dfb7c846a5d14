#ifndef QRTCHUNKWINDOWS_H
#define QRTCHUNKWINDOWS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "QRTChunkRecord.h"

/// Finds the chunk that an address lies in without touching the chunk. Kept by a pool for itself,
/// or by an arena for all its bins, where it tells the bin of a block too.
///
/// The header in front of an element says where its chunk starts, but in a large pool reading it is
/// a cache miss, and what depends on it waits. The address alone is there at once.
///
/// Addresses are cut into windows of 16 KiB, half a chunk. A window holds the end of one chunk and
/// the start of another at most, however close together they lie. Windows are found by open
/// addressing. The record that is found tells whether it is the right one, so that the first place
/// is mostly all there is to look at. A window whose place is taken by one of another region of
/// memory stands at a scattered place, or some steps on that are scattered too: side by side with
/// its neighbours it would run into all of the other region's.
class QRTChunkWindows : public QRTChunkTable {
 public:
  QRTChunkWindows() : QRTChunkTable(none) {}
  QRTChunkWindows(const QRTChunkWindows&) = delete;
  QRTChunkWindows& operator=(const QRTChunkWindows&) = delete;

  /// Enters a chunk.
  /// @return false when memory cannot be had; nothing is changed
  bool add(QRTChunkRecord* record) noexcept;

  /// Takes a chunk out.
  void remove(const QRTChunkRecord* record) noexcept;

  /// @return the record of the chunk that an address lies in; QRTChunkRecord::none when there is
  /// none
  QRTChunkRecord* find(const void* address) const noexcept;

 private:
  QRTChunkWindow& placeFor(std::uintptr_t number) const noexcept;
  QRTChunkWindow& windowOf(std::uintptr_t number) noexcept;
  void enter(QRTChunkRecord* record) noexcept;
  bool makeRoom() noexcept;

  std::vector<QRTChunkWindow> m_windows;
  std::size_t m_last = 1;  // last place
  std::size_t m_used = 0;  // places that are not empty
};

#endif  // QRTCHUNKWINDOWS_H
