#include "QRTFragmentationReport.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <iomanip>
#include <string>

#include "QRTAllocatorView.h"

namespace {

constexpr std::uint64_t kBarWidth = 50;

}  // namespace

QRTFragmentationReport::QRTFragmentationReport(const QRTMemoryPool& pool)
    : m_heapBlocks(QRTAllocatorView::heapBlocks(pool)) {
  for (const QRTAllocatorView::Extent& extent : QRTAllocatorView::extents(pool)) {
    for (const QRTAllocatorView::Block& block : extent.blocks) {
      if (!block.isFree) {
        ++m_usedBlocks;
        m_usedBytes += block.bytes;
        continue;
      }
      ++m_freeBlocks;
      m_freeBytes += block.bytes;
      m_largestFree = std::max<std::uint64_t>(m_largestFree, block.bytes);
      ++m_histogram[std::bit_width(std::uint64_t{block.bytes}) - 1];
    }
  }
}

double QRTFragmentationReport::getFragmentation() const {
  return m_freeBytes != 0
             ? 1.0 - static_cast<double>(m_largestFree) / static_cast<double>(m_freeBytes)
             : 0.0;
}

void QRTFragmentationReport::write(std::ostream& os) const {
  os << "Heap blocks: " << m_heapBlocks << ", bytes: " << getHeapBytes() << '\n'
     << "In use: " << m_usedBlocks << " blocks, " << m_usedBytes << " bytes\n"
     << "Free: " << m_freeBlocks << " blocks, " << m_freeBytes << " bytes, largest "
     << m_largestFree << ", fragmentation " << std::lround(getFragmentation() * 100) << " %\n";
  const std::uint64_t most = *std::max_element(std::begin(m_histogram), std::end(m_histogram));
  for (unsigned i = 0; i < kClasses; ++i) {
    if (m_histogram[i] != 0) {
      const std::uint64_t bar = (m_histogram[i] * kBarWidth + most - 1) / most;
      os << "  from " << std::setw(11) << (std::uint64_t{1} << i) << " bytes " << std::setw(8)
         << m_histogram[i] << ' ' << std::string(static_cast<std::size_t>(bar), '#') << '\n';
    }
  }
}
