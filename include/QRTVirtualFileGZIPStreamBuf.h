#ifndef QRTVIRTUALFILEGZIPSTREAMBUF_H
#define QRTVIRTUALFILEGZIPSTREAMBUF_H

#include <cstddef>
#include <streambuf>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"
#include "QRTVirtualFileGZIPReader.h"

class QRTVirtualFile;

/// Lets std::istream read the content of a compressing file, or of any other gzip stream in a
/// virtual file, from the file's position on:
///
///     QRTVirtualFileGZIPStreamBuf buffer(file);
///     std::istream content(&buffer);
///     for (std::string line; std::getline(content, line);) { ... }
///     if (content.bad()) { std::cerr << buffer.getError(); }
///
/// Damage and errors of the file come out of the operations; a standard stream turns them into its
/// bad state, or lets them through when asked by `exceptions(std::ios::badbit)`. So a stream that
/// is not bad has ended where the content does. What comes before the damage is given to whoever
/// reads lines, words or characters; a `read` of many bytes that meets it counts none of them.
///
/// The stream is for reading and goes one way: `tellg` tells how much content was read, other seeks
/// are refused. While it is used the file's position is its business.
class QRT_EXPORT QRTVirtualFileGZIPStreamBuf : public std::streambuf {
 public:
  static constexpr std::size_t kDefaultBufferSize = 16384;

  /// @param file        not owned, outlives the buffer; what was written is closed
  /// @param bufferSize  bytes of content to inflate at a time, at least 1; larger transfers go past
  ///                    the buffer. The reader takes about 120 KB besides
  /// @throws std::bad_alloc
  explicit QRTVirtualFileGZIPStreamBuf(QRTVirtualFile& file,
                                       std::size_t bufferSize = kDefaultBufferSize);

  /// Leaves the file alone.
  ~QRTVirtualFileGZIPStreamBuf() override;

  QRTVirtualFileGZIPStreamBuf(const QRTVirtualFileGZIPStreamBuf&) = delete;
  QRTVirtualFileGZIPStreamBuf& operator=(const QRTVirtualFileGZIPStreamBuf&) = delete;

  /// @return what the last error said, cut after 511 bytes: the place and the reason; null while
  ///         there was none. Valid as long as the buffer
  const char* getError() const noexcept { return m_error[0] == '\0' ? nullptr : m_error; }

 protected:
  int_type underflow() override;
  std::streamsize xsgetn(char* data, std::streamsize n) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir origin,
                   std::ios_base::openmode which) override;

 private:
  unsigned int fetch(char* to, std::size_t n);

  QRTVirtualFileGZIPReader m_reader;  // inflates
  QRTStd::vector<char> m_buffer;      // content read ahead
  off_type m_fetched;                 // bytes of content that the reader gave
  char m_error[512];                  // what the last error said; empty if there was none
};

#endif  // QRTVIRTUALFILEGZIPSTREAMBUF_H
