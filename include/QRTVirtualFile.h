#ifndef QRTVIRTUALFILE_H
#define QRTVIRTUALFILE_H

#include <climits>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "HZSStreams/HZSOutputStream.h"
#include "QRTCore/QRTAssert.h"
#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTFmFile.h"
#include "QRTCore/QRTStd.h"
#include "QRTVirtualPageItem.h"

class HZSGZIPOutputStream;
class QRTVirtualMemoryMgr;

/// A scratch file whose bytes live in a store instead of on disk: pages of one size, each a stored
/// object, of which at most one is pinned. Nothing is allocated for a stretch that was never
/// touched. The content ends with the file.
///
/// Positions and lengths are unsigned 32-bit: a file holds up to 4 GiB - 1. `seekTo`, `tell`,
/// `size` and `setLength` take and give them as they are. `seek` and `getLength`, which every
/// QRTFmFile has, give those from 2 GiB up as negative ints, to be converted to unsigned, and
/// `seek` gets there in steps of `eSeekCurrent` only, since a negative offset from the start is
/// refused.
///
/// Bytes that were skipped, not written, are zeros where `setLength` lengthened the file and
/// wherever their page was never touched. A seek past the end skips without clearing: what the rest
/// of the last page held, and pages that `reset(false)` kept, shows there.
///
/// A page comes and goes as a whole, so its size suits the way the file is read. Beyond what the
/// store holds in memory, 100 bytes at random cost 2.5 times as much with pages of 64 KiB as with
/// those of 8 KiB, and 0.74 times with 4 KiB; with all of it in memory large pages are the cheaper
/// ones, 0.75 times with 64 KiB. See docs/files.md.
///
/// In compressing mode everything given to `write` is stored in gzip format, and position, length,
/// `read` and `seek` are about the compressed bytes; QRTVirtualFileGZIPReader reads them back. From
/// the first `write` to the next `close` is one member.
///
/// Beyond what is said here the operations of QRTFmFile are about a file of the operating system
/// that a virtual file does not have: they report that it is not open. A file is used by one
/// thread at a time, together with its manager.
///
/// Errors of the manager pass through; a page that cannot be read back raises QRTIllegalStateError.
/// An interrupted `read` or `write` leaves the position behind the last byte that was moved.
class QRT_EXPORT QRTVirtualFile : public QRTFmFile {
 public:
  /// Puts what is written to it into a file, at the file's position and uncompressed.
  class QRT_EXPORT QRTVirtualFileOuputStream : public HZSOutputStream {
   public:
    /// Makes a stream without a file.
    QRTVirtualFileOuputStream();

    /// Leaves the file alone.
    ~QRTVirtualFileOuputStream() override;

    /// Binds the stream.
    /// @param file  not owned; outlives the last `write`
    void init(QRTVirtualFile& file);

    /// Stores bytes in the file.
    /// @throws QRTAssertError "QRT_ASSERT(m_vfileIo);" without a file, and what writeImpl raises
    void write(const char* data, unsigned int n) override;

    /// Does nothing.
    void flush() override;

    /// Does nothing: the file is closed by its own `close` only.
    void close() override;

   private:
    QRTVirtualFile* m_vfileIo;  // the file to write into, not owned; null without one
  };

  /// The page size of files that do not say, in bytes.
  static constexpr unsigned int kDefaultPageSize = 8192;

  /// Makes an empty file without a manager, of kDefaultPageSize. Allocates nothing.
  QRTVirtualFile();

  /// Gives the pages back to a borrowed manager, ends an owned one. Drops every error on the way.
  ~QRTVirtualFile() override;

  /// Copies bytes from the position on and moves it behind them.
  /// @param data  room for `n` bytes; null only with `n` 0
  /// @param n     bytes wanted
  /// @return bytes copied, fewer than `n` at the end of the file only
  /// @throws QRTAssertError for null data, or without a manager when there is something to read;
  ///         what the manager raises
  int read(void* data, unsigned int n) override;

  /// Writes bytes at the position and moves it behind them, growing the file as needed; in
  /// compressing mode hands them to the compressor, which stores its output when it chooses to.
  /// @param data  the bytes; null only with `n` 0
  /// @param n     how many
  /// @return `n`
  /// @throws QRTAssertError for null data or without a manager; QRTOutOfMemoryError, with the file
  ///         unchanged, when it would end past 4 GiB - 1; what the manager and the compressor raise
  int write(const void* data, unsigned int n) override;

  /// Moves the position. Past the end it lengthens the file, without allocating or clearing.
  /// @return the new position; -1, with nothing changed, when that would be below 0 or past
  ///         4 GiB - 2: the position 4 GiB - 1 looks like a failure. Only `seekTo` and a write get
  ///         there
  int seek(int offset, seekorigin origin) override;

  /// Moves the position to any place from 0 to 4 GiB - 1. Past the end it lengthens the file, as
  /// `seek` does.
  /// @param position  bytes from the start
  /// Cost: O(1), never touches the disk
  void seekTo(unsigned int position);

  /// @return the position, in bytes from the start
  unsigned int tell() const noexcept { return m_position; }

