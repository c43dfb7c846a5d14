#include "QRTChunkWindows.h"

#include <bit>
#include <new>
#include <utility>

namespace {

constexpr unsigned kBits = QRTChunkWindow::kBits;
constexpr std::size_t kWindowsPerChunk = 3;

std::uintptr_t startOf(const QRTChunkRecord* record) {
  return reinterpret_cast<std::uintptr_t>(record->start);
}

/// Places for so many windows: half of them stay empty.
constexpr std::size_t placesFor(std::size_t windows) {
  return windows * 2;
}

}  // namespace

bool QRTChunkWindows::add(QRTChunkRecord* record) noexcept {
  if (placesFor(m_used + kWindowsPerChunk) > m_last && !makeRoom()) {
    return false;
  }
  enter(record);
  return true;
}

void QRTChunkWindows::enter(QRTChunkRecord* record) noexcept {
  const std::uintptr_t start = startOf(record);
  const std::uintptr_t number = start >> kBits;
  QRTChunkWindow& first = windowOf(number);
  first.side[1] = record;
  first.border = start;
  for (std::uintptr_t next = number + 1; next <= (start + QRTChunkRecord::kChunkBytes - 1) >> kBits;
       ++next) {
    windowOf(next).side[0] = record;
  }
}

void QRTChunkWindows::remove(const QRTChunkRecord* record) noexcept {
  // The places stay taken until the next makeRoom, so that others behind them are still found.
  const std::uintptr_t start = startOf(record);
  const std::uintptr_t number = start >> kBits;
  QRTChunkWindow& first = windowOf(number);
  first.side[1] = &QRTChunkRecord::none;
  first.border = UINTPTR_MAX;
  for (std::uintptr_t next = number + 1; next <= (start + QRTChunkRecord::kChunkBytes - 1) >> kBits;
       ++next) {
    windowOf(next).side[0] = &QRTChunkRecord::none;
  }
}

QRTChunkRecord* QRTChunkWindows::find(const void* address) const noexcept {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  const std::uintptr_t number = at >> kBits;
  const QRTChunkWindow& window = placeFor(number);
  QRTChunkRecord* const record = window.side[at >= window.border ? 1 : 0];
  return window.number == number && record->distanceOf(address) < QRTChunkRecord::kChunkBytes
             ? record
             : &QRTChunkRecord::none;
}

/// Where the window of a number stands, or the empty place where it would.
QRTChunkWindow& QRTChunkWindows::placeFor(std::uintptr_t number) const noexcept {
  std::size_t place = number & m_last;
  if (places[place].number != 0 && places[place].number != number) {
    // Fibonacci hashing: the multiplier is 2^64 divided by the golden ratio. The step is odd, so
    // that it leads to every place.
    const std::uint64_t hash = std::uint64_t{number} * 0x9E3779B97F4A7C15U;
    const std::size_t step = static_cast<std::size_t>(hash >> 48) | 1;
    place = static_cast<std::size_t>(hash >> 32) & m_last;
    while (places[place].number != 0 && places[place].number != number) {
      place = (place + step) & m_last;
    }
  }
  return places[place];
}

/// The window of a number, made if there is none. The caller has seen to it that there is room.
QRTChunkWindow& QRTChunkWindows::windowOf(std::uintptr_t number) noexcept {
  QRTChunkWindow& window = placeFor(number);
  if (window.number == 0) {
    window.number = number;
    ++m_used;
  }
  return window;
}

/// Enters all chunks into a new table, with room for as many again.
bool QRTChunkWindows::makeRoom() noexcept {
  std::vector<QRTChunkRecord*> records;
  std::vector<QRTChunkWindow> before;
  std::size_t count = 0;
  try {
    for (std::size_t place = 0; place <= m_last; ++place) {
      if (places[place].side[1] != &QRTChunkRecord::none) {
        records.push_back(places[place].side[1]);
      }
    }
    count = std::bit_ceil(placesFor((records.size() + 1) * kWindowsPerChunk) + 1);
    before.resize(count, QRTChunkWindow::kEmpty);
  } catch (const std::bad_alloc&) {
    return false;
  }
  std::swap(before, m_windows);
  places = m_windows.data();
  m_last = count - 1;
  mask = m_last * sizeof(QRTChunkWindow);
  m_used = 0;
  for (QRTChunkRecord* record : records) {
    enter(record);
  }
  return true;
}
