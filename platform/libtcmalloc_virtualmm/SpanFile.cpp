#include "libtcmalloc_virtualmm/SpanFile.h"

#include <array>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/PageHash.h"

namespace tcmalloc {

// The frames of one transfer lie anywhere in memory, its pages side by side in the file: a slice
// for each span brings the two together in one call to the system.

std::uint32_t SpanFile::Read(const MovingSpan* spans, std::size_t count) noexcept {
  std::array<IoSlice, PagingFile::kMaxSlices> slices;
  const std::uint32_t pages = CollectSlices(spans, count, slices.data());
  LIBTCMALLOC_ASSERT(Offset(spans[0].page + pages) <= m_store.FileBytes());
  return m_store.Read(Offset(spans[0].page), slices.data(), count) ? pages : 0;
}

std::uint32_t SpanFile::Write(const MovingSpan* spans, std::size_t count) noexcept {
  std::array<IoSlice, PagingFile::kMaxSlices> slices;
  const std::uint32_t pages = CollectSlices(spans, count, slices.data());
  return m_store.Write(Offset(spans[0].page), slices.data(), count) ? pages : 0;
}

std::uint64_t SpanFile::Hash(const MovingSpan& span) const noexcept {
  LIBTCMALLOC_ASSERT(span.frame != kNoFrame && span.pages > 0);
  return PageHash(m_arena.Address(span.frame), Bytes(span.pages), span.page);
}

/// Fills a slice for each span. @return the pages of all of them
std::uint32_t SpanFile::CollectSlices(const MovingSpan* spans, std::size_t count,
                                      IoSlice* slices) const {
  std::uint32_t pages = 0;
  LIBTCMALLOC_ASSERT(count > 0 && count <= PagingFile::kMaxSlices);
  for (std::size_t i = 0; i < count; ++i) {
    LIBTCMALLOC_ASSERT(spans[i].page == spans[0].page + pages);
    slices[i] = {m_arena.Address(spans[i].frame), Bytes(spans[i].pages), spans[i].hash};
    pages += spans[i].pages;
  }
  return pages;
}

}  // namespace tcmalloc
