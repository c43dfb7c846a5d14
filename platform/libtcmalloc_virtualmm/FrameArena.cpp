// Chunks are numbered from 0; a frame number is chunk * 512 + place. Of a chunk's number there is
// in three arrays what each search reads: where its memory is (m_origins), how many frames are free
// (m_freeCounts), and all else (m_chunks). Between two calls
//
//     m_freeCounts    is freeCount, the number of bits set in `free`, for a chunk of shared use;
//                     0 for a chunk of one long run and in a gap, so no search takes from there
//     m_emptyChunks   is 0 or 1
//     Frame::count    is above 0 in the first frame of a run and 0 in all others
//
// A long run goes on beyond the numbers of its chunk, which belong to the next one. Only its first
// frame is ever named.

#include "libtcmalloc_virtualmm/FrameArena.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "libtcmalloc_virtualmm/ObjectGuard.h"
#include "libtcmalloc_virtualmm/PageMemory.h"

namespace tcmalloc {

namespace {

// So that no frame number reaches kNoFrame.
constexpr std::uint32_t kMaxChunks = kNoFrame / FrameArena::kChunkFrames;

}  // namespace

FrameArena::~FrameArena() {
  for (std::uint32_t chunk = 0; chunk < m_chunkEnd; ++chunk) {
    if (m_chunks[chunk] != nullptr) {
      Unmap(chunk);
    }
  }
  LIBTCMALLOC_ASSERT(m_mappedFrames == 0);
}

/// Single frames: the lowest chunk with a free one, found from m_firstVacant on, below which there
/// is none. Runs: the highest chunk whose bits have one long enough; m_freeCounts spares the look
/// at the bits of chunks that cannot. A chunk of one long run counts no free frames there and is
/// passed over. A run of more than a chunk is never found here: its chunk leaves with it.
/// @param exceptChunk  the chunk that a compaction empties, which its spans must not move into
std::uint32_t FrameArena::Allocate(std::uint32_t count, std::uint32_t exceptChunk) noexcept {
  LIBTCMALLOC_ASSERT(count > 0 && count <= Frame::kMaxCount);
  if (count == 1) {
    while (m_firstVacant < m_chunkEnd && m_freeCounts[m_firstVacant] == 0) {
      ++m_firstVacant;
    }
    for (std::uint32_t chunk = m_firstVacant; chunk < m_chunkEnd; ++chunk) {
      if (m_freeCounts[chunk] > 0 && chunk != exceptChunk) {
        return TakeFrom(chunk, m_chunks[chunk]->free.NextFree(0), 1);
      }
    }
    return kNoFrame;
  }
  if (count > kChunkFrames) {
    return kNoFrame;
  }
  for (std::uint32_t chunk = m_chunkEnd; chunk-- > m_firstVacant;) {
    if (m_freeCounts[chunk] >= count && chunk != exceptChunk) {
      std::uint32_t longest = 0;
      const std::uint32_t place = m_chunks[chunk]->free.Find(count, longest);
      if (place != BitRuns<kChunkFrames>::kNone) {
        return TakeFrom(chunk, place, count);
      }
    }
  }
  return kNoFrame;
}

/// Marks a run as in use and resets its descriptor. Only the first frame of a run has a count,
/// which is how the runs of a chunk are found one after the other.
std::uint32_t FrameArena::TakeFrom(std::uint32_t chunk, std::uint32_t place, std::uint32_t count) {
  Chunk& c = *m_chunks[chunk];
  LIBTCMALLOC_ASSERT(count <= c.freeCount && place + count <= c.frameCount);
  LIBTCMALLOC_ASSERT(!c.Shared() || c.free.AreAll(place, count, true));
  LIBTCMALLOC_ASSERT(c.frames[place].count == 0);
  if (c.Shared()) {
    c.free.Mark(place, count, false);
    m_emptyChunks -= c.freeCount == kChunkFrames ? 1 : 0;
  }
  c.freeCount -= count;
  m_freeCounts[chunk] = c.freeCount;
  m_usedFrames += count;
  c.frames[place] = Frame{};
  c.frames[place].count = count & Frame::kMaxCount;
  // Release hid the frames; who puts objects there hides those again.
  const std::uint32_t frame = chunk * kChunkFrames + place;
  LIBTCMALLOC_ASSERT(m_usedFrames <= m_mappedFrames);
  LIBTCMALLOC_ASSERT(reinterpret_cast<std::uintptr_t>(Address(frame)) % (1U << kFrameShift) == 0);
  ObjectGuard::Show(Address(frame), static_cast<std::size_t>(count) << kFrameShift);
  return frame;
}

/// Three steps, of which the second changes nothing before all of it is there:
///  1. Take the lowest number without a chunk, so that numbers stay small and the tables short.
///     Without one make the tables larger, which is kept if step 2 fails.
///  2. Obtain the memory: the record, its descriptors, the frames themselves. A long run is asked
///     for to the frame, and has one descriptor.
///  3. Enter the chunk, wholly free, and take the run from its start as from any other chunk.
/// Cost: O(chunks), and that of mapping memory, which is far more.
std::uint32_t FrameArena::AllocateInNewChunk(std::uint32_t count) noexcept {
  LIBTCMALLOC_ASSERT(count > 0 && count <= Frame::kMaxCount);
  // Step 1.
  std::uint32_t chunk = 0;
  while (chunk < m_chunkEnd && m_chunks[chunk] != nullptr) {
    ++chunk;
  }
  if (chunk == m_chunkCapacity && !GrowTable()) {
    return kNoFrame;
  }
  // Step 2.
  const bool shared = count <= kChunkFrames;
  const std::uint32_t frameCount = shared ? kChunkFrames : count;
  if (std::uint64_t{frameCount} << kFrameShift > std::numeric_limits<std::size_t>::max()) {
    return kNoFrame;
  }
  std::unique_ptr<Chunk> made(new (std::nothrow) Chunk);
  if (made == nullptr) {
    return kNoFrame;
  }
  made->frames.reset(new (std::nothrow) Frame[shared ? kChunkFrames : 1]());
  if (made->frames == nullptr) {
    return kNoFrame;
  }
  made->base = MapPageMemory(static_cast<std::size_t>(frameCount) << kFrameShift, m_hugePages);
  if (made->base == nullptr) {
    return kNoFrame;
  }
  // Step 3.
  made->frameCount = frameCount;
  made->freeCount = frameCount;
  made->free.Mark(0, kChunkFrames, true);
  // Frame numbers go through all chunks: the origin lies so far before the chunk's memory that
  // frame << kFrameShift can be added without taking the place in the chunk out first. It may wrap
  // around, and so does the sum.
  m_origins[chunk] = reinterpret_cast<std::uintptr_t>(made->base) -
                     (static_cast<std::uintptr_t>(chunk) * kChunkFrames << kFrameShift);
  m_chunks[chunk] = std::move(made);
  m_chunkEnd = std::max(m_chunkEnd, chunk + 1);
  m_mappedFrames += frameCount;
  m_emptyChunks += shared ? 1 : 0;
  m_firstVacant = std::min(m_firstVacant, chunk);
  return TakeFrom(chunk, 0, count);
}

std::uint64_t FrameArena::RecordBytes() const {
  std::uint64_t bytes =
      m_chunkCapacity * (sizeof m_origins[0] + sizeof m_chunks[0] + sizeof m_freeCounts[0]);
  for (std::uint32_t chunk = 0; chunk < m_chunkEnd; ++chunk) {
    if (m_chunks[chunk] != nullptr) {
      bytes += sizeof(Chunk) + (m_chunks[chunk]->Shared() ? kChunkFrames : 1) * sizeof(Frame);
    }
  }
  return bytes;
}

/// One empty chunk is kept: a store that goes to and fro over the end of a chunk does not ask the
/// system each time. A second one goes back, and so does a chunk of one long run, which nothing
/// else could use. With the chunk `first` is gone, so that its count is read before.
void FrameArena::Release(std::uint32_t frame) noexcept {
  LIBTCMALLOC_ASSERT(IsMapped(frame));
  const std::uint32_t chunk = frame / kChunkFrames;
  Chunk& c = *m_chunks[chunk];
  Frame& first = (*this)[frame];
  const std::uint32_t count = first.count;
  LIBTCMALLOC_ASSERT(count > 0 && count <= c.frameCount - c.freeCount && count <= m_usedFrames);
  LIBTCMALLOC_ASSERT(!c.Shared() || c.free.AreAll(frame % kChunkFrames, count, false));
  first.count = 0;
  m_usedFrames -= count;
  c.freeCount += count;
  if (!c.Shared()) {
    LIBTCMALLOC_ASSERT(c.freeCount == c.frameCount);
    Unmap(chunk);
    return;
  }
  ObjectGuard::Hide(Address(frame), static_cast<std::size_t>(count) << kFrameShift);
  c.free.Mark(frame % kChunkFrames, count, true);
  m_freeCounts[chunk] = c.freeCount;
  m_firstVacant = std::min(m_firstVacant, chunk);
  if (c.freeCount == kChunkFrames && ++m_emptyChunks > 1) {
    Unmap(chunk);
    --m_emptyChunks;
  }
}

/// Cost: O(chunks) when there is one, else constant.
bool FrameArena::ReleaseEmptyChunk() noexcept {
  for (std::uint32_t chunk = 0; m_emptyChunks > 0 && chunk < m_chunkEnd; ++chunk) {
    if (m_freeCounts[chunk] == kChunkFrames) {
      LIBTCMALLOC_ASSERT(m_chunks[chunk]->free.AreAll(0, kChunkFrames, true));
      Unmap(chunk);
      --m_emptyChunks;
      return true;
    }
  }
  return false;
}

/// Gives a chunk's memory back and leaves a gap in the numbers, which the next new chunk fills:
/// the other chunks keep theirs, as page entries have them. m_emptyChunks is the caller's.
void FrameArena::Unmap(std::uint32_t chunk) noexcept {
  const Chunk& c = *m_chunks[chunk];
  LIBTCMALLOC_ASSERT(c.frameCount <= m_mappedFrames);
  const std::size_t bytes = static_cast<std::size_t>(c.frameCount) << kFrameShift;
  m_mappedFrames -= c.frameCount;
  ObjectGuard::Show(c.base, bytes);  // the addresses may be somebody else's next
  UnmapPageMemory(c.base, bytes);
  m_chunks[chunk].reset();
  m_freeCounts[chunk] = 0;
}

/// Doubles the three tables by chunk, all of them or none. The first ones have room for 32 MiB of
/// frames; doubling ends below kMaxChunks, at 8 TiB. @return false without memory
bool FrameArena::GrowTable() noexcept {
  const std::uint32_t capacity = std::max(2 * m_chunkCapacity, 16U);
  if (capacity > kMaxChunks) {
    return false;
  }
  std::unique_ptr<std::uintptr_t[]> origins(new (std::nothrow) std::uintptr_t[capacity]());
  std::unique_ptr<std::unique_ptr<Chunk>[]> chunks(new (std::nothrow)
                                                       std::unique_ptr<Chunk>[capacity]);
  std::unique_ptr<std::uint32_t[]> freeCounts(new (std::nothrow) std::uint32_t[capacity]());
  if (origins == nullptr || chunks == nullptr || freeCounts == nullptr) {
    return false;
  }
  std::copy_n(m_origins.get(), m_chunkCapacity, origins.get());
  std::move(m_chunks.get(), m_chunks.get() + m_chunkCapacity, chunks.get());
  std::copy_n(m_freeCounts.get(), m_chunkCapacity, freeCounts.get());
  m_origins = std::move(origins);
  m_chunks = std::move(chunks);
  m_freeCounts = std::move(freeCounts);
  m_chunkCapacity = capacity;
  return true;
}

}  // namespace tcmalloc
