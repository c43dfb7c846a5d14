#include "QRTCore/QRTFmFile.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <limits>
#include <memory>

#include "QRTCore/QRTFmFileSystem.h"

namespace {

// How much append copies at a time: enough that the calls do not show.
constexpr unsigned int kCopyBytes = 64U << 10;

// The low 32 bits, as the interface has it.
int narrowed(std::int64_t value) {
  return static_cast<int>(static_cast<std::uint32_t>(value));
}

}  // namespace

QRTFmFile::QRTFmFile() : m_handle(kNoHandle), m_ownsHandle(false), m_lastError(0) {}

QRTFmFile::~QRTFmFile() {
  if (m_handle != kNoHandle && m_ownsHandle) {
    qrtfile::close(m_handle);
  }
}

/// Notes how an operation ended. @return whether it succeeded
bool QRTFmFile::settle(unsigned int error) {
  m_lastError = error;
  return error == 0;
}

int QRTFmFile::read(void* data, unsigned int n) {
  if (m_handle == kNoHandle) {
    settle(qrtfile::invalidHandle());
    return -1;
  }
  if (n > INT_MAX || (data == nullptr && n != 0)) {
    settle(qrtfile::invalidArgument());
    return -1;
  }
  unsigned int done = 0;
  settle(0);
  while (done < n) {
    unsigned int moved = 0;
    if (!settle(qrtfile::readSome(m_handle, static_cast<char*>(data) + done, n - done, moved)) ||
        moved == 0) {
      break;
    }
    done += moved;
  }
  return done == 0 && m_lastError != 0 ? -1 : static_cast<int>(done);
}

int QRTFmFile::write(const void* data, unsigned int n) {
  if (m_handle == kNoHandle) {
    settle(qrtfile::invalidHandle());
    return -1;
  }
  if (n > INT_MAX || (data == nullptr && n != 0)) {
    settle(qrtfile::invalidArgument());
    return -1;
  }
  unsigned int done = 0;
  settle(0);
  while (done < n) {
    unsigned int moved = 0;
    const char* const from = static_cast<const char*>(data) + done;
    if (!settle(qrtfile::writeSome(m_handle, from, n - done, moved))) {
      break;
    }
    if (moved == 0) {
      settle(qrtfile::transferFailed());
      break;
    }
    done += moved;
  }
  return done == 0 && m_lastError != 0 ? -1 : static_cast<int>(done);
}

int QRTFmFile::seek(int offset, seekorigin origin) {
  std::int64_t position = 0;
  const unsigned int error = m_handle == kNoHandle
                                 ? qrtfile::invalidHandle()
                                 : qrtfile::seek(m_handle, offset, origin, position);
  return settle(error) ? narrowed(position) : -1;
}

int QRTFmFile::append(QRTFmFile& other) {
  if (m_handle == kNoHandle) {
    settle(qrtfile::invalidHandle());
    return -1;
  }
  if (&other == this) {
    settle(qrtfile::invalidArgument());
    return -1;
  }
  const std::int64_t copied = appendFrom(other);
  return copied < 0 ? -1 : narrowed(copied);
}

// 1. Find out how much there is to copy: what the other file has now, so that it may be the same
//    file under another name. Other classes and pipes end where their read says so.
// 2. Go to the end.
// 3. Copy.
std::int64_t QRTFmFile::appendFrom(QRTFmFile& other) {
  // Step 1
  std::int64_t position = 0;
  std::int64_t end = 0;
  std::int64_t left = std::numeric_limits<std::int64_t>::max();
  if (other.m_handle != kNoHandle && qrtfile::length(other.m_handle, end) == 0 &&
      qrtfile::seek(other.m_handle, 0, eSeekCurrent, position) == 0) {
    left = std::max<std::int64_t>(end - position, 0);
  }

  // Step 2
  if (!settle(qrtfile::seek(m_handle, 0, eSeekEnd, position))) {
    return -1;
  }

  // Step 3
  const auto buffer = std::make_unique<char[]>(kCopyBytes);
  std::int64_t copied = 0;
  while (left > 0) {
    const auto wanted = static_cast<unsigned int>(std::min<std::int64_t>(left, kCopyBytes));
    const int got = other.read(buffer.get(), wanted);
    if (got < 0) {
      const unsigned int error = other.getLastErrorNumber();
      settle(error != 0 ? error : qrtfile::transferFailed());
      return -1;
    }
    if (got == 0) {
      break;
    }
    if (QRTFmFile::write(buffer.get(), static_cast<unsigned int>(got)) != got) {
      return -1;
    }
    copied += got;
    left -= got;
  }
  return copied;
}

int QRTFmFile::open(stdiotypes type) {
  QRTFmFile::close();
  if (!settle(qrtfile::openStandard(type, m_handle))) {
    m_handle = kNoHandle;
    return 0;
  }
  m_ownsHandle = false;
  return 1;
}

int QRTFmFile::open(const char* path, createmode mode, int readOnly) {
  return QRTFmFile::open(I18NString(path), mode, readOnly);
}

int QRTFmFile::open(const I18NString& path, createmode mode, int readOnly) {
  QRTFmFile::close();
  if (mode < eOpenExisting || mode > eTruncateExisting ||
      (readOnly != 0 && (mode == eCreateAlways || mode == eTruncateExisting))) {
    settle(qrtfile::invalidArgument());
    return 0;
  }
  if (!settle(qrtfile::open(path, mode, readOnly != 0, m_handle))) {
    m_handle = kNoHandle;
    return 0;
  }
  m_ownsHandle = true;
  return 1;
}

int QRTFmFile::close() {
  if (m_handle == kNoHandle) {
    settle(qrtfile::invalidHandle());
    return 0;
  }
  settle(m_ownsHandle ? qrtfile::close(m_handle) : 0);
  m_handle = kNoHandle;
  return m_lastError == 0 ? 1 : 0;
}

int QRTFmFile::getLength() {
  std::int64_t bytes = 0;
  const unsigned int error =
      m_handle == kNoHandle ? qrtfile::invalidHandle() : qrtfile::length(m_handle, bytes);
  return settle(error) ? narrowed(bytes) : -1;
}

int QRTFmFile::flush() {
  return settle(m_handle == kNoHandle ? qrtfile::invalidHandle() : qrtfile::flush(m_handle)) ? 1
                                                                                             : 0;
}

int QRTFmFile::truncate(int size) {
  if (m_handle == kNoHandle) {
    settle(qrtfile::invalidHandle());
    return 0;
  }
  if (size < 0) {
    settle(qrtfile::invalidArgument());
    return 0;
  }
  std::int64_t position = 0;
  if (!settle(qrtfile::truncate(m_handle, size)) ||
      !settle(qrtfile::seek(m_handle, 0, eSeekCurrent, position))) {
    return 0;
  }
  return position <= size || settle(qrtfile::seek(m_handle, size, eSeekSet, position)) ? 1 : 0;
}

unsigned int QRTFmFile::getLastErrorNumber() {
  return m_lastError;
}

I18NString QRTFmFile::getLastErrorMessage() {
  return m_lastError == 0 ? I18NString() : qrtfile::message(m_lastError);
}

void QRTFmFile::logLastError() {
  settle(qrtfile::lastError());
}
