#include "QRTVirtualFileGZIPReader.h"

#include <algorithm>
#include <climits>
#include <cstdio>

#include "HZSStreams/GzipDecompressor.h"
#include "QRTCore/QRTAssert.h"
#include "QRTVirtualFile.h"

QRTVirtualFileGZIPReader::QRTVirtualFileGZIPReader(QRTVirtualFile& file, unsigned int bufferSize)
    : m_file(file),
      m_decompressor(nullptr),
      m_input(std::clamp<unsigned int>(bufferSize, 1, INT_MAX)),
      m_begin(0),
      m_end(0),
      m_inMember(false),
      m_memberStart(0),
      m_content(0),
      m_damage(nullptr) {
  m_decompressor = GzipDecompressor::make().release();
}

QRTVirtualFileGZIPReader::~QRTVirtualFileGZIPReader() {
  delete m_decompressor;
  m_decompressor = nullptr;
}

// Until enough is inflated:
// 1. fetch input when there is none; between two members its end is the end of the content;
// 2. begin a member where the last one ended;
// 3. inflate;
// 4. with damage, or when there is neither input nor output inside a member, stop. What came
//    before is given first, and the next call raises the error.
unsigned int QRTVirtualFileGZIPReader::read(void* data, unsigned int n) {
  if (n == 0) {
    return 0;
  }
  QRT_ASSERT(data);
  char* const to = static_cast<char*>(data);
  unsigned int done = 0;
  while (done < n && m_damage == nullptr) {
    // Step 1
    const bool hasInput = m_begin != m_end || fill();
    if (!hasInput && !m_inMember) {
      break;
    }

    // Step 2
    if (!m_inMember) {
      m_decompressor->begin();
      m_inMember = true;
      m_memberStart = static_cast<unsigned int>(m_file.seek(0, QRTFmFile::eSeekCurrent)) -
                      static_cast<unsigned int>(m_end - m_begin);
    }

    // Step 3
    const GzipDecompressor::Step step =
        m_decompressor->inflate(m_input.data() + m_begin, m_end - m_begin, to + done, n - done);
    m_begin += step.consumed;
    done += static_cast<unsigned int>(step.produced);
    m_inMember = !step.memberEnds;

    // Step 4
    m_damage = step.damage;
    if (!hasInput && step.produced == 0 && m_damage == nullptr) {
      if (done == 0) {
        raise("the file ends inside it; it may not have been closed");
      }
      break;
    }
  }
  m_content += done;
  if (done == 0 && m_damage != nullptr) {
    raise(m_damage);
  }
  return done;
}

/// Fetches the next piece of the file. @return whether there is one
bool QRTVirtualFileGZIPReader::fill() {
  m_begin = 0;
  m_end = 0;
  m_end = static_cast<std::size_t>(
      m_file.read(m_input.data(), static_cast<unsigned int>(m_input.size())));
  return m_end != 0;
}

void QRTVirtualFileGZIPReader::raise(const char* problem) const {
  char text[256];
  std::snprintf(text, sizeof text,
                "QRTVirtualFileGZIPReader: the gzip member at position %u of the file cannot be "
                "read on after %llu bytes of content: %s",
                m_memberStart, m_content, problem);
  QRT_THROW(QRTIllegalStateError(0, text));
}
