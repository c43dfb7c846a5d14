#include "ExternalSort.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/TempDirectory.h"
#include "support/TestSeed.h"

namespace {

using example::ExternalSort;
using example::MemoryPlan;
using example::Options;

class ExternalSortTest : public testing::Test {
 protected:
  std::string make(const std::string& name, const std::string& content) {
    std::string path = (directory.path() / name).string();
    std::ofstream(path, std::ios::binary) << content;
    return path;
  }

  /// The output of a job, or its error.
  std::string sorted(Options options, int status = 0) {
    options.budget = MemoryPlan::kLeastBudget;
    options.output = (directory.path() / "sorted").string();
    try {
      ExternalSort sort(options);
      EXPECT_EQ(sort.run(), status);
    } catch (const std::exception& error) {
      return error.what();
    }
    std::ifstream file(options.output, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const TempDirectory directory;
};

TEST_F(ExternalSortTest, SortsAsBytesWhateverTheLinesAreAndHoweverManyRunsThereAre) {
  // More runs than can be merged at a time when they are compressed; lines longer than a page.
  std::mt19937 random(testSeed());
  std::vector<std::string> lines{"",
                                 "",
                                 std::string("a\0b", 3),
                                 std::string("a\0a", 3),
                                 "\xFF",
                                 std::string(200000, 'l'),
                                 std::string(150000, 'l') + 'm'};
  for (std::size_t bytes = 0; bytes < 24U << 20; bytes += lines.back().size()) {
    std::string line = "line " + std::to_string(random() % 1000000);
    line.append(random() % 100, static_cast<char>('a' + random() % 26));
    lines.push_back(line);
  }
  std::shuffle(lines.begin(), lines.end(), random);
  std::string first;
  std::string second;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    (i % 2 == 0 ? first : second) += lines[i] + '\n';
  }
  lines.emplace_back("the last line has no newline");
  second += lines.back();
  std::sort(lines.begin(), lines.end());
  std::string expected;
  for (const std::string& line : lines) {
    expected += line + '\n';
  }

  Options options;
  options.files = {make("second", second), make("first", first)};
  for (const bool compress : {false, true}) {
    options.compress = compress;
    EXPECT_TRUE(sorted(options) == expected) << (compress ? "compressed" : "plain");
  }
}

TEST_F(ExternalSortTest, RepeatsTheFilesUntilThereIsEnough) {
  Options options;
  options.files = {make("b", "b\n"), make("a", "a"), make("nothing", "")};
  options.size = 9;
  EXPECT_EQ(sorted(options), "a\na\nb\nb\nb\n");
}

TEST_F(ExternalSortTest, SaysWhatIsWrong) {
  Options options;
  options.files = {make("nothing", "")};
  options.size = 100;
  EXPECT_EQ(sorted(options, 2), "");
  options.files = {make("long", std::string(1U << 20, 'x'))};
  EXPECT_THAT(sorted(options), testing::HasSubstr("a line is longer than 256.0 KiB"));
  options.files = {"/missing"};
  EXPECT_THAT(sorted(options), testing::HasSubstr("/missing: No such file"));
}

}  // namespace
