#ifndef LIBTCMALLOC_VIRTUALMM_FRAMEARENA_H
#define LIBTCMALLOC_VIRTUALMM_FRAMEARENA_H

#include <cstdint>
#include <memory>

#include "libtcmalloc_virtualmm/BitRuns.h"
#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

constexpr std::uint32_t kNoFrame = ~0U;

/// What only a span in memory needs. The first frame of a span's run describes it.
struct Frame {
  enum class Queue : std::uint32_t { kNone, kSmall, kMain };

  static constexpr std::uint32_t kMaxCount = (1U << 29) - 1;

  std::uint64_t hash;  ///< hash of the image in the paging file, if it has one
  std::uint32_t page;  ///< first page of the span held

  std::uint32_t count : 29;  ///< frames of the run; 0 in a frame that starts no run
  Queue queue : 2;           ///< the replacement queue it stands in

  std::uint32_t older;  ///< next frame of its replacement queue, towards eviction
  std::uint32_t newer;  ///< next frame of its replacement queue, away from eviction

  std::uint32_t pins;  ///< large object: its pin count
};

static_assert(sizeof(Frame) <= 32);

/// The memory that spans live in: frames of 4 KiB, taken in runs from chunks of 512. The frame does
/// not change with the page size, so an address is found with constant shifts.
///
/// A frame number is chunk * 512 + place, so the hot path finds an address with one load. Single
/// frames are taken from the lowest chunk and longer runs from the highest, which keeps them from
/// breaking each other up; a run of more than 512 frames is a chunk of its own. Chunks go back to
/// the operating system when they are empty, but for one that is kept for the next need.
class FrameArena {
 public:
  static constexpr std::uint32_t kChunkFrames = 512;
  static constexpr std::uint32_t kFrameShift = 12;  // log2 of a frame's bytes

  /// @param hugePages  whether chunks are to be huge pages: faster, but none is there in part
  explicit FrameArena(bool hugePages) : m_hugePages(hugePages) {}
  ~FrameArena();
  FrameArena(const FrameArena&) = delete;
  FrameArena& operator=(const FrameArena&) = delete;

  /// The address of a frame.
  char* Address(std::uint32_t frame) const {
    LIBTCMALLOC_ASSERT(IsMapped(frame));
    return reinterpret_cast<char*>(  // NOLINT(performance-no-int-to-ptr): see m_origins
        m_origins[frame / kChunkFrames] + (static_cast<std::uintptr_t>(frame) << kFrameShift));
  }
  Frame& operator[](std::uint32_t frame) {
    LIBTCMALLOC_ASSERT(IsMapped(frame));
    return m_chunks[frame / kChunkFrames]->frames[frame % kChunkFrames];
  }

  /// Takes a run of `count` frames from the chunks there are, none of them from `exceptChunk`.
  /// @return its first frame, whose descriptor is reset, or kNoFrame
  std::uint32_t Allocate(std::uint32_t count, std::uint32_t exceptChunk = kNoFrame) noexcept;

  /// Takes a run of `count` frames from a new chunk.
  /// @return as Allocate; kNoFrame when the operating system has no memory
  std::uint32_t AllocateInNewChunk(std::uint32_t count) noexcept;

  /// Gives the run that starts at `frame` back.
  void Release(std::uint32_t frame) noexcept;

  /// Gives the chunk that is kept empty back to the operating system. @return whether there was one
  bool ReleaseEmptyChunk() noexcept;

  /// The chunk of shared use whose evacuation costs least: the one with the fewest frames in use,
  /// but not an empty or a full one; kNoFrame when there is none.
  /// @param isMovable  tells whether the run at a frame may be moved
  template <typename Predicate>
  std::uint32_t SparsestChunk(Predicate isMovable) const;

  /// Calls visit(frame) for the first frame of every run in use, in one chunk or in all.
  template <typename Visitor>
  void ForEachRun(Visitor visit) const;
  template <typename Visitor>
  void ForEachRunInChunk(std::uint32_t chunk, Visitor visit) const;

