#include "QRTVirtualFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>

#include "HZSStreams/HZSGZIPOutputStream.h"
#include "QRTCore/QRTAssert.h"
#include "QRTVirtualMemoryMgr.h"

namespace {

// Stands for the current position where a position is asked for.
constexpr unsigned int kCurrentPosition = 0xFFFFFFFF;

constexpr unsigned int kMaxLength = std::numeric_limits<unsigned int>::max();

// A seek to kMaxLength would give what a failed one gives.
constexpr unsigned int kMaxSeek = kMaxLength - 1;

[[noreturn]] void raiseFull(unsigned int position, unsigned int n) {
  char text[128];
  std::snprintf(text, sizeof text,
                "QRTVirtualFile: %u bytes at position %u would end past the limit of %u bytes", n,
                position, kMaxLength);
  QRT_THROW(QRTOutOfMemoryError(0, text));
}

[[noreturn]] void raiseMemberOpen(unsigned int length) {
  char text[160];
  std::snprintf(text, sizeof text,
                "QRTVirtualFile: the length cannot be set to %u bytes while a gzip member is open; "
                "close the file first",
                length);
  QRT_THROW(QRTIllegalStateError(0, text));
}

[[noreturn]] void raiseUnreadable(unsigned int position, const char* reason) {
  char text[400];
  std::snprintf(text, sizeof text,
                "QRTVirtualFile: the page of position %u cannot be read back: %s", position,
                reason);
  QRT_THROW(QRTIllegalStateError(0, text));
}

}  // namespace

QRTVirtualFile::QRTVirtualFile()
    : m_gzipStream(nullptr),
      m_compress(false),
      m_memMgr(nullptr),
      m_position(0),
      m_length(0),
      m_pageSize(kDefaultPageSize),
      m_buffer(nullptr),
      m_ownsMemMgr(false) {}

// An owned manager takes its pages along when it ends, so they are not given back one by one.
QRTVirtualFile::~QRTVirtualFile() {
  try {
    QRTVirtualFile::close();
  } catch (...) {
    // What could not be stored any more would have gone with the file.
  }
  if (m_ownsMemMgr) {
    delete m_memMgr;
  } else {
    QRTVirtualFile::dispose();
  }
  m_memMgr = nullptr;
}

// 1. Leave the manager that the file has.
// 2. Take the new one.
// 3. Bind the compressor's sink.
void QRTVirtualFile::open(QRTVirtualMemoryMgr* memMgr, unsigned int, unsigned int pageSize,
                          bool compress) {
  // Step 1
  if (m_memMgr != nullptr) {
    reset(true);
    if (m_ownsMemMgr) {
      delete m_memMgr;
      m_ownsMemMgr = false;
    }
  }

  // Step 2
  m_memMgr = memMgr;
  m_pageSize = pageSize != 0 ? pageSize : kDefaultPageSize;

  // Step 3
  if (compress) {
    m_outStream.init(*this);
    m_compress = true;
  }
}

// An override of the other `open` can take the manager, store something in it and raise an error
// then, or leave the manager for another one. The file owns it if that is what the file ends with.
void QRTVirtualFile::open(unsigned int memorySize, unsigned int unused, unsigned int pageSize,
                          bool compress) {
  std::unique_ptr<QRTVirtualMemoryMgr> manager(
      QRT_GUARD_ALLOC(new QRTVirtualMemoryMgr(memorySize, 0U, 64)));
  const auto ownIfTaken = [&] {
    if (m_memMgr == manager.get()) {
      m_ownsMemMgr = true;
      static_cast<void>(manager.release());
    }
  };
  try {
    open(manager.get(), unused, pageSize, compress);
  } catch (...) {
    ownIfTaken();
    throw;
  }
  ownIfTaken();
}

int QRTVirtualFile::write(const void* data, unsigned int n) {
  if (!m_compress) {
    return static_cast<int>(writeImpl(data, n));
  }
  QRT_ASSERT(m_memMgr);
  if (m_gzipStream == nullptr) {
    m_gzipStream = QRT_GUARD_ALLOC(new HZSGZIPOutputStream);
    m_gzipStream->setSink(&m_outStream);
  }
  m_gzipStream->write(static_cast<const char*>(data), n);
  return static_cast<int>(n);
}

