#include "libtcmalloc_virtualmm/SizeClasses.h"

#include <algorithm>
#include <bit>

#include "libtcmalloc_virtualmm/SlabPage.h"

namespace tcmalloc {

namespace {

// Up to this stride classes are 8 bytes apart, above it 16, so that a power of two finds slots
// aligned to 16 without going up a class.
constexpr std::uint32_t kFineStride = 256;

constexpr std::uint32_t kMinStride = 24;  // 16 bytes of object; a slab has at most 682 slots

// Spans of one, two and four pages are cut into at least this many slots. With fewer slots a larger
// span wastes less, but a fault that wants one object then reads up to four times as much.
constexpr std::uint32_t MinSlots(std::uint32_t pages) {
  return pages == 1 ? 5 : pages == 2 ? 4 : 3;
}

/// Bytes a span of `pages` pages offers to slots. The slab header takes kFirstObjectByte less the
/// first object's own header.
std::uint32_t UsableBytes(std::uint32_t pages, std::uint32_t pageSize) {
  return pages * pageSize - (kFirstObjectByte - kObjectHeaderBytes);
}

}  // namespace

SizeClasses::SizeClasses(std::uint32_t pageSize) {
  LIBTCMALLOC_ASSERT(std::has_single_bit(pageSize) && pageSize >= 4096 && pageSize <= 16384);
  // Every stride that cuts a span up with less than a grain for each slot to spare.
  std::uint32_t last = 0;
  for (std::uint32_t pages = 1; pages <= kMaxSpanPages; pages *= 2) {
    const std::uint32_t usable = UsableBytes(pages, pageSize);
    for (std::uint32_t slots = usable / kMinStride; slots >= MinSlots(pages); --slots) {
      const std::uint32_t exact = usable / slots;
      const std::uint32_t grain = exact <= kFineStride ? 8 : 16;
      const std::uint32_t stride = exact / grain * grain;
      if (stride > last) {
        LIBTCMALLOC_ASSERT(slots * stride <= usable && usable / slots < stride + grain);
        AddClass(stride, usable / stride, pages);
        last = stride;
      }
    }
  }
  m_maxSlabBytes = m_classes[m_count - 1].capacity;

  const auto end = m_classes.begin() + m_count;
  const std::uint32_t rows = (m_maxSlabBytes + 7) / 8 + 1;
  m_classOf.resize(rows);
  m_classOfAligned.resize(rows);
  for (std::uint32_t row = 0; row < rows; ++row) {
    const auto fits = [&](const SizeClass& c) { return c.capacity >= row * 8; };
    const auto fitsAligned = [&](const SizeClass& c) { return fits(c) && c.stride % 16 == 0; };
    const auto any = std::find_if(m_classes.begin(), end, fits);
    const auto aligned = std::find_if(any, end, fitsAligned);
    // What nearly fills a page is best off on a page of its own, without a header in it.
    const bool fillsPage = row * 8 > pageSize / 5 * 4 && row * 8 <= pageSize;
    m_classOf[row] = fillsPage ? kLarge : static_cast<std::uint8_t>(any - m_classes.begin());
    m_classOfAligned[row] = fillsPage || aligned == end
                                ? kLarge
                                : static_cast<std::uint8_t>(aligned - m_classes.begin());
  }
}

void SizeClasses::AddClass(std::uint32_t stride, std::uint32_t slots, std::uint32_t pages) {
  LIBTCMALLOC_ASSERT(m_count < kLarge && stride % 8 == 0);
  // The smallest factor whose product with the stride is above 2^32.
  const auto factor = static_cast<std::uint32_t>((std::uint64_t{1} << 32) / stride + 1);
  m_slots[m_count] = {factor, slots * (factor * stride)};
  m_classes[m_count++] = {static_cast<std::uint16_t>(stride),
                          static_cast<std::uint16_t>(stride - kObjectHeaderBytes),
                          static_cast<std::uint16_t>(slots), static_cast<std::uint16_t>(pages)};
}

}  // namespace tcmalloc
