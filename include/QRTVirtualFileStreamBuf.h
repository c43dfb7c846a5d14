#ifndef QRTVIRTUALFILESTREAMBUF_H
#define QRTVIRTUALFILESTREAMBUF_H

#include <cstddef>
#include <streambuf>
#include <vector>

#include "QRTCore/QRTExport.h"
#include "QRTCore/QRTStd.h"

class QRTVirtualFile;

/// Lets std::istream and std::ostream work on a virtual file:
///
///     QRTVirtualFileStreamBuf buffer(file);
///     std::iostream stream(&buffer);
///
/// Reading and writing share the file's one position, as with std::fstream, and may be mixed. While
/// bytes wait in the buffer the file itself is not used; `flush` or a seek of the stream settles
/// that. On a compressing file writing compresses, while reading gives the compressed bytes.
///
/// Errors of the file come out of the operations; a standard stream turns them into its bad state,
/// or lets them through when asked by `exceptions(std::ios::badbit)`. What could not be written is
/// dropped. A position past the end lengthens the file, one past 4 GiB - 2 is refused.
class QRT_EXPORT QRTVirtualFileStreamBuf : public std::streambuf {
 public:
  /// @param file        not owned, outlives the buffer
  /// @param bufferSize  bytes to gather, at least 1; larger transfers go past the buffer
  /// @throws std::bad_alloc
  explicit QRTVirtualFileStreamBuf(QRTVirtualFile& file, std::size_t bufferSize = 4096);

  /// Writes what waits; drops errors. Flush before to learn of them.
  ~QRTVirtualFileStreamBuf() override;

  QRTVirtualFileStreamBuf(const QRTVirtualFileStreamBuf&) = delete;
  QRTVirtualFileStreamBuf& operator=(const QRTVirtualFileStreamBuf&) = delete;

 protected:
  int_type underflow() override;
  int_type overflow(int_type c) override;
  std::streamsize xsgetn(char* data, std::streamsize n) override;
  std::streamsize xsputn(const char* data, std::streamsize n) override;
  pos_type seekoff(off_type offset, std::ios_base::seekdir origin,
                   std::ios_base::openmode which) override;
  pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
  int sync() override;

 private:
  off_type getPosition() const;
  void endReading();
  void endWriting();

  QRTVirtualFile& m_file;         // not owned
  QRTStd::vector<char> m_buffer;  // bytes read ahead, or bytes that wait to be written
};

#endif  // QRTVIRTUALFILESTREAMBUF_H
