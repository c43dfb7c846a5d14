#ifndef LIBTCMALLOC_VIRTUALMM_SPANFILE_H
#define LIBTCMALLOC_VIRTUALMM_SPANFILE_H

#include <cstddef>
#include <cstdint>

#include "libtcmalloc_virtualmm/BackingStore.h"
#include "libtcmalloc_virtualmm/FrameArena.h"

namespace tcmalloc {

/// A span on its way in or out.
struct MovingSpan {
  std::uint32_t frame;  ///< first of its frames
  std::uint32_t page;   ///< first of its pages
  std::uint32_t pages;  ///< number of its pages
  std::uint64_t hash;   ///< hash of its image in the file
};

/// The paging file as spans see it: a page's place is its number. Spans that lie one behind the
/// other there are read and written in one transfer, wherever their frames are.
class SpanFile {
 public:
  /// The parts outlive this.
  /// @param pageShift  log2 of the page size
  SpanFile(BackingStore& store, const FrameArena& arena, std::uint32_t pageShift)
      : m_store(store), m_arena(arena), m_pageShift(pageShift) {}

  /// The byte of the file where a page begins.
  std::uint64_t Offset(std::uint32_t page) const { return std::uint64_t{page} << m_pageShift; }
  /// Bytes of so many pages.
  std::size_t Bytes(std::uint32_t pages) const { return std::size_t{pages} << m_pageShift; }

  /// Reads or writes 1 to PagingFile::kMaxSlices spans, each beginning where the one before ends.
  /// @return the pages of all of them; 0 when the transfer failed, which is noted
  std::uint32_t Read(const MovingSpan* spans, std::size_t count) noexcept;
  std::uint32_t Write(const MovingSpan* spans, std::size_t count) noexcept;

  /// The hash of what a span's frames hold, with its page as the seed: an image that ends up at
  /// another page's place does not fit.
  std::uint64_t Hash(const MovingSpan& span) const noexcept;

 private:
  std::uint32_t CollectSlices(const MovingSpan* spans, std::size_t count, IoSlice* slices) const;

  BackingStore& m_store;
  const FrameArena& m_arena;
  std::uint32_t m_pageShift;  // log2 of the page size
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_SPANFILE_H
