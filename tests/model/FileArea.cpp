#include "model/FileArea.h"

#include <algorithm>

#include "QRTVirtualFileGZIPReader.h"
#include "model/Content.h"

namespace model {

namespace {

constexpr std::size_t kFiles = 3;
constexpr std::uint32_t kMostBytes = 150000;
constexpr std::uint32_t kMostPages = 600;

}  // namespace

FileArea::FileArea(ModelWorld& world) : ModelArea(world), m_files(kFiles) {
  for (File& file : m_files) {
    file.file = std::make_unique<QRTVirtualFile>();
    file.compress = &file == &m_files.back();
    reopen(file);
  }
}

std::uint32_t FileArea::mostBytes(const File& file) const {
  return std::min(kMostBytes, file.pageSize * kMostPages);
}

// Bytes that can be compressed to a half or so.
std::string FileArea::anyBytes(std::uint32_t most) {
  std::string bytes(choices().size(std::min(most, 30000U)), '\0');
  fill(bytes.data(), bytes.size(), choices().below(65536));
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    bytes[at] = at % 64 < 32 ? 'x' : bytes[at];
  }
  return bytes;
}

void FileArea::step() {
  File& file = any(m_files);
  const std::uint32_t choice = choices().below(32);
  if (choice < 12) {
    write(file);
  } else if (choice < 19) {
    read(file);
  } else if (choice < 25) {
    seek(file);
  } else if (choice < 29) {
    close(file);
  } else if (choice == 29) {
    reset(file);
  } else if (choice == 30) {
    dispose(file);
  } else {
    reopen(file);
  }
}

// Which empties the file and gives up its pages. A file that compresses goes on doing so.
void FileArea::reopen(File& file) {
  static constexpr std::uint32_t kSizes[] = {1, 7, 100, 1000, 4096, 0, 10000, 70000};
  const std::uint32_t size =
      kSizes[choices().below(file.compress ? 6 : 8) + (file.compress ? 2 : 0)];
  note("open", size, file.compress ? 1 : 0);
  const Attempt tried =
      attempt([&] { file.file->open(&manager(), 0, size, file.compress && choices().oneIn(2)); },
              May::kLeak);
  require(tried.well(), "open raised ", tried.text);
  if (file.compress) {
    file.file->open(&manager(), 0, size, true);
  }
  file.pageSize = size != 0 ? size : QRTVirtualFile::kDefaultPageSize;
  file.content.clear();
  file.known.clear();
  file.position = 0;
  file.touched.clear();
  file.open = false;
  file.lost = false;
  file.mustSay = false;
}

void FileArea::touch(File& file, std::uint32_t begin, std::uint32_t end) {
  for (std::uint32_t page = begin / file.pageSize; begin < end && page <= (end - 1) / file.pageSize;
       ++page) {
    file.touched.insert(page);
  }
}

void FileArea::touchCompressed(File& file) {
  touch(file, 0, static_cast<std::uint32_t>(file.file->getLength()));
}

void FileArea::write(File& file) {
  if (file.compress) {
    const std::string bytes = anyBytes(30000);
    if (file.lost || file.content.size() > kMostBytes) {
      return reset(file);
    }
    note("compress", bytes.size());
    const Attempt tried = attempt([&] {
      require(file.file->write(bytes.data(), static_cast<unsigned int>(bytes.size())) ==
                  static_cast<int>(bytes.size()),
              "a write ended early");
    });
    touchCompressed(file);
    if (!tried.well()) {
      file.lost = true;
      // Without a member yet, it may be that there was no memory for a compressor, and none began.
      file.mustSay = file.open || !tried.memoryFaulted;
    }
    file.open = true;
    file.content += bytes;
    return;
  }
  const std::string bytes = anyBytes(mostBytes(file) - std::min(mostBytes(file), file.position));
  note("write", file.position, bytes.size());
  int written = -1;
  const Attempt tried = attempt(
      [&] { written = file.file->write(bytes.data(), static_cast<unsigned int>(bytes.size())); });
  const auto end = static_cast<std::uint32_t>(file.file->seek(0, QRTFmFile::eSeekCurrent));
  require(end >= file.position && end - file.position <= bytes.size(), "the position is ", end);
  const std::uint32_t moved = end - file.position;
  require(!tried.well() || (moved == bytes.size() && written == static_cast<int>(moved)),
          "a write ended early");
  require(tried.well() || end % file.pageSize == 0 || moved == 0, "a page was written in part");
  file.content.resize(std::max<std::size_t>(file.content.size(), end), '?');
  file.known.resize(file.content.size(), '\0');
  file.content.replace(file.position, moved, bytes, 0, moved);
  file.known.replace(file.position, moved, moved, '\1');
  touch(file, file.position, end);
  file.position = end;
  require(file.file->getLength() == static_cast<int>(file.content.size()), "another length");
}

