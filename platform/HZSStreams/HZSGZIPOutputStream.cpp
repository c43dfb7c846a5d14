#include "HZSStreams/HZSGZIPOutputStream.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "HZSStreams/GzipCompressor.h"
#include "QRTCore/QRTAssert.h"

namespace {

// Small writes are gathered before they are compressed, because the libraries pay for every call: a
// stream of 16-byte writes is ten times faster that way. Output is passed on in pieces of this
// size.
constexpr unsigned int kBufferBytes = 32U << 10;

}  // namespace

HZSGZIPOutputStream::HZSGZIPOutputStream()
    : m_sink(nullptr),
      m_compressor(nullptr),
      m_buffers(nullptr),
      m_gathered(0),
      m_written(0),
      m_passedOn(0),
      m_level(kDefaultLevel),
      m_state(eFresh) {
  std::unique_ptr<GzipCompressor> compressor = GzipCompressor::make();
  m_buffers = new char[std::size_t{kBufferBytes} * 2];
  m_compressor = compressor.release();
}

HZSGZIPOutputStream::~HZSGZIPOutputStream() {
  delete m_compressor;
  m_compressor = nullptr;
  delete[] m_buffers;
  m_buffers = nullptr;
}

void HZSGZIPOutputStream::setSink(HZSOutputStream* sink) {
  m_sink = sink;
}

void HZSGZIPOutputStream::setLevel(int level) {
  m_level = std::clamp(level, kMinLevel, kMaxLevel);
}

void HZSGZIPOutputStream::write(const char* data, unsigned int n) {
  QRT_ASSERT(m_sink);
  if (n == 0) {
    return;
  }
  QRT_ASSERT(data);
  beginMember();
  m_written += n;
  if (n >= kBufferBytes - m_gathered) {
    compress(m_buffers, m_gathered, GzipCompressor::eMore);
    m_gathered = 0;
    if (n >= kBufferBytes) {
      compress(data, n, GzipCompressor::eMore);
      return;
    }
  }
  std::memcpy(m_buffers + m_gathered, data, n);
  m_gathered += n;
}

void HZSGZIPOutputStream::flush() {
  QRT_ASSERT(m_sink);
  if (m_state == eInMember || m_state == eFailed) {
    beginMember();
    compress(m_buffers, m_gathered, GzipCompressor::eFlush);
    m_gathered = 0;
  }
  m_sink->flush();
}

void HZSGZIPOutputStream::close() {
  finish();
  m_sink->close();
}

void HZSGZIPOutputStream::finish() {
  QRT_ASSERT(m_sink);
  if (m_state == eFinished) {
    return;
  }
  beginMember();
  compress(m_buffers, m_gathered, GzipCompressor::eFinish);
  m_gathered = 0;
  m_state = eFinished;
}

/// Makes sure that there is a member to write to.
void HZSGZIPOutputStream::beginMember() {
  if (m_state == eFailed) {
    raiseLost();
  }
  if (m_state != eInMember) {
    m_compressor->begin(m_level);
    m_written = 0;
    m_passedOn = 0;
    m_state = eInMember;
  }
}

/// Runs input through the compressor and passes on what comes out. The state is eFailed while this
/// is under way, so that it stays so when the sink raises an error.
void HZSGZIPOutputStream::compress(const char* data, unsigned int n, int mode) {
  char* const output = m_buffers + kBufferBytes;
  m_state = eFailed;
  for (std::size_t left = n;;) {
    const GzipCompressor::Step step = m_compressor->compress(
        data, left, output, kBufferBytes, static_cast<GzipCompressor::Mode>(mode));
    data += step.consumed;
    left -= step.consumed;
    if (step.produced != 0) {
      m_sink->write(output, static_cast<unsigned int>(step.produced));
      m_passedOn += step.produced;
    }
    if (step.done) {
      break;
    }
  }
  m_state = eInMember;
}

/// Says how much is at stake: what a reader can get out of the sink is the beginning of the member.
void HZSGZIPOutputStream::raiseLost() const {
  char text[224];
  std::snprintf(
      text, sizeof text,
      "HZSGZIPOutputStream: the member was lost when its sink raised an error: %llu bytes "
      "were given to it, and its sink has taken the first %llu of their compressed form",
      m_written, m_passedOn);
  QRT_THROW(QRTIllegalStateError(0, text));
}
