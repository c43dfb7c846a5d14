#include "QRTChunkRecord.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace {

std::uint64_t noWord = 0;  // whose bits none has

}  // namespace

QRTChunkRecord QRTChunkRecord::none = {nullptr, nullptr, 0, &noWord, 0, &noWord, 0, 0, 0, 0};

const QRTChunkWindow QRTChunkWindow::kEmpty = {
    UINTPTR_MAX, {&QRTChunkRecord::none, &QRTChunkRecord::none}, 0};

namespace {

QRTChunkWindow noWindows[2] = {QRTChunkWindow::kEmpty, QRTChunkWindow::kEmpty};

}  // namespace

const QRTChunkTable QRTChunkTable::none = {noWindows, 1};

QRTChunkRecord* QRTChunkRecord::make(QRTFixedMemoryPool* pool, void* chunk, unsigned elements,
                                     unsigned size) noexcept {
  const std::size_t entries = std::size_t{kAhead} + 1 + elements;
  void* const memory = std::malloc(sizeof(QRTChunkRecord) + entries * sizeof(std::uint16_t));
  if (memory == nullptr) {
    return nullptr;
  }
  auto* const record = static_cast<QRTChunkRecord*>(memory);
  record->start = static_cast<char*>(chunk);
  record->pool = pool;
  record->freeHeader = (size | kFiller) - (std::uint64_t{kHeaderBytes} << 32);
  record->has = &noWord;
  record->hasBit = 0;
  record->summary = &noWord;
  record->summaryBit = 0;
  record->age = 0;
  record->free = 0;
  record->elements = elements;
  std::fill_n(reinterpret_cast<std::uint16_t*>(record + 1), kAhead + 1, std::uint16_t{0});
  return record;
}

void QRTChunkRecord::release(QRTChunkRecord* record) noexcept {
  std::free(record);
}