// 1. Refuse what cannot be stored.
// 2. Until everything is stored:
//    2.1 pin the current page;
//    2.2 copy what fits into the rest of it;
//    2.3 unpin a page that is full up to its end;
//    2.4 move the position and let the length follow. An error in 2.1 leaves both as they are here.
unsigned int QRTVirtualFile::writeImpl(const void* data, unsigned int n) {
  if (n == 0) {
    return 0;
  }
  // Step 1
  QRT_ASSERT(m_memMgr);
  QRT_ASSERT(data);
  if (n > kMaxLength - m_position) {
    raiseFull(m_position, n);
  }

  // Step 2
  const char* from = static_cast<const char*>(data);
  for (unsigned int left = n; left != 0;) {
    // Step 2.1
    char* const buffer = getCurrentBuffer();
    // Step 2.2
    const unsigned int offset = m_position % m_pageSize;
    const unsigned int chunk = std::min(left, m_pageSize - offset);
    std::memcpy(buffer + offset, from, chunk);
    from += chunk;
    left -= chunk;
    // Step 2.3
    if (offset + chunk == m_pageSize) {
      dismissBuffer(m_position);
    }
    // Step 2.4
    m_position += chunk;
    m_length = std::max(m_length, m_position);
  }
  return n;
}

// Until enough is copied or the end of the file is reached:
// 1. pin the current page, which allocates one that was never touched;
// 2. copy what the page has, up to the end of the file;
// 3. unpin a page that is read up to its end;
// 4. move the position.
int QRTVirtualFile::read(void* data, unsigned int n) {
  if (n == 0) {
    return 0;
  }
  QRT_ASSERT(data);
  char* const to = static_cast<char*>(data);
  unsigned int done = 0;
  while (done < n && m_position != m_length) {
    // Step 1
    const char* const buffer = getCurrentBuffer();
    // Step 2
    const unsigned int offset = m_position % m_pageSize;
    const unsigned int inPage = std::min(m_pageSize - offset, m_length - m_position);
    const unsigned int chunk = std::min(n - done, inPage);
    std::memcpy(to + done, buffer + offset, chunk);
    done += chunk;
    // Step 3
    if (offset + chunk == m_pageSize) {
      dismissBuffer(m_position);
    }
    // Step 4
    m_position += chunk;
  }
  return static_cast<int>(done);
}

int QRTVirtualFile::seek(int offset, seekorigin origin) {
  std::int64_t position = offset;
  if (origin == eSeekCurrent) {
    position += m_position;
  } else if (origin == eSeekEnd) {
    position += m_length;
  }
  if (position < 0 || position > kMaxSeek) {
    return -1;
  }
  seekTo(static_cast<unsigned int>(position));
  return static_cast<int>(m_position);
}

void QRTVirtualFile::seekTo(unsigned int position) {
  if (m_buffer != nullptr && !inSamePage(m_position, position)) {
    dismissBuffer(m_position);
  }
  m_position = position;
  m_length = std::max(m_length, m_position);
}

int QRTVirtualFile::getLength() {
  return static_cast<int>(m_length);
}

// 1. Clear what the last page has behind the old end; this is all that can fail.
// 2. Give back the pages that hold nothing of what stays, unpinned first. Pages of what is added
// are
//    not there then, and one that is touched for the first time is cleared.
// 3. Set the length, and the position where it would lie behind.
void QRTVirtualFile::setLength(unsigned int length) {
  if (m_gzipStream != nullptr) {
    raiseMemberOpen(length);
  }
  // Step 1
  if (length > m_length) {
    clearBehindEnd(length);
  }
  // Step 2
  const std::uint64_t kept = std::min(length, m_length);
  const auto pages = static_cast<std::size_t>((kept + m_pageSize - 1) / m_pageSize);
  if (m_position / m_pageSize >= pages) {
    dismissBuffer(m_position);
  }
  freePagesFrom(pages);
  // Step 3
  m_length = length;
  m_position = std::min(m_position, length);
}

// The file is closed even when the end of the member cannot be stored.
int QRTVirtualFile::close() {
  const auto endCompressing = [this] {
    delete m_gzipStream;
    m_gzipStream = nullptr;
    dismissBuffer(kCurrentPosition);
  };
  try {
    if (m_gzipStream != nullptr) {
      m_gzipStream->finish();
    }
  } catch (...) {
    endCompressing();
    throw;
  }
  endCompressing();
  return 1;
}

// What cannot be stored any more when the member ends would be given up by the next line.
void QRTVirtualFile::reset(bool giveUpPages) {
  try {
    close();
  } catch (...) {  // NOLINT(bugprone-empty-catch)
  }
  if (giveUpPages) {
    dispose();
  }
  m_position = 0;
  m_length = 0;
}

