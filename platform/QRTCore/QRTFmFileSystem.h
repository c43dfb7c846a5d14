#ifndef QRTCORE_QRTFMFILESYSTEM_H
#define QRTCORE_QRTFMFILESYSTEM_H

#include <cstddef>
#include <cstdint>

#include "QRTCore/I18NString.h"
#include "QRTCore/QRTFmFile.h"

/// @file
/// What QRTFmFile needs of the operating system; one source file per system. A call gives 0 or the
/// system's error number, and delivers through its last argument.

namespace qrtfile {

using Handle = std::intptr_t;

/// @return the calling thread's error number
unsigned int lastError();

/// @return the error number for arguments that make no sense
unsigned int invalidArgument();

/// @return the error number for a file that is not open
unsigned int invalidHandle();

/// @return the error number for a transfer that failed without saying why
unsigned int transferFailed();

I18NString message(unsigned int error);

/// Opens a regular file or device, never a directory, so that children do not inherit it.
unsigned int open(const I18NString& path, QRTFmFile::createmode mode, bool readOnly,
                  Handle& handle);
unsigned int openStandard(QRTFmFile::stdiotypes type, Handle& handle);
unsigned int close(Handle handle);

/// Move up to `n` bytes at the position; `moved` is 0 at the end of what can be read.
unsigned int readSome(Handle handle, void* data, unsigned int n, unsigned int& moved);
unsigned int writeSome(Handle handle, const void* data, unsigned int n, unsigned int& moved);

unsigned int seek(Handle handle, std::int64_t offset, QRTFmFile::seekorigin origin,
                  std::int64_t& position);
unsigned int length(Handle handle, std::int64_t& bytes);
unsigned int flush(Handle handle);

/// Sets the length and leaves the position alone.
unsigned int truncate(Handle handle, std::int64_t bytes);

}  // namespace qrtfile

#endif  // QRTCORE_QRTFMFILESYSTEM_H
