#include "libtcmalloc_virtualmm/SizeClasses.h"

#include <algorithm>
#include <bit>

#include "libtcmalloc_virtualmm/SlabPage.h"

namespace tcmalloc {

namespace {

constexpr std::uint32_t kClassesPerOctave = 8;
constexpr std::uint32_t kFineLimit = 128;  // up to here capacities are 8 bytes apart

/// Bytes a span of `pages` pages offers to slots. The slab header takes kFirstObjectByte less the
/// first object's own header.
std::uint32_t UsableBytes(std::uint32_t pages, std::uint32_t pageSize) {
  return pages * pageSize - (kFirstObjectByte - kObjectHeaderBytes);
}

/// The smallest span of which at most an eighth stays unused; the largest if there is none.
std::uint32_t SpanPagesFor(std::uint32_t stride, std::uint32_t pageSize) {
  for (std::uint32_t pages = 1; pages < SizeClasses::kMaxSpanPages; pages *= 2) {
    const std::uint32_t usable = UsableBytes(pages, pageSize);
    if (usable % stride <= usable / 8) {
      return pages;
    }
  }
  return SizeClasses::kMaxSpanPages;
}

}  // namespace

void SizeClasses::AddClass(std::uint32_t capacity, std::uint32_t pageSize) {
  const std::uint32_t wanted = capacity + kObjectHeaderBytes;
  const std::uint32_t pages = SpanPagesFor(wanted, pageSize);
  const std::uint32_t usable = UsableBytes(pages, pageSize);
  const std::uint32_t slots = usable / wanted;
  // Widen the slots to use the span up. Coarse classes keep strides that are multiples of 16.
  const std::uint32_t grain = capacity <= kFineLimit ? 8 : 16;
  const std::uint32_t stride =
      capacity <= kFineLimit ? wanted : std::max(wanted, usable / slots / grain * grain);
  if (m_count > 0 && m_classes[m_count - 1].stride >= stride) {
    return;  // the class before was widened past this one
  }
  m_slotBytes[m_count] = slots * stride;
  m_classes[m_count++] = {static_cast<std::uint16_t>(stride),
                          static_cast<std::uint16_t>(stride - kObjectHeaderBytes),
                          static_cast<std::uint16_t>(slots), static_cast<std::uint16_t>(pages)};
}

SizeClasses::SizeClasses(std::uint32_t pageSize) {
  // A span of the largest size holds three of the largest slab objects.
  const std::uint32_t largest =
      UsableBytes(kMaxSpanPages, pageSize) / 3 / 16 * 16 - kObjectHeaderBytes;
  for (std::uint32_t capacity = 16; capacity <= kFineLimit; capacity += 8) {
    AddClass(capacity, pageSize);
  }
  // Above, capacities lie 8 past a multiple of 16: strides are multiples of 16, and a power of two
  // fits with the padding that its alignment asks for.
  for (std::uint32_t base = kFineLimit; base < largest;) {
    base += std::max(std::bit_floor(base) / kClassesPerOctave, 16U);
    AddClass(std::min(base + 8, largest), pageSize);
  }
  m_maxSlabBytes = m_classes[m_count - 1].capacity;

  const auto last = m_classes.begin() + m_count;
  const std::uint32_t rows = (m_maxSlabBytes + 7) / 8 + 1;
  m_classOf.resize(rows);
  m_classOfAligned.resize(rows);
  for (std::uint32_t row = 0; row < rows; ++row) {
    const auto fits = [&](const SizeClass& c) { return c.capacity >= row * 8; };
    const auto fitsAligned = [&](const SizeClass& c) { return fits(c) && c.stride % 16 == 0; };
    const auto any = std::find_if(m_classes.begin(), last, fits);
    const auto aligned = std::find_if(any, last, fitsAligned);
    // What nearly fills a page is best off on a page of its own, without a header in it.
    const bool fillsPage = row * 8 > pageSize / 5 * 4 && row * 8 <= pageSize;
    m_classOf[row] = fillsPage ? kLarge : static_cast<std::uint8_t>(any - m_classes.begin());
    m_classOfAligned[row] = fillsPage || aligned == last
                                ? kLarge
                                : static_cast<std::uint8_t>(aligned - m_classes.begin());
  }
}

}  // namespace tcmalloc
