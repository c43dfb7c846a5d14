#ifndef LIBTCMALLOC_VIRTUALMM_BACKINGSTORE_H
#define LIBTCMALLOC_VIRTUALMM_BACKINGSTORE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

class StoreError;

/// The paging file as the pager uses it: made when first needed, whole transfers, disk space set
/// aside ahead of need, the free end cut off. Failures are noted in the StoreError.
class BackingStore {
 public:
  /// @param file   the operating system's file, not open yet
  /// @param error  receives failures; outlives the store
  BackingStore(std::unique_ptr<PagingFile> file, StoreError& error);

  /// Makes sure that the bytes from `begin` to `end` have disk space, and those before `begin` that
  /// were not asked for so far never will be. Asks for just that, or first for more, in steps that
  /// grow with the file.
  /// @param ahead  whether to ask for more
  /// @return false when the file cannot be made or the disk is full
  bool Reserve(std::uint64_t begin, std::uint64_t end, bool ahead) noexcept;

  /// What lies below has disk space, or needs none.
  std::uint64_t ReservedEnd() const { return m_reservedEnd; }

  /// Gives the disk space of bytes back that are never read or written again, where the file system
  /// can do without.
  void Discard(std::uint64_t offset, std::size_t bytes) noexcept;

  /// Whether what leaves memory can be read again: not in a child of the file's owner, which is
  /// noted.
  bool IsOurs() noexcept { return IsOurs("write the paging file"); }

  /// Reads the slices at `offset`; all of them or it fails.
  bool Read(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept;

  /// Writes the slices at `offset`; all of them or it fails.
  bool Write(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept;

  /// Tells the system that bytes will be read soon; ignored while there is no file.
  void Prefetch(std::uint64_t offset, std::size_t bytes) noexcept;

  /// Whether what lies past `usedEnd` is worth the system call that cuts the file off.
  bool WorthCutting(std::uint64_t usedEnd) const;

  /// Cuts the file off when that is worth it.
  void CutTail(std::uint64_t usedEnd) noexcept;

  /// Length of the file in bytes; 0 when it was never made.
  std::uint64_t FileBytes() const { return m_fileBytes; }

  /// The file, or before it is made the directory it is to be made in.
  const char* Path() const { return m_file->Path(); }

 private:
  friend class EngineChecker;
  enum class Direction { kRead, kWrite };

  bool IsOurs(const char* operation) noexcept;
  bool Open(const char* operation) noexcept;
  bool Transfer(Direction direction, std::uint64_t offset, const IoSlice* slices,
                std::size_t count) noexcept;

  std::unique_ptr<PagingFile> m_file;
  StoreError& m_error;
  bool m_open = false;              // whether the file was made
  bool m_canReserve = true;         // whether the file system sets space aside
  bool m_canDiscard = true;         // whether it takes space back from within a file
  std::uint64_t m_fileBytes = 0;    // length of the file
  std::uint64_t m_reservedEnd = 0;  // see ReservedEnd
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_BACKINGSTORE_H
