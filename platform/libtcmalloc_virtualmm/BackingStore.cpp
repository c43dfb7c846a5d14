// The paging file between its first use and its end. Two lengths are kept:
//
//     m_fileBytes     the length of the file; grows with what is reserved and what is written
//     m_reservedEnd   what lies below has disk space or is never used. Where the file system sets
//                     space aside it is at most m_fileBytes; where it does not, it is a mere
//                     promise that spares the calls, and may lie beyond
//
// What the store's contents depend on (making the file, reserving, reading, writing) is noted when
// it fails and returns false. What only saves disk space or time (prefetch, discard, cutting) fails
// in silence. In a child made by fork nothing touches the file, which the parent goes on using.

#include "libtcmalloc_virtualmm/BackingStore.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "libtcmalloc_virtualmm/EngineAssert.h"
#include "libtcmalloc_virtualmm/StoreError.h"

namespace tcmalloc {

namespace {

// Space is set aside an eighth of the file at a time, within these bounds: few calls for a large
// store, little idle space for a small one.
constexpr std::uint64_t kMinReserveStep = 1U << 20;
constexpr std::uint64_t kMaxReserveStep = 64U << 20;

// A free end of this size, and a quarter of the file, is cut off. What is cut off has to be set
// aside again when the store grows, so a store that shrinks and grows by less does neither.
constexpr std::uint64_t kMinCut = 16U << 20;

constexpr const char* kForeign = "the file belongs to the parent process";

const char* Verb(bool reading) {
  return reading ? "read the paging file" : "write the paging file";
}

}  // namespace

BackingStore::BackingStore(std::unique_ptr<PagingFile> file, StoreError& error)
    : m_file(std::move(file)), m_error(error) {}

bool BackingStore::IsOurs(const char* operation) noexcept {
  if (m_file->InForeignProcess()) {
    m_error.NoteReason(operation, Path(), kForeign);
    return false;
  }
  return true;
}

/// Makes the file when it is first needed. A try that fails is made again at the next need.
bool BackingStore::Open(const char* operation) noexcept {
  if (!IsOurs(operation)) {
    return false;
  }
  if (!m_open) {
    if (const int error = m_file->Open(); error != 0) {
      m_error.NoteSystem("make the paging file in", Path(), error);
      return false;
    }
    m_open = true;
  }
  return true;
}

/// Three steps, when the space is not there already:
///  1. Make the file.
///  2. Where the file system sets nothing aside (EOPNOTSUPP, which it says at the first call),
///     everything counts as reserved, and a full disk shows when a page is written.
///  3. Ask for a step more than needed, then for just what is needed: a disk that is nearly full
///     serves the store up to its last byte. Only what is beyond m_reservedEnd is asked for.
/// On failure m_reservedEnd stays: the next need asks again, by when the disk may have room.
bool BackingStore::Reserve(std::uint64_t begin, std::uint64_t end, bool ahead) noexcept {
  if (end <= m_reservedEnd) {
    return true;
  }
  // Step 1.
  constexpr const char* kOperation = "set disk space aside in the paging file";
  if (!Open(kOperation)) {
    return false;
  }
  // Step 2.
  if (!m_canReserve) {
    m_reservedEnd = end;
    return true;
  }
  // Step 3. Without `ahead` both targets are the same, and a full disk is asked twice.
  LIBTCMALLOC_ASSERT(m_open && m_reservedEnd < end && begin < end);
  begin = std::max(begin, m_reservedEnd);
  const std::uint64_t step =
      ahead ? std::clamp(end / 8, kMinReserveStep, kMaxReserveStep) : std::uint64_t{0};
  int error = 0;
  for (const std::uint64_t target : {end + step, end}) {
    do {
      error = m_file->Reserve(begin, target);
    } while (error == EINTR);
    if (error == 0 || error == EOPNOTSUPP) {
      m_canReserve = error == 0;
      m_reservedEnd = target;
      m_fileBytes = error == 0 ? std::max(m_fileBytes, target) : m_fileBytes;
      return true;
    }
  }
  m_error.NoteSystem(kOperation, Path(), error);
  return false;
}

void BackingStore::Discard(std::uint64_t offset, std::size_t bytes) noexcept {
  if (m_canDiscard && offset < m_fileBytes && !m_file->InForeignProcess()) {
    // Where space cannot be had back the file keeps it; nothing depends on it. EOPNOTSUPP is
    // for good; after another error the next discard is tried.
    m_canDiscard = m_file->Discard(offset, bytes) != EOPNOTSUPP;
  }
}

bool BackingStore::Read(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept {
  return Transfer(Direction::kRead, offset, slices, count);
}

bool BackingStore::Write(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept {
  return Transfer(Direction::kWrite, offset, slices, count);
}

/// Moves all bytes or fails, in as many rounds as it takes: the system may move some of them at a
/// time, takes at most kMaxSlices slices, and may be interrupted (EINTR).
///  1. Fill `left` up with slices. It is a copy, for the caller's are not to be changed.
///  2. Move what the system takes.
///  3. Interrupted before the first byte: again. An error or no byte: a failure. To try a write of
///     no byte again would not end on a full disk.
///  4. Drop the slices that are done and shorten the one it stopped in, which may be anywhere.
/// A transfer that fails may have moved a part: the memory read into is of no use then, and the
/// place in the file may be torn, so the caller has to take it that there is no image any more.
bool BackingStore::Transfer(Direction direction, std::uint64_t offset, const IoSlice* slices,
                            std::size_t count) noexcept {
  const bool reading = direction == Direction::kRead;
  LIBTCMALLOC_ASSERT(count > 0);
  if (!Open(Verb(reading))) {
    return false;
  }
  std::array<IoSlice, PagingFile::kMaxSlices> left;
  std::size_t next = 0;  // slices taken over into `left` so far
  std::size_t held = 0;  // of these, slices not done yet, at the front of `left`
  while (next < count || held > 0) {
    // Step 1.
    while (next < count && held < left.size()) {
      left[held++] = slices[next++];
    }
    // Step 2.
    LIBTCMALLOC_ASSERT(left[0].data != nullptr && left[0].size > 0);
    const std::int64_t moved = reading ? m_file->ReadSome(offset, left.data(), held)
                                       : m_file->WriteSome(offset, left.data(), held);
    // Step 3.
    if (moved == -EINTR) {
      continue;
    }
    if (moved <= 0) {
      if (moved < 0) {
        m_error.NoteSystem(Verb(reading), Path(), static_cast<int>(-moved));
      } else {
        m_error.NoteReason(Verb(reading), Path(),
                           reading ? "the file ends too early" : "no byte was taken");
      }
      return false;
    }
    // Step 4. The file's length is noted here, so that it is right when the next round fails.
    offset += static_cast<std::uint64_t>(moved);
    if (!reading) {
      m_fileBytes = std::max(m_fileBytes, offset);
    }
    auto done = static_cast<std::size_t>(moved);
    std::size_t first = 0;
    while (first < held && done >= left[first].size) {
      done -= left[first++].size;
    }
    if (first < held) {
      left[first].data += done;
      left[first].size -= done;
    }
    std::move(left.begin() + static_cast<std::ptrdiff_t>(first),
              left.begin() + static_cast<std::ptrdiff_t>(held), left.begin());
    held -= first;
  }
  return true;
}

void BackingStore::Prefetch(std::uint64_t offset, std::size_t bytes) noexcept {
  if (m_open && !m_file->InForeignProcess()) {
    m_file->Prefetch(offset, bytes);
  }
}

/// Both conditions are needed: the first keeps small files from being cut at all, the second large
/// ones from being cut again and again for a small part of them.
bool BackingStore::WorthCutting(std::uint64_t usedEnd) const {
  const std::uint64_t tail = m_fileBytes - std::min(m_fileBytes, usedEnd);
  return tail >= kMinCut && tail >= m_fileBytes / 4;
}

void BackingStore::CutTail(std::uint64_t usedEnd) noexcept {
  if (!WorthCutting(usedEnd) || m_file->InForeignProcess()) {
    return;
  }
  // A file that cannot be cut stays as long as it is; nothing depends on it.
  LIBTCMALLOC_ASSERT(m_open && usedEnd < m_fileBytes);
  if (m_file->Truncate(usedEnd) == 0) {
    m_fileBytes = usedEnd;
    // The space went with the end of the file; what comes there again has to be reserved again.
    m_reservedEnd = std::min(m_reservedEnd, usedEnd);
  }
}

}  // namespace tcmalloc
