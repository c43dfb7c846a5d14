#include <zlib.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "Fuzzer.h"
#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualMemoryMgr.h"

// Hostile bytes to the reader of compressed files, beside zlib: what both give before an error is
// the same, and content that one of them takes for complete the other does too. Zeros behind the
// last member are padding.

namespace {

constexpr std::size_t kMostContent = std::size_t{1} << 20;  // of an input that expands

struct Content {
  std::string bytes;
  bool complete = true;
};

Content readByLibrary(std::string_view gzip, unsigned int bufferSize, unsigned int piece) {
  QRTVirtualMemoryMgr manager(1U, 0U, 0);
  QRTVirtualFile file;
  file.open(&manager, 0, 4096, false);
  file.write(gzip.data(), static_cast<unsigned int>(gzip.size()));
  file.seek(0, QRTFmFile::eSeekSet);
  Content content;
  try {
    QRTVirtualFileGZIPReader reader(file, bufferSize);
    std::string room(piece, '\0');
    while (content.bytes.size() < kMostContent) {
      const unsigned int got = reader.read(room.data(), piece);
      if (got == 0) {
        return content;
      }
      require(got <= piece, "more than there is room for");
      content.bytes.append(room, 0, got);
    }
  } catch (const QRTIllegalStateError&) {
    content.complete = false;
  }
  return content;
}

Content readByZlib(std::string_view gzip) {
  Content content;
  std::string room(65536, '\0');
  bool hasMember = false;
  while (content.complete && content.bytes.size() < kMostContent &&
         (hasMember ? gzip.find_first_not_of('\0') != std::string_view::npos : !gzip.empty())) {
    z_stream stream{};
    require(inflateInit2(&stream, 15 + 16) == Z_OK, "zlib");
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gzip.data()));
    stream.avail_in = static_cast<uInt>(gzip.size());
    int status = Z_OK;
    while (status == Z_OK && content.bytes.size() < kMostContent) {
      stream.next_out = reinterpret_cast<Bytef*>(room.data());
      stream.avail_out = static_cast<uInt>(room.size());
      status = inflate(&stream, Z_NO_FLUSH);
      content.bytes.append(room, 0, room.size() - stream.avail_out);
    }
    content.complete = status == Z_STREAM_END || content.bytes.size() >= kMostContent;
    gzip.remove_prefix(gzip.size() - stream.avail_in);
    inflateEnd(&stream);
    hasMember = true;
  }
  return content;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::string_view gzip(reinterpret_cast<const char*>(data) + 2, size - 2);
  const Content ours = readByLibrary(gzip, 1U + data[0] * 16U, 1U + data[1] * 64U);
  const Content theirs = readByZlib(gzip);
  if (ours.bytes.size() < kMostContent && theirs.bytes.size() < kMostContent) {
    require(ours.complete == theirs.complete,
            ours.complete ? "zlib finds damage" : "zlib finds no damage");
    require(!ours.complete || ours.bytes.size() == theirs.bytes.size(), "a part is missing");
  }
  const std::size_t both = std::min(ours.bytes.size(), theirs.bytes.size());
  require(ours.bytes.compare(0, both, theirs.bytes, 0, both) == 0, "another content");
  return 0;
}