void FileArea::read(File& file) {
  if (file.compress) {
    return readBack(file);
  }
  const std::uint32_t n = choices().size(20000);
  note("read", file.position, n);
  std::string room(n, '\0');
  int got = -1;
  const Attempt tried = attempt([&] { got = file.file->read(n == 0 ? nullptr : room.data(), n); });
  const auto end = static_cast<std::uint32_t>(file.file->seek(0, QRTFmFile::eSeekCurrent));
  const std::uint32_t most =
      std::min(n, static_cast<std::uint32_t>(file.content.size()) - file.position);
  require(end >= file.position && end - file.position <= most, "the position is ", end);
  const std::uint32_t moved = end - file.position;
  require(!tried.well() || (moved == most && got == static_cast<int>(most)), "a read ended early");
  for (std::uint32_t i = 0; i < moved; ++i) {
    const std::uint32_t at = file.position + i;
    require(file.known[at] == '\0' || file.content[at] == room[i], "byte ", at, " is another");
  }
  touch(file, file.position, end);
  file.position = end;
  require(file.file->getLength() == static_cast<int>(file.content.size()), "another length");
}

void FileArea::seek(File& file) {
  if (file.compress) {
    return close(file);
  }
  const auto origin = static_cast<QRTFmFile::seekorigin>(choices().below(3));
  const auto length = static_cast<std::int64_t>(file.content.size());
  const std::int64_t from = origin == QRTFmFile::eSeekSet       ? 0
                            : origin == QRTFmFile::eSeekCurrent ? file.position
                                                                : length;
  // At times a little past the end, or before the beginning.
  const std::int64_t beyond = choices().oneIn(8) ? choices().below(file.pageSize * 2 + 2) : 0;
  std::int64_t target = choices().oneIn(4)
                            ? length + beyond
                            : choices().below(static_cast<std::uint32_t>(length) + 1);
  target = choices().oneIn(16) ? -1 - beyond : std::min<std::int64_t>(target, mostBytes(file));
  note("seek", static_cast<std::uint64_t>(target), static_cast<std::uint64_t>(origin));
  int result = 0;
  const Attempt tried =
      attempt([&] { result = file.file->seek(static_cast<int>(target - from), origin); });
  require(tried.well(), "seek raised ", tried.text);
  require(result == (target < 0 ? -1 : static_cast<int>(target)), "the position is ", result);
  if (target >= 0) {
    file.position = static_cast<std::uint32_t>(target);
    file.content.resize(std::max<std::size_t>(file.content.size(), file.position), '?');
    file.known.resize(file.content.size(), '\0');
  }
  require(file.file->getLength() == static_cast<int>(file.content.size()), "another length");
}

void FileArea::close(File& file) {
  note("close", file.open ? 1 : 0, file.lost ? 1 : 0);
  const Attempt tried = attempt([&] { require(file.file->close() == 1, "close gave no 1"); },
                                file.lost ? May::kRaise : May::kNothing);
  require(file.compress || tried.well(), "close raised ", tried.text);
  require(!file.mustSay || tried.ended == Ended::kIllegalState, "a lost member was not reported");
  if (file.compress) {
    touchCompressed(file);
    file.open = false;
    if (!tried.well() || file.lost) {
      reset(file);
    }
  }
}

