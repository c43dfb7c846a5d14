#include "OffsetList.h"

#include <stdexcept>
#include <string>

#include "QRTVirtualPin.h"

namespace example {

OffsetList::~OffsetList() {
  for (QRTVirtualPageItem& block : m_blocks) {
    m_manager.free(block);
  }
}

void OffsetList::add(std::uint64_t offset) {
  if (m_size % kPerBlock == 0) {
    m_blocks.emplace_back();
    QRTVirtualPin<std::uint64_t>::alloc(m_manager, kPerBlock * sizeof(std::uint64_t),
                                        m_blocks.back());
  }
  const QRTVirtualPin<std::uint64_t> block(m_manager, m_blocks.back());
  if (!block) {
    throw std::runtime_error(m_manager.getLastStoreError());
  }
  block.get()[m_size++ % kPerBlock] = offset;
}

void OffsetList::forEach(const std::function<void(std::uint64_t)>& visit) {
  for (std::uint64_t number = 0; number < m_size; ++number) {
    const QRTVirtualPin<const std::uint64_t> block(m_manager, m_blocks[number / kPerBlock]);
    if (!block) {
      throw std::runtime_error(m_manager.getLastStoreError());
    }
    visit(block.get()[number % kPerBlock]);
  }
}

}  // namespace example
