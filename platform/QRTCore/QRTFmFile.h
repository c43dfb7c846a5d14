#ifndef QRTCORE_QRTFMFILE_H
#define QRTCORE_QRTFMFILE_H

#include <cstdint>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTExport.h"

/// A file of the operating system, read and written as plain bytes. Files of any size are handled;
/// where a position or length is returned as an int, those from 2 GiB up give their low 32 bits,
/// so ask `getLastErrorNumber` whether a -1 is a failure.
///
/// Failures are results, not exceptions. Each operation sets the error number: to 0 when it
/// succeeds, else to the system's (errno; on Windows that of GetLastError). A file is used by one
/// thread at a time. Children of the process do not inherit it.
class QRT_EXPORT QRTFmFile {
 public:
  /// What `open` does about a file that exists, and about one that does not.
  enum createmode {
    eOpenExisting,      ///< opens it; fails when there is none
    eCreateNew,         ///< fails; makes it
    eCreateAlways,      ///< empties it; makes it
    eOpenAlways,        ///< opens it; makes it
    eTruncateExisting,  ///< empties it; fails when there is none
  };

  /// Where `seek` counts from.
  enum seekorigin {
    eSeekSet = 0,      ///< the start
    eSeekCurrent = 1,  ///< the position
    eSeekEnd = 2,      ///< the end
  };

  /// The streams that a process has from its start.
  enum stdiotypes { eStdIn, eStdOut, eStdErr };

  /// Makes a file that is not open. Allocates nothing.
  QRTFmFile();

  /// Closes the file.
  virtual ~QRTFmFile();

  QRTFmFile(const QRTFmFile&) = delete;
  QRTFmFile& operator=(const QRTFmFile&) = delete;

  /// Reads at the position and moves it.
  /// @param data  room for `n` bytes; null only with `n` 0
  /// @param n     bytes wanted, up to 2 GiB - 1
  /// @return bytes read, fewer than `n` only at the end or when a later part failed (then the error
  ///         number tells); 0 at the end; -1 on failure
  virtual int read(void* data, unsigned int n);

  /// Writes at the position and moves it.
  /// @param data  the bytes; null only with `n` 0
  /// @param n     how many, up to 2 GiB - 1
  /// @return bytes written, fewer than `n` when the rest failed (then the error number tells);
  ///         -1 on failure
  virtual int write(const void* data, unsigned int n);

  /// Moves the position, also past the end: the file grows when something is written there.
  /// @return the new position; -1 on failure, with the position unchanged
  virtual int seek(int offset, seekorigin origin);

  /// Copies the other file, from its position to its end, onto the end of this one. Both positions
  /// end up behind what was copied.
  /// @param other  another file, of any class; bytes that it gains while this runs are not copied
  ///               when it is a plain file
  /// @return bytes copied; -1 on failure, when a part may have been copied
  virtual int append(QRTFmFile& other);

  /// Makes this file one of the process's standard streams, which `close` leaves open.
  /// @return 1, or 0 on failure
  virtual int open(stdiotypes type);

  /// Opens a file; one that is open already is closed first. Directories are refused.
  /// @param path      UTF-8; other bytes count as U+FFFD (see QRTFmDir for names that have them)
  /// @param mode      what to do about a file that exists or does not
  /// @param readOnly  0 for reading and writing; anything else for reading only, which does not go
  ///                  with the modes that empty the file
  /// @return 1, or 0 on failure, with no file open
  virtual int open(const char* path, createmode mode, int readOnly);

  /// The same.
  virtual int open(const I18NString& path, createmode mode, int readOnly);

  /// Closes the file.
  /// @return 1; 0 when the system reports a failure, or when no file is open
  virtual int close();

  /// @return bytes in the file; -1 on failure, and for what has no length, such as a pipe
  virtual int getLength();

  /// Has the system put everything written on the disk.
  /// @return 1, or 0 on failure
  virtual int flush();

  /// Cuts the file off, or lengthens it with zeros. A position past the new end moves to it.
  /// @param size  bytes the file shall have
  /// @return 1, or 0 on failure
  virtual int truncate(int size);

  /// @return the system's error number of the last operation; 0 when it succeeded
  virtual unsigned int getLastErrorNumber();

  /// @return the system's message for that number; empty for 0
  virtual I18NString getLastErrorMessage();

 protected:
  /// Takes the calling thread's error number from the system as this file's.
  virtual void logLastError();

 private:
  bool settle(unsigned int error);
  std::int64_t appendFrom(QRTFmFile& other);

  static constexpr std::intptr_t kNoHandle = -1;

  std::intptr_t m_handle;    // the system's handle; kNoHandle while not open
  bool m_ownsHandle;         // whether close gives it back
  unsigned int m_lastError;  // what the last operation left; 0 after a success
};

#endif  // QRTCORE_QRTFMFILE_H
