#include "QRTChunkWindows.h"

#include <bit>
#include <new>
#include <utility>

namespace {

constexpr std::size_t kWindowsPerChunk = 3;

}  // namespace

bool QRTChunkWindows::add(QRTChunkRecord* record) noexcept {
  if ((m_used + kWindowsPerChunk) * 2 > m_windows.size() && !makeRoom()) {
    return false;
  }
  enter(record);
  return true;
}

void QRTChunkWindows::enter(QRTChunkRecord* record) noexcept {
  const std::uintptr_t start = record->start();
  const std::uintptr_t number = start >> kWindowBits;
  Window& first = windowOf(number);
  first.above = record;
  first.key = number << kBorderBits | start / kStep % kSteps;
  for (std::uintptr_t next = number + 1; next <= (start + kChunkBytes - 1) >> kWindowBits; ++next) {
    windowOf(next).below = record;
  }
}

void QRTChunkWindows::remove(const QRTChunkRecord* record) noexcept {
  // The places stay taken until the next makeRoom, so that others behind them are still found.
  const std::uintptr_t start = record->start();
  const std::uintptr_t number = start >> kWindowBits;
  m_foundStart = 0;
  m_found = nullptr;
  Window& first = windowOf(number);
  first.above = nullptr;
  first.key = number << kBorderBits | kSteps;
  for (std::uintptr_t next = number + 1; next <= (start + kChunkBytes - 1) >> kWindowBits; ++next) {
    windowOf(next).below = nullptr;
  }
}

/// The window of a number, made if there is none. The caller has seen to it that there is room.
QRTChunkWindows::Window& QRTChunkWindows::windowOf(std::uintptr_t number) noexcept {
  std::size_t place = placeOf(number);
  while (m_places[place].key != 0 && m_places[place].key >> kBorderBits != number) {
    place = (place + 1) & m_last;
  }
  Window& window = m_places[place];
  if (window.key == 0) {
    window.key = number << kBorderBits | kSteps;
    ++m_used;
  }
  return window;
}

/// Enters all chunks into a new table, and leaves room for as many again.
bool QRTChunkWindows::makeRoom() noexcept {
  std::size_t chunks = 1;
  for (const Window& window : m_windows) {
    chunks += window.above != nullptr ? 1 : 0;
  }
  std::vector<Window> before;
  try {
    before.resize(std::bit_ceil(chunks * kWindowsPerChunk * 2));
  } catch (const std::bad_alloc&) {
    return false;
  }
  std::swap(before, m_windows);
  m_places = m_windows.data();
  m_last = m_windows.size() - 1;
  m_shift = 32 - static_cast<unsigned>(std::countr_zero(m_windows.size()));
  m_used = 0;
  for (const Window& window : before) {
    if (window.above != nullptr) {
      enter(window.above);
    }
  }
  return true;
}
