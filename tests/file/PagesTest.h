#ifndef TESTS_FILE_PAGESTEST_H
#define TESTS_FILE_PAGESTEST_H

#include <gtest/gtest.h>

#include <string>

#include "QRTVirtualFile.h"
#include "QRTVirtualMemoryMgr.h"
#include "support/RecordingEngine.h"

/// A file over an engine that records its calls.
class PagesTest : public testing::Test {
 protected:
  PagesTest() { engine.take(); }

  void openFile(bool compress = false) { file.open(&manager, 0, kPage, compress); }
  int write(std::size_t n, char fill = 'x') {
    return file.write(std::string(n, fill).data(), static_cast<unsigned int>(n));
  }
  int read(std::size_t n) {
    buffer.assign(n, '-');
    return file.read(buffer.data(), static_cast<unsigned int>(n));
  }
  unsigned int position() { return static_cast<unsigned int>(file.seek(0, kCurrent)); }
  unsigned int length() { return static_cast<unsigned int>(file.getLength()); }

  static constexpr unsigned int kPage = 8192;
  static constexpr auto kSet = QRTFmFile::eSeekSet;
  static constexpr auto kCurrent = QRTFmFile::eSeekCurrent;
  static constexpr auto kEnd = QRTFmFile::eSeekEnd;

  EngineRecord& engine = EngineRecord::reset();
  QRTVirtualMemoryMgr manager{0U, 0U, 64};
  QRTVirtualFile file;
  std::string buffer;
};

#endif  // TESTS_FILE_PAGESTEST_H
