#include "QRTAllocatorMap.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

#include "QRTAllocatorView.h"

namespace {

constexpr unsigned kChunkBytes = 32760;
constexpr unsigned kFiller = 0x0E;
constexpr std::size_t kLargePerRow = 64;

// The picture: strips to the right of their labels.
constexpr unsigned kLabelWidth = 180;  // "heap memory, 4294967295 bytes"
constexpr unsigned kStripWidth = 800;
constexpr unsigned kRowHeight = 14;
constexpr unsigned kTop = 40;

// Colours that people with colour-blindness tell apart, indexed by state.
const char* const kColours[] = {"#0072b2", "#dfe7ee", "#d55e00", "#ffffff"};
const char* const kNames[] = {"in use", "free", "damaged header", "no element"};

}  // namespace

QRTAllocatorMap::QRTAllocatorMap(const QRTMemoryPool& pool) {
  for (const QRTAllocatorView::Extent& extent : QRTAllocatorView::extents(pool)) {
    Row row{"heap memory, " + std::to_string(extent.bytes) + " bytes", {}};
    std::uint64_t known = 0;
    for (const QRTAllocatorView::Block& block : extent.blocks) {
      addRun(row, block.bytes, block.isFree ? eFree : eUsed);
      known += block.bytes;
    }
    if (known != extent.bytes) {
      addRun(row, extent.bytes - known, eDamaged);
    }
    m_rows.push_back(std::move(row));
  }
}

QRTAllocatorMap::QRTAllocatorMap(const QRTFixedMemoryPool& pool) {
  addPool(pool, std::to_string(QRTAllocatorView::figures(pool).size) + " bytes");
}

QRTAllocatorMap::QRTAllocatorMap(const QRTMemoryArena& arena) {
  int bin = 0;
  for (const QRTFixedMemoryPool* pool : QRTAllocatorView::bins(arena)) {
    addPool(*pool, "bin " + std::to_string(bin++) + ", " +
                       std::to_string(QRTAllocatorView::figures(*pool).size) + " bytes");
  }
  // Large blocks share rows; the header in front of each sets it apart.
  const std::vector<QRTAllocatorView::Large> blocks = QRTAllocatorView::largeBlocks(arena);
  for (std::size_t first = 0; first < blocks.size(); first += kLargePerRow) {
    const std::size_t end = std::min(blocks.size(), first + kLargePerRow);
    Row row{std::to_string(end - first) + " large, ", {}};
    for (std::size_t i = first; i < end; ++i) {
      const auto& header = blocks[i].header;
      addRun(row, sizeof header, eUnused);
      addRun(row, header.m_size, header.m_filler3 == kFiller ? eUsed : eDamaged);
    }
    row.label += std::to_string(row.runs.back().end) + " bytes";
    m_rows.push_back(std::move(row));
  }
}

QRTAllocatorMap::~QRTAllocatorMap() = default;

void QRTAllocatorMap::addPool(const QRTFixedMemoryPool& pool, const std::string& label) {
  const QRTAllocatorView::Fixed figures = QRTAllocatorView::figures(pool);
  unsigned index = 0;
  for (const QRTAllocatorView::Chunk& chunk : QRTAllocatorView::chunks(pool)) {
    Row row{label + ", chunk " + std::to_string(index++), {}};
    for (const QRTAllocatorView::Slot& slot : chunk.slots) {
      const bool isDamaged = figures.hasHeaders && slot.header[7] != kFiller;
      addRun(row, figures.stride, isDamaged ? eDamaged : slot.isListed ? eFree : eUsed);
    }
    addRun(row, kChunkBytes - std::uint64_t{figures.stride} * figures.slots, eUnused);
    m_rows.push_back(std::move(row));
  }
}

void QRTAllocatorMap::addRun(Row& row, std::uint64_t bytes, State state) {
  const std::uint64_t begin = row.runs.empty() ? 0 : row.runs.back().end;
  if (!row.runs.empty() && row.runs.back().state == state) {
    row.runs.back().end += bytes;
  } else {
    row.runs.push_back({begin + bytes, state});
  }
}

unsigned QRTAllocatorMap::getRows() const {
  return static_cast<unsigned>(m_rows.size());
}

/// The character that stands for the bytes of a row from `begin` up to `end`.
char QRTAllocatorMap::cellOf(const Row& row, std::uint64_t begin, std::uint64_t end) {
  bool has[4] = {};
  auto run = std::upper_bound(row.runs.begin(), row.runs.end(), begin,
                              [](std::uint64_t at, const Run& r) { return at < r.end; });
  for (; run != row.runs.end(); ++run) {
    has[run->state] = true;
    if (run->end >= end) {
      break;
    }
  }
  if (has[eDamaged]) {
    return '!';
  }
  if (has[eUsed]) {
    return has[eFree] ? '+' : '#';
  }
  return has[eFree] ? '.' : ' ';
}

void QRTAllocatorMap::writeText(std::ostream& os) const {
  os << "# in use  . free  + both  ! damaged header\n";
  for (const Row& row : m_rows) {
    const std::uint64_t total = row.runs.back().end;
    std::string cells;
    for (std::uint64_t column = 0; column < kColumns; ++column) {
      const std::uint64_t begin = total * column / kColumns;
      cells += cellOf(row, begin, std::max(begin + 1, total * (column + 1) / kColumns));
    }
    os << '[' << cells << "] " << row.label << '\n';
  }
}

void QRTAllocatorMap::writeSvg(std::ostream& os) const {
  std::ostringstream svg;
  svg << std::fixed << std::setprecision(2);
  const unsigned width = kLabelWidth + kStripWidth + 10;
  const std::size_t height = kTop + m_rows.size() * kRowHeight + 10;
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << width << ' ' << height
      << "\" font-family=\"sans-serif\" font-size=\"10\" fill=\"#1a1a1a\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
  for (unsigned state = eUsed; state <= eUnused; ++state) {
    const unsigned x = kLabelWidth + state * 140;
    svg << "<rect x=\"" << x << "\" y=\"12\" width=\"12\" height=\"12\" fill=\"" << kColours[state]
        << "\" stroke=\"#888888\"/><text x=\"" << x + 18 << "\" y=\"22\">" << kNames[state]
        << "</text>\n";
  }
  std::size_t y = kTop;
  for (const Row& row : m_rows) {
    svg << "<text x=\"4\" y=\"" << y + kRowHeight - 4 << "\">" << row.label << "</text>\n";
    const double scale =
        static_cast<double>(kStripWidth) / static_cast<double>(row.runs.back().end);
    std::uint64_t begin = 0;
    for (const Run& run : row.runs) {
      svg << "<rect x=\"" << kLabelWidth + static_cast<double>(begin) * scale << "\" y=\"" << y
          << "\" width=\"" << static_cast<double>(run.end - begin) * scale << "\" height=\""
          << kRowHeight - 3 << "\" fill=\"" << kColours[run.state] << "\"/>\n";
      begin = run.end;
    }
    svg << "<rect x=\"" << kLabelWidth << "\" y=\"" << y << "\" width=\"" << kStripWidth
        << "\" height=\"" << kRowHeight - 3 << "\" fill=\"none\" stroke=\"#888888\"/>\n";
    y += kRowHeight;
  }
  svg << "</svg>\n";
  os << svg.str();
}