  /// From the next chunk on, whether chunks are to be huge pages.
  void SetHugePages(bool hugePages) { m_hugePages = hugePages; }

  /// Bytes of memory beside the frames: what describes them.
  std::uint64_t RecordBytes() const;

  std::uint64_t UsedFrames() const { return m_usedFrames; }
  std::uint64_t MappedFrames() const { return m_mappedFrames; }

 private:
  friend class EngineChecker;
  struct Chunk {
    char* base = nullptr;             // memory of the frames
    std::uint32_t frameCount = 0;     // frames mapped: kChunkFrames, or those of one long run
    std::uint32_t freeCount = 0;      // frames not in use
    BitRuns<kChunkFrames> free;       // the frames not in use; not kept for one long run
    std::unique_ptr<Frame[]> frames;  // descriptors; a single one for one long run
    bool Shared() const { return frameCount == kChunkFrames; }
  };

  bool IsMapped(std::uint32_t frame) const {
    return frame / kChunkFrames < m_chunkEnd && m_chunks[frame / kChunkFrames] != nullptr;
  }
  bool GrowTable() noexcept;
  void Unmap(std::uint32_t chunk) noexcept;
  std::uint32_t TakeFrom(std::uint32_t chunk, std::uint32_t place, std::uint32_t count);

  bool m_hugePages;                                    // whether chunks are to be huge pages
  std::unique_ptr<std::uintptr_t[]> m_origins;         // per chunk: where frame 0 would be, Address
  std::unique_ptr<std::unique_ptr<Chunk>[]> m_chunks;  // per chunk: all else of it; null in a gap
  std::unique_ptr<std::uint32_t[]> m_freeCounts;       // per chunk: free frames, for the search
  std::uint32_t m_chunkEnd = 0;                        // chunk numbers given out
  std::uint32_t m_chunkCapacity = 0;                   // chunks that the tables can hold
  std::uint32_t m_firstVacant = 0;                     // no chunk below has a free frame
  std::uint32_t m_emptyChunks = 0;   // chunks of shared use without a frame in use
  std::uint64_t m_usedFrames = 0;    // frames in runs
  std::uint64_t m_mappedFrames = 0;  // frames in chunks
};

template <typename Visitor>
void FrameArena::ForEachRunInChunk(std::uint32_t chunk, Visitor visit) const {
  const Chunk& c = *m_chunks[chunk];
  if (!c.Shared()) {
    visit(chunk * kChunkFrames);
    return;
  }
  for (std::uint32_t place = c.free.NextTaken(0); place < kChunkFrames;) {
    // Found out first: the visit may release the run, and with the last one the chunk.
    const std::uint32_t next = c.free.NextTaken(place + c.frames[place].count);
    visit(chunk * kChunkFrames + place);
    place = next;
  }
}

template <typename Visitor>
void FrameArena::ForEachRun(Visitor visit) const {
  for (std::uint32_t chunk = 0; chunk < m_chunkEnd; ++chunk) {
    if (m_chunks[chunk] != nullptr) {
      ForEachRunInChunk(chunk, visit);
    }
  }
}

template <typename Predicate>
std::uint32_t FrameArena::SparsestChunk(Predicate isMovable) const {
  std::uint32_t best = kNoFrame;
  std::uint32_t bestFree = 0;
  for (std::uint32_t chunk = 0; chunk < m_chunkEnd; ++chunk) {
    if (m_chunks[chunk] == nullptr || !m_chunks[chunk]->Shared()) {
      continue;
    }
    const std::uint32_t free = m_freeCounts[chunk];
    if (free <= bestFree || free == kChunkFrames) {
      continue;
    }
    bool movable = true;
    ForEachRunInChunk(chunk, [&](std::uint32_t frame) { movable = movable && isMovable(frame); });
    if (movable) {
      best = chunk;
      bestFree = free;
    }
  }
  return best;
}

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_FRAMEARENA_H
