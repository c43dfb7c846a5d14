#include "libtcmalloc_virtualmm/EncryptedPagingFile.h"

#include <algorithm>
#include <cerrno>
#include <new>

#include "libtcmalloc_virtualmm/EngineAssert.h"

namespace tcmalloc {

namespace {

/// Copies to `part` what of the slices lies in `bytes` bytes after the first `skip`, at most
/// kMaxSlices slices. @return the number of slices in `part`
std::size_t CutOut(const IoSlice* slices, std::size_t count, std::size_t skip, std::size_t bytes,
                   std::array<IoSlice, PagingFile::kMaxSlices>& part) {
  std::size_t parts = 0;
  for (const IoSlice* slice = slices; slice != slices + count && bytes > 0; ++slice) {
    const std::size_t skipped = std::min(skip, slice->size);
    const std::size_t taken = std::min(bytes, slice->size - skipped);
    if (taken > 0) {
      part[parts++] = {slice->data + skipped, taken, slice->contentHash};
    }
    skip -= skipped;
    bytes -= taken;
  }
  return parts;
}

std::size_t Sum(const IoSlice* slices, std::size_t count) {
  std::size_t bytes = 0;
  for (const IoSlice* slice = slices; slice != slices + count; ++slice) {
    bytes += slice->size;
  }
  return bytes;
}

}  // namespace

EncryptedPagingFile::EncryptedPagingFile(std::unique_ptr<PagingFile> file,
                                         std::unique_ptr<PageCipher> cipher, std::size_t unit)
    : m_file(std::move(file)), m_cipher(std::move(cipher)), m_unit(unit) {
  LIBTCMALLOC_ASSERT(unit > 0 && unit <= kBufferBytes);
}

/// The key is drawn anew at every try: a child made by fork after one that failed has lost the key
/// and is still to make a file of its own.
int EncryptedPagingFile::Open() {
  if (m_buffer == nullptr) {
    m_buffer.reset(new (std::nothrow) char[kBufferBytes]);
  }
  if (m_buffer == nullptr) {
    return ENOMEM;
  }
  if (m_cipher == nullptr || !m_cipher->DrawKey()) {
    return kCipherFailed;
  }
  return m_file->Open();
}

/// Reads into the slices and decrypts there:
///  1. Let the file move what it moves. A part of a unit cannot be decrypted, so the rest of the
///     last one is read as well.
///  2. If that fails, the whole units before it are the result; the caller comes back for the rest
///     and is told then.
///  3. Decrypt the whole units.
std::int64_t EncryptedPagingFile::ReadSome(std::uint64_t offset, const IoSlice* slices,
                                           std::size_t count) {
  LIBTCMALLOC_ASSERT(Sum(slices, count) % m_unit == 0);
  std::array<IoSlice, kMaxSlices> part;
  // Steps 1 and 2.
  std::int64_t moved = m_file->ReadSome(offset, slices, count);
  std::size_t done = moved > 0 ? static_cast<std::size_t>(moved) : 0;
  while (done % m_unit != 0 && (moved > 0 || moved == -EINTR)) {
    CutOut(slices, count, done, m_unit - done % m_unit, part);
    moved = m_file->ReadSome(offset + done, part.data(), 1);
    done += moved > 0 ? static_cast<std::size_t>(moved) : 0;
  }
  const std::size_t whole = WholeUnits(done);
  if (whole == 0) {
    return moved;
  }
  // Step 3.
  const std::size_t parts = CutOut(slices, count, 0, whole, part);
  return m_cipher->Decrypt(offset, part.data(), parts) ? static_cast<std::int64_t>(whole)
                                                       : -kCipherFailed;
}

/// Writes as many of the first bytes as the buffer holds:
///  1. Encrypt them into the buffer. The caller's memory is in use: it is read and no more.
///  2. Write the buffer until the file has taken whole units. The rest of one could not be written
///     by the next call, which would begin within it.
///  3. If that fails, the whole units before it are the result, and a part of one may be in the
///     file, as after any write that failed.
std::int64_t EncryptedPagingFile::WriteSome(std::uint64_t offset, const IoSlice* slices,
                                            std::size_t count) {
  LIBTCMALLOC_ASSERT(Sum(slices, count) % m_unit == 0);
  // Step 1.
  std::array<IoSlice, kMaxSlices> part;
  const std::size_t bytes = std::min(Sum(slices, count), WholeUnits(kBufferBytes));
  const std::size_t parts = CutOut(slices, count, 0, bytes, part);
  if (!m_cipher->Encrypt(offset, part.data(), parts, m_buffer.get())) {
    return -kCipherFailed;
  }
  // Steps 2 and 3.
  std::size_t done = 0;
  std::int64_t moved = 0;
  do {
    const IoSlice left{m_buffer.get() + done, bytes - done, 0};
    moved = m_file->WriteSome(offset + done, &left, 1);
    done += moved > 0 ? static_cast<std::size_t>(moved) : 0;
  } while (done % m_unit != 0 && (moved > 0 || moved == -EINTR));
  const std::size_t whole = WholeUnits(done);
  return whole > 0 ? static_cast<std::int64_t>(whole) : moved;
}

}  // namespace tcmalloc
