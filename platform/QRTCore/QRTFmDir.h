#ifndef QRTCORE_QRTFMDIR_H
#define QRTCORE_QRTFMDIR_H

#include <string>

#include "QRTCore/QRTExport.h"

class I18NString;

/// Directories of the operating system. One source file per system stands behind this class.
class QRT_EXPORT QRTFmDir {
 public:
  /// Tells where temporary files go by the system's own convention: on POSIX systems the directory
  /// named by TMPDIR, "/tmp" when that is unset or empty (and in programs that run with raised
  /// privileges); on Windows what GetTempPath gives. A relative name is made absolute, so that it
  /// keeps its meaning when the process changes directory.
  /// On POSIX systems a name is any bytes. Each byte that is not part of UTF-8 becomes an unpaired
  /// surrogate, U+DC80 to U+DCFF, which no text has, so that the name survives as text.
  /// @param path  receives the directory, whether or not it exists
  /// @return 1 when the directory exists, else 0
  /// @throws std::bad_alloc, with `path` unchanged
  static int getTempPath(I18NString& path);

  /// Gives a path as the system's calls and the paging engine take it: in UTF-8, which is what
  /// `c_str` of the path gives, but on POSIX systems with the bytes themselves for those
  /// surrogates.
  /// @throws std::bad_alloc
  static std::string getNarrowPath(const I18NString& path);
};

#endif  // QRTCORE_QRTFMDIR_H
