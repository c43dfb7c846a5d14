#ifndef LIBTCMALLOC_VIRTUALMM_PAGINGFILE_H
#define LIBTCMALLOC_VIRTUALMM_PAGINGFILE_H

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tcmalloc {

/// A region of memory that takes part in one transfer.
struct IoSlice {
  char* data;
  std::size_t size;
  std::uint64_t contentHash;  ///< of the image that the slice belongs to; the same at its reads
};

/// What an encrypted paging file tells in place of an errno value.
constexpr int kCipherFailed = 1 << 20;

/// The paging file as the operating system sees it: bare calls, each of which may fail or move
/// fewer bytes than asked. Errors are errno values (<cerrno>) on every system, or kCipherFailed.
///
/// The file is private: nobody else can open it, it is not inherited, and nothing of it is left
/// when the process ends, however it ends.
class PagingFile {
 public:
  virtual ~PagingFile() = default;

  /// Makes the file. @return 0 or an error; may be called again after an error
  virtual int Open() = 0;

  /// The directory before Open, the file after it, as well as the system names it.
  virtual const char* Path() const = 0;

  /// Whether this process is not the one that opened the file, but a child made by fork.
  virtual bool InForeignProcess() const = 0;

  /// Reads at `offset` into `count` slices (1 to kMaxSlices).
  /// @return bytes read, 0 at the end of the file, or a negated error
  virtual std::int64_t ReadSome(std::uint64_t offset, const IoSlice* slices, std::size_t count) = 0;

  /// Writes `count` slices (1 to kMaxSlices) at `offset`.
  /// @return bytes written, or a negated error
  virtual std::int64_t WriteSome(std::uint64_t offset, const IoSlice* slices,
                                 std::size_t count) = 0;

  /// Tells that `bytes` at `offset` will be read soon, so that the system may begin with it.
  /// Nothing comes of it where the system cannot be told.
  virtual void Prefetch(std::uint64_t /*offset*/, std::size_t /*bytes*/) {}

  /// Sets disk space aside for the bytes [begin, end) and extends the file to `end`.
  /// @return 0, EOPNOTSUPP where the file system cannot, or another error
  virtual int Reserve(std::uint64_t begin, std::uint64_t end) = 0;

  /// Gives the disk space of `bytes` at `offset` back; the file stays as long as it is.
  /// @return 0, EOPNOTSUPP where the file system cannot, or another error
  virtual int Discard(std::uint64_t /*offset*/, std::size_t /*bytes*/) { return EOPNOTSUPP; }

  /// Cuts the file off at `size` bytes. @return 0 or an error
  virtual int Truncate(std::uint64_t size) = 0;

  static constexpr std::size_t kMaxSlices = 64;
};

/// The operating system's paging file in `directory` (UTF-8; null means the current directory).
/// Nothing is made before Open.
/// @throws std::bad_alloc
std::unique_ptr<PagingFile> MakePagingFile(const char* directory);

/// Writes the system's message for an error number to `text`, cut to `size` bytes with its NUL.
void DescribeSystemError(int error, char* text, std::size_t size) noexcept;

}  // namespace tcmalloc

#endif  // LIBTCMALLOC_VIRTUALMM_PAGINGFILE_H