void FileArea::reset(File& file) {
  const bool giveUpPages = choices().oneIn(2);
  note("reset", giveUpPages ? 1 : 0);
  const Attempt tried = attempt([&] { file.file->reset(giveUpPages); }, May::kLeak);
  require(tried.well() && file.file->getLength() == 0, "reset raised ", tried.text);
  if (giveUpPages) {
    file.touched.clear();
  } else if (file.compress && file.open) {
    // What ended the member may have gone into a page more, of which nothing is known any more.
    file.file->dispose();
    file.touched.clear();
  }
  file.content.clear();
  file.known.clear();
  file.position = 0;
  file.open = false;
  file.lost = false;
  file.mustSay = false;
}

void FileArea::dispose(File& file) {
  if (file.compress) {
    return reset(file);
  }
  note("dispose");
  const Attempt tried = attempt([&] { file.file->dispose(); }, May::kLeak);
  require(tried.well(), "dispose raised ", tried.text);
  file.known.assign(file.known.size(), '\0');
  file.touched.clear();
  require(file.file->getLength() == static_cast<int>(file.content.size()), "another length");
}

// Reads all members of a compressing file.
void FileArea::readBack(File& file) {
  close(file);
  note("inflate", file.content.size(), static_cast<std::uint64_t>(file.file->getLength()));
  require(file.file->seek(0, QRTFmFile::eSeekSet) == 0, "no way back");
  std::string content;
  const Attempt tried = attempt([&] {
    QRTVirtualFileGZIPReader reader(*file.file, 1 + choices().size(20000));
    std::string room(1 + choices().size(20000), '\0');
    while (const unsigned int got =
               reader.read(room.data(), static_cast<unsigned int>(room.size()))) {
      content.append(room, 0, got);
    }
  });
  require(content == file.content.substr(0, content.size()), "another content");
  require(!tried.well() || content.size() == file.content.size(), "a part of the content is gone");
  require(file.file->seek(0, QRTFmFile::eSeekEnd) == file.file->getLength(), "no way to the end");
}

void FileArea::compareContent(File& file) {
  note("verify", file.content.size(), file.pageSize);
  if (file.compress) {
    return file.lost ? reset(file) : readBack(file);
  }
  require(file.file->seek(0, QRTFmFile::eSeekSet) == 0, "no way back");
  std::string room(file.content.size() + 1, '\0');
  // A stretch that was never written takes a page when it is read: a full disk has no room for it.
  int got = -1;
  const Attempt tried =
      attempt([&] { got = file.file->read(room.data(), static_cast<unsigned int>(room.size())); });
  require(!tried.well() || got == static_cast<int>(file.content.size()), "another length");
  const auto end = static_cast<std::uint32_t>(file.file->seek(0, QRTFmFile::eSeekCurrent));
  require(end <= file.content.size(), "the position is ", end);
  for (std::size_t i = 0; i < end; ++i) {
    require(file.known[i] == '\0' || file.content[i] == room[i], "byte ", i, " is another");
  }
  touch(file, 0, end);
  file.file->seek(static_cast<int>(file.position), QRTFmFile::eSeekSet);
}

void FileArea::verify() {
  for (File& file : m_files) {
    compareContent(file);
  }
}

void FileArea::unpin() {
  for (File& file : m_files) {
    close(file);
  }
}

void FileArea::clear() {
  for (File& file : m_files) {
    note("end", file.pageSize);
    attempt([&] { file.file.reset(); }, May::kLeak);
  }
  m_files.clear();
}

std::uint64_t FileArea::objects() const {
  std::uint64_t count = 0;
  for (const File& file : m_files) {
    count += file.touched.size();
  }
  return count;
}

}  // namespace model
