#ifndef QRTVIRTUALFILEGZIPREADER_H
#define QRTVIRTUALFILEGZIPREADER_H

#include <cstddef>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

class GzipDecompressor;
class QRTVirtualFile;

/// Reads back what a compressing file stored, or any other gzip stream in a virtual file: inflates
/// from the file's position on, member after member. Damage is found by the members' checksums and
/// never passes for content that is complete. Zeros from the last member to the end of the file are
/// padding; anything else behind a member that is not a member is an error that says where.
///
/// A reader takes about 100 KB besides its buffer. It reads ahead, so the file's position is its
/// own business while it is used.
class QRT_EXPORT QRTVirtualFileGZIPReader {
 public:
  static constexpr unsigned int kDefaultBufferSize = 16384;

  /// @param file        not owned, outlives the reader; what was written is closed
  /// @param bufferSize  compressed bytes to fetch at a time, at least 2
  /// @throws std::bad_alloc
  explicit QRTVirtualFileGZIPReader(QRTVirtualFile& file,
                                    unsigned int bufferSize = kDefaultBufferSize);

  /// Leaves the file alone.
  ~QRTVirtualFileGZIPReader();

  QRTVirtualFileGZIPReader(const QRTVirtualFileGZIPReader&) = delete;
  QRTVirtualFileGZIPReader& operator=(const QRTVirtualFileGZIPReader&) = delete;

  /// Gives the next bytes of content.
  /// @param data  room for `n` bytes; null only with `n` 0
  /// @param n     bytes wanted
  /// @return bytes given, fewer than `n` at the end and in front of a place where it cannot go on;
  ///         the rest of the room may have been used
  /// @throws QRTIllegalStateError when the file ends inside a member, holds something else than a
  ///         gzip stream or has trailing bytes behind it; QRTAssertError for null data; what the
  ///         file raises, after which the same bytes can be asked for again
  unsigned int read(void* data, unsigned int n);

 private:
  bool beginMember();
  bool skipPadding();
  bool fill();
  [[noreturn]] void raise(const char* problem) const;

  QRTVirtualFile& m_file;            // not owned
  GzipDecompressor* m_decompressor;  // the compression library, owned
  QRTStd::vector<char> m_input;      // compressed bytes read ahead
  std::size_t m_begin;               // first of them that is not inflated yet
  std::size_t m_end;                 // behind the last of them
  bool m_inMember;                   // whether a member has begun and not ended
  unsigned int m_memberStart;        // its position in the file
  unsigned long long m_content;      // bytes of content given so far
  const char* m_damage;              // what stopped the reader for good; null if nothing did
  bool m_behindMember;               // whether a member has ended already
};

#endif  // QRTVIRTUALFILEGZIPREADER_H
