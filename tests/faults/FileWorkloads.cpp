#include <ostream>

#include "QRTVirtualFile.h"
#include "QRTVirtualFileGZIPReader.h"
#include "QRTVirtualFileStreamBuf.h"
#include "faults/RandomWorkload.h"

namespace {

/// A scratch file that is written and read at random, and by streams.
class ScratchFile : public RandomWorkload {
 public:
  explicit ScratchFile(QRTVirtualMemoryMgr& manager) : RandomWorkload(manager) {
    m_file.open(&manager, 0, 3000, false);
  }

  void run(Trial& trial) override {
    for (int step = 0; step < 60; ++step) {
      seek(step % 3 == 0 ? m_content.size() : draw(m_content.size() + 1));
      if (step % 4 == 3) {
        read(trial, draw(9000));
      } else {
        write(trial, contentOf(1 + draw(7000), ++m_seed));
      }
    }
    appendLines(trial);
    m_file.close();  // its page goes unpinned
  }

  void change(Trial& trial) override {
    seek(0);
    write(trial, contentOf(m_content.size(), ++m_seed));
    m_file.close();
  }

  // Page by page: what cannot be read hides nothing behind it.
  void check(Trial& trial) override {
    EXPECT_EQ(static_cast<std::size_t>(m_file.getLength()), m_content.size());
    for (std::size_t from = 0; from < m_content.size(); from += 1500) {
      seek(from);
      read(trial, 1500);
    }
    m_file.close();
  }

  void end(Trial& trial) override {
    trial.attempt([&] {
      m_file.reset(true);
      return true;
    });
    m_content.clear();
  }

 private:
  std::size_t position() {
    return static_cast<std::size_t>(m_file.seek(0, QRTFmFile::eSeekCurrent));
  }
  void seek(std::size_t to) {
    EXPECT_EQ(m_file.seek(static_cast<int>(to), QRTFmFile::eSeekSet), static_cast<int>(to));
  }

  // The position is behind the last byte that was moved, whatever happened.
  void write(Trial& trial, const std::string& bytes) {
    const std::size_t from = position();
    const bool done = trial.attempt([&] {
      return m_file.write(bytes.data(), static_cast<unsigned int>(bytes.size())) ==
             static_cast<int>(bytes.size());
    });
    const std::size_t moved = position() - from;
    ASSERT_LE(moved, bytes.size());
    EXPECT_TRUE(!done || moved == bytes.size());
    m_content.resize(std::max(m_content.size(), from + moved));
    m_content.replace(from, moved, bytes, 0, moved);
    EXPECT_EQ(static_cast<std::size_t>(m_file.getLength()), m_content.size());
  }

  void read(Trial& trial, std::size_t bytes) {
    const std::size_t from = position();
    const std::size_t expected = std::min(bytes, m_content.size() - from);
    std::string got(bytes + 1, '\0');
    const bool done = trial.attempt([&] {
      return m_file.read(got.data(), static_cast<unsigned int>(bytes)) ==
             static_cast<int>(expected);
    });
    const std::size_t moved = position() - from;
    EXPECT_EQ(done, moved == expected);
    EXPECT_EQ(got.compare(0, moved, m_content, from, moved), 0) << "at " << from;
  }

  // What a stream has taken without a complaint is there, and of the rest the beginning.
  void appendLines(Trial& trial) {
    const std::string lines = textOf(3000, 99);
    seek(m_content.size());
    const bool done = trial.attempt([&] {
      QRTVirtualFileStreamBuf buffer(m_file, 700);
      std::ostream os(&buffer);
      for (std::size_t at = 0; at < lines.size(); at += 100) {
        os << std::string_view(lines).substr(at, 100);
      }
      os.flush();
      return os.good();
    });
    const std::size_t added = static_cast<std::size_t>(m_file.getLength()) - m_content.size();
    ASSERT_LE(added, lines.size());
    EXPECT_TRUE(!done || added == lines.size());
    m_content.append(lines, 0, added);
  }

  QRTVirtualFile m_file;
  std::string m_content;
};

/// A file that compresses what is written, and its reader.
class CompressingFile : public RandomWorkload {
 public:
  explicit CompressingFile(QRTVirtualMemoryMgr& manager) : RandomWorkload(manager) {
    m_file.open(&manager, 0, 3000, true);
  }

  void run(Trial& trial) override {
    store(trial);
    check(trial);
    m_file.reset(false);  // its pages are used again
    store(trial);
  }

  void change(Trial& trial) override {
    m_file.reset(false);
    store(trial);
  }

  // Never wrong bytes; all of them unless that was told, when they were written or now.
  void check(Trial& trial) override {
    m_file.seek(0, QRTFmFile::eSeekSet);
    std::string got(m_content.size() + 1, '\0');
    std::size_t done = 0;
    const bool isRead = trial.attempt([&] {
      QRTVirtualFileGZIPReader reader(m_file, 2000);
      unsigned int bytes = 0;
      do {
        const std::size_t room = std::min<std::size_t>(got.size() - done, 5000);
        bytes = reader.read(got.data() + done, static_cast<unsigned int>(room));
        done += bytes;
      } while (bytes != 0 && done < got.size());
      return true;
    });
    ASSERT_LE(done, m_content.size());
    EXPECT_EQ(got.compare(0, done, m_content, 0, done), 0);
    EXPECT_TRUE(!isRead || !m_isComplete || done == m_content.size());
    m_file.close();
  }

  void end(Trial& trial) override {
    trial.attempt([&] {
      m_file.reset(true);
      return true;
    });
  }

 private:
  // A member that was lost says so until the file is closed, and its beginning can be read.
  void store(Trial& trial) {
    m_content.clear();
    m_isComplete = true;
    for (int i = 0; i < 12 && m_isComplete; ++i) {
      const std::string piece = contentOf(200 + draw(9000), ++m_seed);
      const auto write = [&] {
        return m_file.write(piece.data(), static_cast<unsigned int>(piece.size())) ==
               static_cast<int>(piece.size());
      };
      m_content += piece;
      m_isComplete = trial.attempt(write);
      EXPECT_TRUE(m_isComplete || i == 0 || !trial.attempt(write)) << "a lost member says so";
    }
    m_isComplete = trial.attempt([&] { return m_file.close() == 1; }) && m_isComplete;
    if (!m_isComplete) {
      check(trial);
      m_file.reset(false);
      m_content.clear();
    }
  }

  QRTVirtualFile m_file;
  std::string m_content;
  bool m_isComplete = true;
};

}  // namespace

std::unique_ptr<Workload> makeScratchFile(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<ScratchFile>(manager);
}

std::unique_ptr<Workload> makeCompressingFile(QRTVirtualMemoryMgr& manager) {
  return std::make_unique<CompressingFile>(manager);
}
