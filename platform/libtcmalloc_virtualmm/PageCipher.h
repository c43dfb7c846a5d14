#ifndef LIBTCMALLOC_VIRTUALMM_PAGECIPHER_H
#define LIBTCMALLOC_VIRTUALMM_PAGECIPHER_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

/// Encrypts what goes to one paging file, with a key that is drawn at random and never leaves
/// memory. Works in units of fixed size; what becomes of a unit depends on its place in the file
/// and on the content hash of its slice, too. It hides what is stored and detects nothing: the
/// engine's hashes do that.
///
/// Nothing here throws. A call that fails does so for want of memory as a rule, and may be made
/// again.
class PageCipher {
 public:
  virtual ~PageCipher() = default;

  /// Draws a new key. What was encrypted with the one before cannot be read any more.
  /// @return whether there is a key now
  virtual bool DrawKey() noexcept = 0;

  /// Encrypts slices of whole units, which are to lie at `offset`, one behind the other into `to`.
  /// The slices are not changed. @return false when it failed; what `to` holds is of no use then
  virtual bool Encrypt(std::uint64_t offset, const IoSlice* slices, std::size_t count,
                       char* to) noexcept = 0;

  /// Decrypts slices of whole units, which lay at `offset`, in place.
  /// @return false when it failed; what the slices hold is of no use then
  virtual bool Decrypt(std::uint64_t offset, const IoSlice* slices, std::size_t count) noexcept = 0;
};

/// Whether this build of the library has a cipher, and that one works in this process.
bool CanEncrypt() noexcept;

/// A cipher without a key.
/// @param unit  bytes of a unit, at least 16
/// @return null in a build that has none
/// @throws std::bad_alloc
std::unique_ptr<PageCipher> MakePageCipher(std::size_t unit);

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGECIPHER_H
