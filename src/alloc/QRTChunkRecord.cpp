#include "QRTChunkRecord.h"

#include <cstddef>
#include <cstdlib>

namespace {

std::size_t noWord = 0;           // whose bits none has
std::uint16_t noEntries[1] = {};  // whose stack is empty and has no room

}  // namespace

// Pools that are global objects may be made before anything here would be initialized at run time.
constinit QRTChunkRecord QRTChunkRecord::none = {nullptr, noEntries, noEntries, nullptr, &noWord,
                                                 0,       &noWord,   0,         0};
constexpr QRTChunkWindow QRTChunkWindow::kEmpty = {
    UINTPTR_MAX, {&QRTChunkRecord::none, &QRTChunkRecord::none}, 0};

namespace {

constinit QRTChunkWindow noWindows[2] = {QRTChunkWindow::kEmpty, QRTChunkWindow::kEmpty};

}  // namespace

constinit const QRTChunkTable QRTChunkTable::none = {noWindows, sizeof(QRTChunkWindow)};

QRTChunkRecord* QRTChunkRecord::make(QRTFixedMemoryPool* pool, void* chunk,
                                     unsigned elements) noexcept {
  const std::size_t entries = std::size_t{1} + elements;
  void* const memory = std::malloc(sizeof(QRTChunkRecord) + entries * sizeof(std::uint16_t));
  if (memory == nullptr) {
    return nullptr;
  }
  auto* const record = static_cast<QRTChunkRecord*>(memory);
  *record = none;
  record->start = static_cast<char*>(chunk);
  record->pool = pool;
  record->top = record->stack();
  record->last = record->top + elements;
  *record->top = 0;
  return record;
}

void QRTChunkRecord::release(QRTChunkRecord* record) noexcept {
  std::free(record);
}
