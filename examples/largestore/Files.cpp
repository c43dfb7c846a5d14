#include "Files.h"

#include <algorithm>
#include <string>

#include "Pattern.h"

namespace example {

namespace {

constexpr std::size_t kWordsPerRecord = 1250;
constexpr int kRecordBytes = kWordsPerRecord * 4;
constexpr std::uint32_t kFileRecords = 536'870;  // 2.5 GiB, beyond what an int can say
constexpr std::uint32_t kRecordEditStep = 8;

void writeRecord(QRTVirtualFile& file, std::uint32_t number, std::uint32_t version) {
  std::uint32_t words[kWordsPerRecord];
  Pattern(number, version).fill(words, kWordsPerRecord);
  file.write(words, kRecordBytes);
}

void rewind(QRTVirtualFile& file) {
  file.seek(0, QRTFmFile::eSeekSet);
}

}  // namespace

std::uint64_t Files::bytes() const {
  return std::uint64_t{m_count} * kRecordBytes;
}

void Files::build(std::uint64_t bytes) {
  while (this->bytes() < bytes) {
    if (m_count % kFileRecords == 0) {
      m_files.push_back(std::make_unique<QRTVirtualFile>());
      m_files.back()->open(&m_manager, 0, 0, false);
    }
    writeRecord(*m_files.back(), m_count++, 0);
  }
}

void Files::edit() {
  std::uint32_t begin = 0;
  for (const auto& file : m_files) {
    const std::uint32_t end = std::min(begin + kFileRecords, m_count);
    rewind(*file);
    for (std::uint32_t number = begin; number < end; number += kRecordEditStep) {
      if (number != begin) {
        file->seek((kRecordEditStep - 1) * kRecordBytes, QRTFmFile::eSeekCurrent);
      }
      writeRecord(*file, number, 1);
    }
    begin = end;
  }
  m_edited = true;
}

void Files::verify() {
  std::uint32_t words[kWordsPerRecord];
  std::uint32_t number = 0;
  for (const auto& file : m_files) {
    rewind(*file);
    for (std::uint32_t record = 0; file->read(words, kRecordBytes) == kRecordBytes; ++record) {
      const std::uint32_t version = m_edited && record % kRecordEditStep == 0 ? 1 : 0;
      if (!Pattern(number, version).matches(words, kWordsPerRecord)) {
        throw Mismatch("record " + std::to_string(number) + " is not what was written");
      }
      ++number;
    }
    file->close();
  }
  if (number != m_count) {
    throw Mismatch("the files have records too few or too many");
  }
}

}  // namespace example