void QRTVirtualFile::dispose() {
  if (m_gzipStream != nullptr && m_gzipStream->isLost()) {
    delete m_gzipStream;
    m_gzipStream = nullptr;
  }
  dismissBuffer(kCurrentPosition);
  freePagesFrom(0);
}

/// Gives the pages from an index on back and takes them out of the table. None of them is pinned.
void QRTVirtualFile::freePagesFrom(std::size_t index) {
  while (m_pages.size() > index) {
    if (m_memMgr != nullptr) {
      m_memMgr->free(m_pages.back());
    }
    m_pages.pop_back();
  }
}

/// Clears the page of the file's end from there on, if it is allocated, up to a longer length. A
/// page that is not pinned anyway is pinned for this only, after the one that is.
void QRTVirtualFile::clearBehindEnd(unsigned int length) {
  const unsigned int offset = m_length % m_pageSize;
  const std::size_t index = m_length / m_pageSize;
  if (offset == 0 || index >= m_pages.size() || m_pages[index].empty() != 0) {
    return;
  }
  const unsigned int count = std::min(m_pageSize - offset, length - m_length);
  if (m_buffer != nullptr && inSamePage(m_position, m_length)) {
    std::memset(m_buffer + offset, 0, count);
    return;
  }
  dismissBuffer(kCurrentPosition);
  QRTVirtualPageItem& page = m_pages[index];
  char* const bytes = static_cast<char*>(m_memMgr->getAddress(page, 1));
  if (bytes == nullptr) {
    raiseUnreadable(m_length, m_memMgr->getLastStoreError());
  }
  std::memset(bytes + offset, 0, count);
  m_memMgr->dismiss(page);
}

/// The table's entry for the page of a position; the table grows as needed, its pages do not.
QRTVirtualPageItem& QRTVirtualFile::getPage(unsigned int position) {
  const std::size_t index = position < m_pageSize ? 0 : position / m_pageSize;
  if (m_pages.size() <= index) {
    m_pages.resize(index + 1);
  }
  return m_pages[index];
}

QRTVirtualPageItem& QRTVirtualFile::getCurrentPage() {
  return getPage(m_position);
}

/// Pins the page of the current position if none is pinned. What a new page has of the file is
/// cleared, which in a file that is written in order is nothing.
char* QRTVirtualFile::getCurrentBuffer() {
  if (m_buffer != nullptr) {
    return m_buffer;
  }
  QRT_ASSERT(m_memMgr);
  QRTVirtualPageItem& page = getCurrentPage();
  if (page.empty() != 0) {
    m_buffer = static_cast<char*>(m_memMgr->alloc(m_pageSize, page));
    const unsigned int start = m_position - m_position % m_pageSize;
    std::memset(m_buffer, 0, std::min(m_pageSize, m_length - start));
  } else {
    m_buffer = static_cast<char*>(m_memMgr->getAddress(page, 1));
    if (m_buffer == nullptr) {
      raiseUnreadable(m_position, m_memMgr->getLastStoreError());
    }
  }
  return m_buffer;
}

/// Unpins the pinned page, if there is one.
/// @param position  one that lies in it, or kCurrentPosition
void QRTVirtualFile::dismissBuffer(unsigned int position) {
  if (m_buffer != nullptr) {
    m_memMgr->dismiss(getPage(position == kCurrentPosition ? m_position : position));
    m_buffer = nullptr;
  }
}

bool QRTVirtualFile::inSamePage(unsigned int a, unsigned int b) {
  return a / m_pageSize == b / m_pageSize;
}

QRTVirtualFile::QRTVirtualFileOuputStream::QRTVirtualFileOuputStream() : m_vfileIo(nullptr) {}

QRTVirtualFile::QRTVirtualFileOuputStream::~QRTVirtualFileOuputStream() {
  m_vfileIo = nullptr;
}

void QRTVirtualFile::QRTVirtualFileOuputStream::init(QRTVirtualFile& file) {
  m_vfileIo = &file;
}

void QRTVirtualFile::QRTVirtualFileOuputStream::write(const char* data, unsigned int n) {
  QRT_ASSERT(m_vfileIo);
  m_vfileIo->writeImpl(data, n);
}

void QRTVirtualFile::QRTVirtualFileOuputStream::flush() {}

void QRTVirtualFile::QRTVirtualFileOuputStream::close() {}
