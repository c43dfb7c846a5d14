// The example programs as a user runs them, with inputs and outputs that are not regular files.
// Every program is given a time in which it would have to hang.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "TemporaryTree.h"

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr const char* kHung = "timeout -k 5 100 ";

class ProgramsTest : public testing::Test {
 protected:
  ProgramsTest() {
    // Links: a program that took its output for a name would replace these and not the devices.
    fs::create_symlink("/dev/full", m_files.path("full"));
    ::mkfifo(m_files.path("pipe").c_str(), 0600);
    m_files.write("a.xml", "<a>text</a>");
    m_files.write("lines", "b\na\n");
    fs::create_directory(m_files.path("tmp"));
    ::setenv("TMPDIR", m_files.path("tmp").c_str(), 1);
  }
  ~ProgramsTest() override { ::unsetenv("TMPDIR"); }

  /// Runs a command in the test's directory. What it writes is in `m_output` and
  /// `m_errors`.
  /// @return its exit status; 124 when it had to be ended
  int run(const std::string& command) {
    const std::string line =
        "cd " + m_files.root() + " && { " + kHung + command + "; } >out 2>errors </dev/null";
    const int status = std::system(line.c_str());
    m_output = contentOf("out");
    m_errors = contentOf("errors");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::string contentOf(const char* name) const {
    std::ifstream file(m_files.path(name));
    return {std::istreambuf_iterator<char>(file), {}};
  }

  TemporaryTree m_files;
  std::string m_output;
  std::string m_errors;
};

const std::string kCache = QRT_CACHE;
const std::string kXmltree = QRT_XMLTREE;
const std::string kPoolmap = QRT_POOLMAP;
const std::string kExternalsort = QRT_EXTERNALSORT;
const std::string kConcordance = QRT_CONCORDANCE;
const std::string kFilestore = QRT_FILESTORE;
const std::string kLargestore = QRT_LARGESTORE;

TEST_F(ProgramsTest, an_output_that_cannot_be_written_ends_with_1_and_a_sentence) {
  const std::string perl = " --rounds 1 -- perl -e 1";
  ASSERT_EQ(run(kPoolmap + " --record kept.trace" + perl), 0) << m_errors;
  for (const std::string& command :
       {kXmltree + " export -o full a.xml", kXmltree + " edit --remove //text\\(\\) -o full a.xml",
        kExternalsort + " --output full lines",
        kPoolmap + " --rounds 1 --map full --trace kept.trace",
        kPoolmap + " --rounds 1 --svg full --trace kept.trace",
        kPoolmap + " --record full" + perl}) {
    EXPECT_EQ(run(command), 1) << command;
    EXPECT_THAT(m_errors, HasSubstr("full cannot be written: No space left on device")) << command;
  }
  for (const std::string& command :
       {kXmltree + " export a.xml", kXmltree + " load a.xml", kXmltree + " --help",
        kExternalsort + " lines", kConcordance + " lines", kFilestore + " .",
        kPoolmap + " --rounds 1 --trace kept.trace", kLargestore + " --help",
        kCache + " --items 10"}) {
    EXPECT_EQ(run("sh -c '" + command + " >/dev/full'"), 1) << command;
    EXPECT_THAT(m_errors, HasSubstr("standard output")) << command;
  }
  EXPECT_TRUE(fs::is_symlink(m_files.path("full")));
}

// The kernel's log passes for a regular file of no bytes, and waits for messages when it is read.
TEST_F(ProgramsTest, inputs_that_would_have_to_be_waited_for_are_refused) {
  for (const char* input : {"pipe", "/dev/zero", "/proc/kmsg"}) {
    const std::string name = input;
    for (const std::string& command :
         {kXmltree + " load " + name, kExternalsort + " lines " + name,
          kPoolmap + " --trace " + name, kConcordance + " " + name + " lines"}) {
      const bool skips = command.starts_with(kConcordance);
      EXPECT_EQ(run(command), skips ? 0 : 1) << command << '\n' << m_errors;
      EXPECT_THAT(m_errors, HasSubstr(name)) << command;
      if (name != "/proc/kmsg") {
        EXPECT_THAT(m_errors, HasSubstr("it is not a regular file")) << command;
      }
    }
  }
  EXPECT_EQ(run(kFilestore + " --budget 64K ."), 0) << m_errors;
}

TEST_F(ProgramsTest, a_recording_that_is_killed_leaves_no_file) {
  run(kPoolmap + " --record kept.trace -- sh -c 'kill -9 $PPID'");
  EXPECT_TRUE(fs::is_empty(m_files.path("tmp")));
  EXPECT_EQ(run(kPoolmap + " --rounds 1 -- perl -e 'exit 3'"), 0) << m_errors;
  EXPECT_TRUE(fs::is_empty(m_files.path("tmp")));
}

TEST_F(ProgramsTest, a_cache_may_be_larger_than_its_memory) {
  EXPECT_EQ(run(kCache + " --items 40000 --budget 1"), 0) << m_errors;
  EXPECT_THAT(m_output, HasSubstr("% found in the cache"));
  EXPECT_THAT(m_output, HasSubstr("2.6 MiB")) << "half of all values";
}

TEST_F(ProgramsTest, wrong_arguments_end_with_2) {
  for (const char* arguments :
       {" --items 0", " --items -1", " --items many", " --items 1e99", " --budget 0", " 5"}) {
    EXPECT_EQ(run(kCache + arguments), 2) << arguments << m_errors;
  }
  for (const char* arguments : {" --size 1X", " --budget 0", " --limit -1", " --none"}) {
    EXPECT_EQ(run(kLargestore + arguments), 2) << arguments << m_errors;
  }
  for (const std::string& program : {kXmltree, kPoolmap, kExternalsort, kConcordance, kFilestore}) {
    EXPECT_EQ(run(program + " --none"), 2) << program;
  }
}

}  // namespace
