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
/// addressing.
class QRTChunkWindows {
 public:
  QRTChunkWindows() = default;
  QRTChunkWindows(const QRTChunkWindows&) = delete;
  QRTChunkWindows& operator=(const QRTChunkWindows&) = delete;

  /// Enters a chunk.
  /// @return false when memory cannot be had; nothing is changed
  bool add(QRTChunkRecord* record) noexcept;

  /// Takes a chunk out.
  void remove(const QRTChunkRecord* record) noexcept;

  /// @return the record of the chunk whose slots an address lies in; null when there is none
  [[gnu::always_inline]] QRTChunkRecord* find(const void* address) noexcept;

 private:
  static constexpr unsigned kChunkBytes = 32760;
  static constexpr unsigned kWindowBits = 14;
  static constexpr unsigned kStep = 8;         // chunks start at multiples of this
  static constexpr unsigned kBorderBits = 12;  // for a place in a window in steps, or its end
  static constexpr std::uintptr_t kSteps = (std::uintptr_t{1} << kWindowBits) / kStep;
  static constexpr std::uintptr_t kBorderMask = (std::uintptr_t{1} << kBorderBits) - 1;

  struct Window {
    std::uintptr_t key;     // number << kBorderBits | where `above` starts; 0 for an empty place
    QRTChunkRecord* below;  // the chunk that began in a lower window, or null
    QRTChunkRecord* above;  // the chunk that starts here, or null
  };

  // Windows are scattered over the table: side by side, as they are in memory, those of one stretch
  // of heap would make a long run that those of another have to pass.
  std::size_t placeOf(std::uintptr_t number) const noexcept {
    return static_cast<std::uint32_t>(number) * 0x9E3779B1U >> m_shift;
  }

  Window& windowOf(std::uintptr_t number) noexcept;
  void enter(QRTChunkRecord* record) noexcept;
  bool makeRoom() noexcept;

  std::vector<Window> m_windows;  // a power of two, at least half of them empty
  Window m_none[2] = {};          // stand in for m_windows until there is one
  Window* m_places = m_none;      // m_windows or m_none
  std::size_t m_last = 1;         // last place
  unsigned m_shift = 31;          // leaves as many bits as there are places
  std::size_t m_used = 0;         // places that are not empty

  // Uses in order, or in reverse order, stay in one chunk for long.
  std::uintptr_t m_foundStart = 0;    // start of the chunk that was found last
  QRTChunkRecord* m_found = nullptr;  // its record
};

inline QRTChunkRecord* QRTChunkWindows::find(const void* address) noexcept {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  if (at - m_foundStart < kChunkBytes) {
    return m_found;
  }
  const std::uintptr_t number = at >> kWindowBits;
  for (std::size_t place = placeOf(number); m_places[place].key != 0;
       place = (place + 1) & m_last) {
    const Window& window = m_places[place];
    if (window.key >> kBorderBits == number) {
      // Chosen without a branch: which chunk an address lies in is anybody's guess.
      QRTChunkRecord* const record =
          at / kStep % kSteps >= (window.key & kBorderMask) ? window.above : window.below;
      if (record == nullptr || at - record->start() >= kChunkBytes) {
        return nullptr;
      }
      m_foundStart = record->start();
      m_found = record;
      return record;
    }
  }
  return nullptr;
}

#endif  // QRTCHUNKWINDOWS_H
