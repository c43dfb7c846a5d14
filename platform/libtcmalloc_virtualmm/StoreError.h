#ifndef LIBTCMALLOC_VIRTUALMM_STOREERROR_H
#define LIBTCMALLOC_VIRTUALMM_STOREERROR_H

#include <cstddef>
#include <cstdint>

namespace tcmalloc {

/// The engine's last failure as a sentence a user can act on. It keeps its text in place, so that
/// it can also tell that memory is exhausted.
///
/// A failure is noted where it happens (NoteSystem, NoteReason) and completed by the operation
/// that gives up because of it (Complete), which knows what was asked for.
class StoreError {
 public:
  /// Notes a failed system call on the paging file.
  /// @param operation  what was tried, for example "write the paging file"
  /// @param path       file or directory
  /// @param error      errno value, or kCipherFailed
  void NoteSystem(const char* operation, const char* path, int error) noexcept;

  /// Notes a failure that is no system call's.
  /// @param operation  what was tried
  /// @param path       file or directory, or null
  /// @param reason     what stood in the way
  void NoteReason(const char* operation, const char* path, const char* reason) noexcept;

  /// Notes why the object that a handle may name cannot be reached.
  void NoteObject(std::uint64_t offset, const char* reason) noexcept;

  /// Adds the figures of the request that failed.
  /// @param askedBytes   bytes asked for
  /// @param usedBytes    bytes of the budget in use
  /// @param budgetBytes  bytes of the budget
  void Complete(std::uint64_t askedBytes, std::uint64_t usedBytes,
                std::uint64_t budgetBytes) noexcept;

  /// The whole text; empty when nothing ever failed.
  const char* Text() const { return m_text; }

 private:
  char m_text[1024] = "";
  std::size_t m_noted = 0;  // length of what was noted, without the figures
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_STOREERROR_H
