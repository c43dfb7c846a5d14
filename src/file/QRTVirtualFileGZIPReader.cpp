#include "QRTVirtualFileGZIPReader.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <exception>

#include "HZSStreams/GzipDecompressor.h"
#include "QRTCore/QRTAssert.h"
#include "QRTVirtualFile.h"

namespace {

// What every gzip member begins with.
constexpr char kMagic[] = {'\x1F', '\x8B'};

// Stands in m_damage for something behind the last member that is none.
constexpr char kTrailingBytes[] = "trailing bytes";

}  // namespace

QRTVirtualFileGZIPReader::QRTVirtualFileGZIPReader(QRTVirtualFile& file, unsigned int bufferSize)
    : m_file(file),
      m_decompressor(nullptr),
      m_input(std::clamp<unsigned int>(bufferSize, sizeof kMagic, INT_MAX)),
      m_begin(0),
      m_end(0),
      m_inMember(false),
      m_memberStart(0),
      m_content(0),
      m_damage(nullptr),
      m_behindMember(false) {
  m_decompressor = GzipDecompressor::make().release();
}

QRTVirtualFileGZIPReader::~QRTVirtualFileGZIPReader() {
  delete m_decompressor;
  m_decompressor = nullptr;
}

// Until enough is inflated:
// 1. begin a member where the last one ended, unless that is the end of the content;
// 2. fetch input when there is none;
// 3. inflate; without input this gives what the decompressor still holds;
// 4. with damage, or when there is neither input nor output inside a member, stop. What came
//    before is given first, and the next call raises the error, or asks the file again after one of
//    the file's.
unsigned int QRTVirtualFileGZIPReader::read(void* data, unsigned int n) {
  if (n == 0) {
    return 0;
  }
  QRT_ASSERT(data);
  char* const to = static_cast<char*>(data);
  unsigned int done = 0;
  while (done < n && m_damage == nullptr) {
    bool hasInput = false;
    std::exception_ptr unreadable;
    try {
      // Step 1
      if (!m_inMember && !beginMember()) {
        break;
      }
      // Step 2
      hasInput = m_begin != m_end || fill();
    } catch (...) {
      unreadable = std::current_exception();
      if (!m_inMember) {
        if (done == 0) {
          throw;
        }
        break;
      }
    }

    // Step 3
    const GzipDecompressor::Step step =
        m_decompressor->inflate(m_input.data() + m_begin, m_end - m_begin, to + done, n - done);
    m_begin += step.consumed;
    done += static_cast<unsigned int>(step.produced);
    m_content += step.produced;
    m_inMember = !step.memberEnds;
    m_behindMember |= step.memberEnds;

    // Step 4
    m_damage = step.damage;
    if (!hasInput && step.produced == 0 && m_damage == nullptr) {
      if (done == 0 && unreadable) {
        std::rethrow_exception(unreadable);
      }
      if (done == 0) {
        raise("the file ends inside it; it may not have been closed");
      }
      break;
    }
  }
  if (done == 0 && m_damage != nullptr) {
    raise(m_damage);
  }
  return done;
}

/// Begins a member at the next byte of input. What does not look like one is left to the
/// decompressor at the beginning of a stream; behind a member it is no damage of a member.
/// @return whether one has begun; otherwise the content ends here, or m_damage says why not
bool QRTVirtualFileGZIPReader::beginMember() {
  const bool hasInput = m_behindMember ? skipPadding() : m_begin != m_end || fill();
  if (!hasInput) {
    return false;
  }
  if (m_behindMember && m_end - m_begin < sizeof kMagic) {
    fill();
  }
  m_memberStart = m_file.tell() - static_cast<unsigned int>(m_end - m_begin);
  const std::size_t known = std::min(m_end - m_begin, sizeof kMagic);
  if (m_behindMember && !std::equal(kMagic, kMagic + known, m_input.data() + m_begin)) {
    m_damage = kTrailingBytes;
    return false;
  }
  m_decompressor->begin();
  m_inMember = true;
  return true;
}

/// Skips zeros. @return whether something else comes behind them
bool QRTVirtualFileGZIPReader::skipPadding() {
  while (m_begin != m_end || fill()) {
    if (m_input[m_begin] != '\0') {
      return true;
    }
    ++m_begin;
  }
  return false;
}

/// Fetches the next piece of the file behind what is not inflated yet, of which there is less than
/// the buffer holds. An error leaves the file's position where it was, so that nothing is skipped
/// by whoever tries again.
/// @return whether there was more
bool QRTVirtualFileGZIPReader::fill() {
  const auto rest = m_input.begin() + static_cast<std::ptrdiff_t>(m_begin);
  m_end = static_cast<std::size_t>(
      std::copy(rest, m_input.begin() + static_cast<std::ptrdiff_t>(m_end), m_input.begin()) -
      m_input.begin());
  m_begin = 0;
  const unsigned int position = m_file.tell();
  try {
    const int got =
        m_file.read(m_input.data() + m_end, static_cast<unsigned int>(m_input.size() - m_end));
    m_end += static_cast<std::size_t>(got);
    return got != 0;
  } catch (...) {
    m_file.seekTo(position);
    throw;
  }
}

void QRTVirtualFileGZIPReader::raise(const char* problem) const {
  char text[256];
  if (problem == kTrailingBytes) {
    std::snprintf(text, sizeof text,
                  "QRTVirtualFileGZIPReader: the trailing bytes at position %u of the file, behind "
                  "the last gzip member and after %llu bytes of content, are neither a member nor "
                  "zeros",
                  m_memberStart, m_content);
  } else {
    std::snprintf(text, sizeof text,
                  "QRTVirtualFileGZIPReader: the gzip member at position %u of the file cannot be "
                  "read on after %llu bytes of content: %s",
                  m_memberStart, m_content, problem);
  }
  QRT_THROW(QRTIllegalStateError(0, text));
}
