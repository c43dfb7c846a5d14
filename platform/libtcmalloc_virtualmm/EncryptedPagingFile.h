#ifndef LIBTCMALLOC_VIRTUALMM_ENCRYPTEDPAGINGFILE_H
#define LIBTCMALLOC_VIRTUALMM_ENCRYPTEDPAGINGFILE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "libtcmalloc_virtualmm/PageCipher.h"
#include "libtcmalloc_virtualmm/PagingFile.h"

namespace tcmalloc {

/// A paging file whose content nobody can read but the process: encrypts on the way to another
/// paging file and decrypts on the way back. The key is drawn when the file is made.
///
/// Every transfer is of whole units, in its offset and in each of its slices, and moves whole units
/// or fails. What is written is encrypted into a buffer of the file's own, so that the caller's
/// memory stays what it is; what is read is decrypted in place.
class EncryptedPagingFile final : public PagingFile {
 public:
  /// @param file    where to write, not open yet
  /// @param cipher  null in a build that has none: then the file cannot be made
  /// @param unit    the cipher's unit in bytes, at most kBufferBytes
  EncryptedPagingFile(std::unique_ptr<PagingFile> file, std::unique_ptr<PageCipher> cipher,
                      std::size_t unit);

  int Open() override;
  const char* Path() const override { return m_file->Path(); }
  bool InForeignProcess() const override { return m_file->InForeignProcess(); }
  std::int64_t ReadSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override;
  std::int64_t WriteSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) override;
  void Prefetch(std::uint64_t offset, std::size_t bytes) override {
    m_file->Prefetch(offset, bytes);
  }
  int Reserve(std::uint64_t begin, std::uint64_t end) override {
    return m_file->Reserve(begin, end);
  }
  int Discard(std::uint64_t offset, std::size_t bytes) override {
    return m_file->Discard(offset, bytes);
  }
  int Truncate(std::uint64_t size) override { return m_file->Truncate(size); }

  /// Bytes that one call encrypts and writes: what a batch of 4 KiB pages has at most.
  static constexpr std::size_t kBufferBytes = std::size_t{64} << 10;

 private:
  std::size_t WholeUnits(std::size_t bytes) const { return bytes / m_unit * m_unit; }

  std::unique_ptr<PagingFile> m_file;    // where the encrypted bytes are
  std::unique_ptr<PageCipher> m_cipher;  // null in a build that has none
  std::size_t m_unit;                    // the cipher's unit in bytes
  std::unique_ptr<char[]> m_buffer;      // encrypted bytes on their way out; made with the file
};

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_ENCRYPTEDPAGINGFILE_H
