#include "QRTOverWriteReport.h"

#include <cstring>
#include <iomanip>
#include <ios>

#include "QRTAllocatorView.h"

namespace {

using ElementHeader = QRTFixedMemoryPool::ElementHeader;

/// Whether a header's bytes are those expected, whatever an intact in-use byte says.
bool isDamaged(const std::uint8_t* found, const std::uint8_t* expected) {
  return std::memcmp(found, expected, sizeof(ElementHeader)) != 0;
}

void writeBytes(std::ostream& os, const std::uint8_t* bytes) {
  const std::ios_base::fmtflags flags = os.flags();
  const char fill = os.fill('0');
  for (unsigned i = 0; i < sizeof(ElementHeader); ++i) {
    os << ' ' << std::hex << std::setw(2) << unsigned{bytes[i]};
  }
  os.fill(fill);
  os.flags(flags);
}

}  // namespace

QRTOverWriteReport::QRTOverWriteReport(const QRTFixedMemoryPool& pool) {
  inspect(pool, -1);
}

QRTOverWriteReport::QRTOverWriteReport(const QRTMemoryArena& arena) {
  int bin = 0;
  for (const QRTFixedMemoryPool* pool : QRTAllocatorView::bins(arena)) {
    inspect(*pool, bin++);
  }
  // A large block has a neighbour of the C runtime in front, about which nothing is known; its size
  // field has no second copy to compare with.
  for (const QRTAllocatorView::Large& large : QRTAllocatorView::largeBlocks(arena)) {
    const ElementHeader expected{large.header.m_size, 0, 1, 0x0E};
    Finding finding{-1,      0, 0,    large.start + sizeof expected, true, {}, {}, false,
                    nullptr, 0, false};
    std::memcpy(finding.header, &large.header, sizeof expected);
    std::memcpy(finding.expected, &expected, sizeof expected);
    if (isDamaged(finding.header, finding.expected)) {
      m_findings.push_back(finding);
    }
  }
}

QRTOverWriteReport::~QRTOverWriteReport() = default;

void QRTOverWriteReport::inspect(const QRTFixedMemoryPool& pool, int bin) {
  const QRTAllocatorView::Fixed figures = QRTAllocatorView::figures(pool);
  if (!figures.hasHeaders) {
    return;
  }
  const unsigned callerBytes = figures.stride - static_cast<unsigned>(sizeof(ElementHeader));
  unsigned chunkIndex = 0;
  for (const QRTAllocatorView::Chunk& chunk : QRTAllocatorView::chunks(pool)) {
    for (unsigned i = 0; i < chunk.slots.size(); ++i) {
      const QRTAllocatorView::Slot& slot = chunk.slots[i];
      // What the free list says is trusted before the header, which may be damaged.
      const ElementHeader expected{figures.size, static_cast<std::uint16_t>(i * figures.stride),
                                   static_cast<std::uint8_t>(slot.isListed ? 0 : 1), 0x0E};
      Finding finding{bin, chunkIndex, i,       slot.area,   !slot.isListed, {},
                      {},  i > 0,      nullptr, callerBytes, false};
      std::memcpy(finding.header, slot.header.data(), sizeof expected);
      std::memcpy(finding.expected, &expected, sizeof expected);
      if (isDamaged(finding.header, finding.expected)) {
        if (finding.hasCulprit) {
          finding.culpritArea = chunk.slots[i - 1].area;
          finding.isCulpritInUse = !chunk.slots[i - 1].isListed;
        }
        m_findings.push_back(finding);
      }
    }
    ++chunkIndex;
  }
}

unsigned QRTOverWriteReport::getCount() const {
  return static_cast<unsigned>(m_findings.size());
}

const QRTOverWriteReport::Finding& QRTOverWriteReport::get(unsigned index) const {
  return m_findings.at(index);
}

void QRTOverWriteReport::write(std::ostream& os) const {
  os << "Overwritten headers: " << m_findings.size() << '\n';
  for (const Finding& finding : m_findings) {
    if (finding.bin >= 0) {
      os << "Bin " << finding.bin << ", chunk " << finding.chunk << ", slot " << finding.slot;
    } else if (finding.culpritBytes != 0) {
      os << "Chunk " << finding.chunk << ", slot " << finding.slot;
    } else {
      os << "Large block";
    }
    os << ", element at " << finding.area << (finding.isInUse ? ", in use" : ", free") << '\n';
    os << "  header found   ";
    writeBytes(os, finding.header);
    os << "\n  header expected";
    writeBytes(os, finding.expected);
    if (finding.hasCulprit) {
      os << "\n  slot before: element at " << finding.culpritArea << " of " << finding.culpritBytes
         << " bytes, "
         << (finding.isCulpritInUse ? "in use: look for a write past its end"
                                    : "free: look for a write after it was freed")
         << '\n';
    } else {
      os << "\n  no slot before: look for a write from the memory in front\n";
    }
  }
}
