#include "OutputFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "ProgressBar.h"
#include "ResultTable.h"
#include "TemporaryTree.h"

namespace {

using example::OutputFile;
namespace fs = std::filesystem;

class OutputFileTest : public testing::Test {
 protected:
  std::string content(const std::string& name) const {
    std::ifstream file(m_files.path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::size_t entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(m_files.root()), fs::directory_iterator()));
  }

  void write(const std::string& name, const std::string& text) const {
    OutputFile output(m_files.path(name));
    output.write(text.substr(0, 1));
    output.write(text.substr(1));
    output.finish();
  }

  TemporaryTree m_files;
};

TEST_F(OutputFileTest, a_regular_file_is_replaced_when_complete_and_nothing_beside_it_changes) {
  m_files.write("out", "old");
  m_files.write("out.part", "a neighbour");
  ::chmod(m_files.path("out").c_str(), 0640);
  {
    OutputFile output(m_files.path("out"));
    output.write("half");
    EXPECT_EQ(content("out"), "old");
    EXPECT_EQ(entries(), 3U);
  }
  EXPECT_EQ(content("out"), "old");
  EXPECT_EQ(entries(), 2U) << "an output given up leaves nothing";

  write("out", "new");
  EXPECT_EQ(content("out"), "new");
  EXPECT_EQ(content("out.part"), "a neighbour");
  EXPECT_EQ(fs::status(m_files.path("out")).permissions(), static_cast<fs::perms>(0640));
  write(std::string(255, 'n'), "as long as names can be");
  EXPECT_EQ(entries(), 3U);
}

TEST_F(OutputFileTest, links_and_pipes_are_written_in_place) {
  m_files.write("target", "longer than what comes");
  fs::create_symlink("target", m_files.path("link"));
  fs::create_symlink("new", m_files.path("dangling"));
  ASSERT_EQ(::mkfifo(m_files.path("pipe").c_str(), 0600), 0);
  const int reader = ::open(m_files.path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  write("link", "through");
  write("dangling", "made");
  write("pipe", "piped");

  EXPECT_TRUE(fs::is_symlink(m_files.path("link")));
  EXPECT_EQ(content("target"), "through");
  EXPECT_EQ(content("new"), "made");
  EXPECT_TRUE(fs::is_fifo(m_files.path("pipe")));
  std::array<char, 16> read{};
  EXPECT_EQ(::read(reader, read.data(), read.size()), 5);
  EXPECT_STREQ(read.data(), "piped");
  ::close(reader);
  EXPECT_EQ(entries(), 5U);
}

TEST_F(OutputFileTest, what_cannot_be_written_is_told) {
  const auto error = [this](const std::string& name) -> std::string {
    try {
      write(name, "text");
      return {};
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
  };
  fs::create_symlink("/dev/full", m_files.path("full"));
  fs::create_directory(m_files.path("directory"));
  EXPECT_EQ(error("full"), m_files.path("full") + " cannot be written: No space left on device");
  EXPECT_EQ(error("directory"), m_files.path("directory") + " cannot be written: Is a directory");
  EXPECT_THAT(error("no/directory"), testing::HasSubstr("No such file or directory"));
  if (::geteuid() != 0) {
    m_files.write("locked", "old");
    ::chmod(m_files.path("locked").c_str(), 0400);
    EXPECT_THAT(error("locked"), testing::HasSubstr("Permission denied"));
  }
}

TEST_F(OutputFileTest, a_progress_bar_fits_the_terminal_it_is_drawn_on) {
  winsize size{};
  size.ws_col = 40;
  int master = -1;
  int terminal = -1;
  ASSERT_EQ(::openpty(&master, &terminal, nullptr, nullptr, &size), 0);
  const int before = ::dup(STDERR_FILENO);
  ::dup2(terminal, STDERR_FILENO);
  {
    example::ProgressBar bar("verify", 8);
    bar.advance(2);
  }
  ::dup2(before, STDERR_FILENO);
  std::string drawn;
  pollfd ready{master, POLLIN, 0};
  while (!drawn.ends_with("\033[K") && ::poll(&ready, 1, 5'000) == 1) {
    std::array<char, 256> part{};
    drawn.append(part.data(), static_cast<std::size_t>(
                                  std::max<ssize_t>(0, ::read(master, part.data(), part.size()))));
  }
  for (const int descriptor : {master, terminal, before}) {
    ::close(descriptor);
  }
  EXPECT_EQ(drawn, "\rverify   [#####.................]  25 %\r\033[K");
  for (const unsigned int columns : {1U, 12U, 20U, 39U, 80U, 200U}) {
    for (const std::uint64_t total : {0U, 100U}) {
      EXPECT_LT(example::progressLine("a long title", 57, total, columns).size(), columns);
    }
  }
}

TEST(ResultTable, RowsFitTheColumnsThatThereAre) {
  example::ResultTable table;
  table.add("documents", "2,039", "of them 7 with a document type");
  table.add("peak of resident memory", "1,234,567 bytes");
  const auto printed = [&table](unsigned int columns) {
    std::ostringstream text;
    table.print(text, columns);
    return text.str();
  };
  EXPECT_EQ(printed(0),
            "  documents                          2,039  of them 7 with a document type\n"
            "  peak of resident memory  1,234,567 bytes\n");
  EXPECT_EQ(printed(50),
            "  documents                          2,039\n    of them 7 with a document type\n"
            "  peak of resident memory  1,234,567 bytes\n");
  EXPECT_EQ(printed(40),
            "  documents\n    2,039\n    of them 7 with a document type\n"
            "  peak of resident memory\n    1,234,567 bytes\n");
}

}  // namespace