  // A file of the operating system is opened by these; a virtual file by those below.
  using QRTFmFile::open;

  /// Ends the compressor's member and unpins. Content, position and length stay; the file can be
  /// used on.
  /// @return 1
  /// @throws what comes up when the end of the member is stored; QRTIllegalStateError when an
  ///         earlier `write` lost the member. The file is closed all the same, so that the next
  ///         `close` has nothing to report
  int close() override;

  /// @return bytes in the file, from 2 GiB up as a negative int
  int getLength() override;

  /// @return bytes in the file
  unsigned int size() const noexcept { return m_length; }

  /// Cuts the file off or lengthens it. Pages that lie wholly behind the new end go back to the
  /// manager, those that `reset(false)` kept among them; what is added reads as zeros and takes no
  /// pages before it is touched. A position behind the new end moves to the end, any other stays.
  /// On a compressing file it counts compressed bytes, as everything does, and is for the time
  /// between members: cutting back to where a member ended takes back those behind it.
  /// @param length  bytes that the file shall have
  /// @throws QRTIllegalStateError while a gzip member is open (`close` first), or when the last
  ///         page of the old content, whose rest is cleared, cannot be read back; the file is then
  ///         as it was
  /// Cost: O(pages given back); lengthening clears up to a page and may read it from the disk
  void setLength(unsigned int length);

  /// Opens the file in a manager that the host keeps. A file that has a manager is reset first and
  /// gives its pages up; a manager of its own is ended.
  /// @param memMgr    not owned; outlives the file, or its next `open`
  /// @param pageSize  bytes of a page; 0 means kDefaultPageSize. Large ones are for files that are
  ///                  read in order, or that fit into memory
  /// @param compress  true switches compressing on; false leaves it as it is
  virtual void open(QRTVirtualMemoryMgr* memMgr, unsigned int, unsigned int pageSize,
                    bool compress);

  /// Opens the file in a manager of its own, by the `open` above.
  /// @param memorySize  bytes to hold in memory; 0 means the manager's default
  /// @param pageSize    bytes of a page; 0 means kDefaultPageSize
  /// @param compress    true switches compressing on; false leaves it as it is
  /// @throws QRTOutOfMemoryError, QRTStdExceptionError when the manager cannot be made; the file is
  ///         as it was. What an override of the other `open` raises; a manager that it took by then
  ///         stays the file's own
  virtual void open(unsigned int memorySize, unsigned int, unsigned int pageSize, bool compress);

  /// The same for sizes of every other integer type, so that the literal 0 is a size, here as
  /// everywhere, and not perhaps a null manager. Integers of up to 32 bits are converted as they
  /// always were.
  /// @throws QRTAssertError for a 64-bit size that is negative or past 4 GiB - 1; the file is as it
  ///         was
  template <class Integer, std::enable_if_t<std::is_integral<Integer>::value, int> = 0>
  void open(Integer memorySize, unsigned int unused, unsigned int pageSize, bool compress) {
    QRT_ASSERT_NAMED(sizeof(Integer) <= sizeof(unsigned int) ||
                         static_cast<unsigned long long>(memorySize) <= UINT_MAX,
                     "a memory size is 0 to 4294967295 bytes");
    open(static_cast<unsigned int>(memorySize), unused, pageSize, compress);
  }

  /// Closes the file and makes it empty. A member that `close` cannot end, or that a `write` has
  /// lost, is dropped without an error, since it would be gone in any case.
  /// @param giveUpPages  whether the pages go as well; else they are used again
  virtual void reset(bool giveUpPages);

  /// Unpins and gives every page back to the manager. Position and length stay. A member that a
  /// `write` has lost is dropped, and `close` does not report it any more.
  virtual void dispose();

 protected:
  /// Stores bytes at the position, uncompressed, and moves it behind them.
  /// @return `n`
  /// @throws as `write`
  virtual unsigned int writeImpl(const void* data, unsigned int n);

 private:
  QRTVirtualPageItem& getPage(unsigned int position);
  QRTVirtualPageItem& getCurrentPage();
  char* getCurrentBuffer();
  void dismissBuffer(unsigned int position);
  bool inSamePage(unsigned int a, unsigned int b);
  void clearBehindEnd(unsigned int length);
  void freePagesFrom(std::size_t index);

  QRTVirtualFileOuputStream m_outStream;       // the compressor's sink; bound while compressing
  HZSGZIPOutputStream* m_gzipStream;           // the compressor of the current member, owned
  bool m_compress;                             // whether `write` compresses
  QRTStd::vector<QRTVirtualPageItem> m_pages;  // page i holds the bytes from i * m_pageSize on
  QRTVirtualMemoryMgr* m_memMgr;               // holds the pages; null until `open`
  unsigned int m_position;                     // where the next byte is read or written
  unsigned int m_length;                       // bytes in the file, never below m_position
  unsigned int m_pageSize;                     // bytes of a page
  char* m_buffer;                              // the page of m_position while it is pinned, or null
  bool m_ownsMemMgr;                           // whether the file made the manager itself
};

#endif  // QRTVIRTUALFILE_H
