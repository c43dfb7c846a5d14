#include "Concordance.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <map>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "LineReader.h"
#include "TemporaryTree.h"
#include "Words.h"
#include "support/TestSeed.h"

namespace {

using example::Concordance;
using example::LineReader;
using example::WordIndex;
using example::Words;

using namespace std::literals;

std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> found;
  for (Words words(text); words.next();) {
    found.push_back(words.word());
  }
  return found;
}

TEST(Words, AreRunsOfLetters) {
  using Found = std::vector<std::string>;
  EXPECT_EQ(wordsOf(""), Found{});
  EXPECT_EQ(wordsOf(" 12 - "), Found{});
  EXPECT_EQ(wordsOf("The end,the END"), (Found{"the", "end", "the", "end"}));
  EXPECT_EQ(wordsOf("caf\xC3\xA9\xE2\x80\x94na\xC3\xAFve\xC2\xA0x"),
            (Found{"caf\xC3\xA9", "na\xC3\xAFve", "x"}));
  EXPECT_EQ(wordsOf("\x80"
                    "a\xC3"),
            (Found{"\x80"
                   "a\xC3"}));
}

TEST(Words, StandInAFixedColumn) {
  const std::string shown = example::keywordInContext("a\tb word behind", 4, 8);
  EXPECT_EQ(shown.substr(0, 30), std::string(26, ' ') + "a b ");
  EXPECT_EQ(shown.substr(30), "word behind" + std::string(29, ' '));
  const std::string line = std::string(50, 'x') + "\xC3\xA9 word " + std::string(50, 'y');
  EXPECT_EQ(example::keywordInContext(line, 53, 57),
            std::string(28, 'x') + "\xC3\xA9 word " + std::string(35, 'y'));
}

class LineReaderTest : public testing::Test {
 protected:
  std::vector<std::pair<std::uint32_t, std::string>> linesOf(const std::string& name) {
    std::vector<std::pair<std::uint32_t, std::string>> lines;
    LineReader reader;
    EXPECT_TRUE(reader.open(tree.path(name))) << reader.error();
    std::string_view line;
    while (reader.next(line)) {
      lines.emplace_back(reader.lineNumber(), line);
    }
    EXPECT_EQ(reader.error(), "");
    return lines;
  }

  TemporaryTree tree;
};

TEST_F(LineReaderTest, ReadsPlainAndCompressedText) {
  const std::string text = "one\r\n\ntwo\nlast";
  tree.write("plain", text);
  const gzFile file = gzopen(tree.path("text.gz").c_str(), "wb");
  ASSERT_EQ(gzwrite(file, text.data(), static_cast<unsigned int>(text.size())),
            static_cast<int>(text.size()));
  gzclose(file);
  const std::vector<std::pair<std::uint32_t, std::string>> expected{
      {1, "one"}, {2, ""}, {3, "two"}, {4, "last"}};
  EXPECT_EQ(linesOf("plain"), expected);
  EXPECT_EQ(linesOf("text.gz"), expected);
  tree.write("empty", "");
  EXPECT_TRUE(linesOf("empty").empty());

  LineReader reader;
  EXPECT_FALSE(reader.open(tree.path("missing")));
  EXPECT_EQ(reader.error(), "No such file or directory");
  tree.write("binary", "a\0b"s);
  EXPECT_TRUE(reader.open(tree.path("binary")));
  EXPECT_TRUE(reader.isBinary());
}

TEST_F(LineReaderTest, CutsLongLinesBetweenCharacters) {
  std::string text = "x";
  for (int i = 0; i < 100000; ++i) {
    text += "\xE2\x82\xAC";
  }
  tree.write("long", text + "\nnext");
  std::string joined;
  const auto lines = linesOf("long");
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    EXPECT_EQ(lines[i].first, 1U);
    EXPECT_LE(lines[i].second.size(), LineReader::kLongestLine);
    EXPECT_NE(static_cast<unsigned char>(lines[i].second[0]) & 0xC0U, 0x80U);
    joined += lines[i].second;
  }
  EXPECT_EQ(joined, text);
  EXPECT_EQ(lines.back(), (std::pair<std::uint32_t, std::string>{2, "next"}));
}

TEST_F(LineReaderTest, TellsOfDamage) {
  std::string damaged = "\x1F\x8B\x08" + std::string(200, '\xAA');
  tree.write("damaged.gz", damaged);
  LineReader reader;
  EXPECT_FALSE(reader.open(tree.path("damaged.gz")));
  EXPECT_NE(reader.error(), "");
}

// More words and lines than the budget holds, against a map.
TEST(WordIndex, FindsWhatAMapFinds) {
  QRTVirtualMemoryMgr manager(1U << 20U, 0U, 0);
  WordIndex index(manager);
  std::map<std::string, std::vector<std::uint32_t>> expected;
  std::mt19937 random(testSeed());
  for (std::uint32_t line = 0; line < 15000; ++line) {
    for (int i = 0; i < 6; ++i) {
      // A few words everywhere, many in few lines.
      const std::uint32_t range = 1U << (random() % 17);
      const std::string word = "word" + std::to_string(random() % range);
      index.add(word, line);
      auto& lines = expected[word];
      if (lines.empty() || lines.back() != line) {
        lines.push_back(line);
      }
    }
  }
  ASSERT_EQ(index.size(), expected.size());
  for (const auto& [word, lines] : expected) {
    const std::uint32_t number = index.find(word);
    ASSERT_NE(number, WordIndex::kNone);
    ASSERT_EQ(index.text(number), word);
    ASSERT_EQ(index.record(number).lines, lines.size());
    std::vector<std::uint32_t> found;
    index.forEachLine(number, [&](std::uint32_t line) {
      found.push_back(line);
      return true;
    });
    ASSERT_EQ(found, lines) << word;
  }
  EXPECT_EQ(index.find("word"), WordIndex::kNone);
  EXPECT_LT(index.memoryBytes(), 32U * 1024U);
}

TEST(Concordance, GivesLinesBack) {
  QRTVirtualMemoryMgr manager(1U << 20U, 0U, 0);
  Concordance concordance(manager);
  concordance.addFile("first");
  concordance.addLine("", 1);
  concordance.addLine("caf\xE9 au lait, Caf\xE8", 2);
  concordance.addFile("second");
  concordance.addLine("lait", 7);
  const std::uint32_t lait = concordance.words().find("lait");
  ASSERT_NE(lait, WordIndex::kNone);
  std::vector<std::string> found;
  concordance.words().forEachLine(lait, [&](std::uint32_t number) {
    const Concordance::Line line = concordance.line(number);
    found.push_back(line.file + ":" + std::to_string(line.number) + ":" + line.text);
    return true;
  });
  EXPECT_EQ(found, (std::vector<std::string>{"first:2:caf\xEF\xBF\xBD au lait, Caf\xEF\xBF\xBD",
                                             "second:7:lait"}));
  const std::uint32_t cafe = concordance.words().find("caf\xEF\xBF\xBD");
  ASSERT_NE(cafe, WordIndex::kNone);
  EXPECT_EQ(concordance.words().record(cafe).occurrences, 2U);
  EXPECT_EQ(concordance.words().record(cafe).lines, 1U);
}

}  // namespace
