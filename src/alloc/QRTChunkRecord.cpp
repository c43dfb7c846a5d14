#include "QRTChunkRecord.h"

#include <cstdlib>

QRTChunkRecord QRTChunkRecord::none = {nullptr, nullptr, 0, 0, 0};

QRTChunkRecord* QRTChunkRecord::make(QRTFixedMemoryPool* pool, void* chunk,
                                     unsigned elements) noexcept {
  void* const memory =
      std::malloc(sizeof(QRTChunkRecord) + (std::size_t{elements} + 1) * sizeof(std::uint16_t));
  if (memory == nullptr) {
    return nullptr;
  }
  auto* const record = static_cast<QRTChunkRecord*>(memory);
  record->start = static_cast<char*>(chunk);
  record->pool = pool;
  record->age = 0;
  record->free = 0;
  record->elements = static_cast<std::uint16_t>(elements);
  record->stack()[0] = 0;
  return record;
}

void QRTChunkRecord::release(QRTChunkRecord* record) noexcept {
  std::free(record);
}
