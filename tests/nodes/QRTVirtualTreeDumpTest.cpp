#include <stdexcept>
#include <streambuf>

#include "QRTVirtualPin.h"
#include "TreeFixture.h"

namespace {

class QRTVirtualTreeDumpTest : public TreeFixture {
 protected:
  std::string dump(QRTVirtualTreeNode* node) {
    std::ostringstream os;
    tree.dumpTree(node, os);
    return os.str();
  }
};

TEST_F(QRTVirtualTreeDumpTest, WritesTheNodeItsSiblingsAndTheirSubtrees) {
  const auto top = makeChildren(root, "zabc");
  makeChildren(*top[1], "de");
  makeChildren(*makeChildren(*top[2], "f")[0], "g");
  EXPECT_EQ(dump(top[1]),
            "**Dump of Virtual Tree**\n\n"
            "Node: Class: Letter a\n"
            "-Node: Class: Letter d\n"
            "-Node: Class: Letter e\n"
            "Node: Class: Letter b\n"
            "-Node: Class: Letter f\n"
            "--Node: Class: Letter g\n"
            "Node: Class: Letter c\n"
            "\n");
  EXPECT_EQ(dump(make('x')), "**Dump of Virtual Tree**\n\nNode: Class: Letter x\n\n");
  EXPECT_EQ(dump(nullptr), dump(&root));
  EXPECT_EQ(dump(nullptr).substr(0, 82),
            "**Dump of Virtual Tree**\n\n"
            "Node: Class: QRTVirtualTreeNode\n"
            "-Node: Class: Letter z\n"
            "-");
}

TEST_F(QRTVirtualTreeDumpTest, DumpMapperWritesBothSectionsOfTheManager) {
  std::ostringstream ofTree;
  std::ostringstream ofManager;
  tree.dumpMapper(ofTree);
  tree.getMemoryMgr()->dumpMapper(
      ofManager, QRTVirtualMemoryMgr::eDumpStatistics | QRTVirtualMemoryMgr::eDumpMapper);
  EXPECT_EQ(ofTree.str(), ofManager.str());
}

// Writes how many nodes are pinned, then grows two children and a sibling behind itself.
struct Growing : QRTVirtualNodeClass<Growing> {
  static constexpr const char* kClassName = "Growing";
  void dump(std::ostream& os) override {
    std::ostringstream references;
    getContainer()->getMemoryMgr()->dumpReferences(references);
    const std::string list = references.str();
    EXPECT_EQ(list.find("pins 2"), std::string::npos) << list;
    os << list.substr(list.find(": "), list.find('\n') - list.find(": "));
    if (levels != 0) {
      appendChild(grow(levels - 1).get());
      appendChild(grow(levels - 1).get());
      insertAfter(grow(0).get());
      levels = 0;
    }
  }
  QRTVirtualPin<Growing> grow(int levelsBelow) {
    QRTVirtualPin<Growing> node(create(getContainer()));
    node->levels = levelsBelow;
    return node;
  }
  int levels = 0;
};

TEST_F(QRTVirtualTreeDumpTest, LinksAreReadAfterTheNodesOwnDumpAndEachLevelHasOnePin) {
  QRTVirtualPin<Growing> node(Growing::create(&tree));
  node->levels = 2;
  root.appendChild(node.get());
  node.reset();
  const std::string expected =
      "**Dump of Virtual Tree**\n\n"
      "Node: Class: QRTVirtualTreeNode\n"
      "-Node: Class: Growing: 1\n"
      "--Node: Class: Growing: 2\n"
      "---Node: Class: Growing: 3\n"
      "---Node: Class: Growing: 3\n"
      "--Node: Class: Growing: 2\n"
      "--Node: Class: Growing: 2\n"
      "---Node: Class: Growing: 3\n"
      "---Node: Class: Growing: 3\n"
      "--Node: Class: Growing: 2\n"
      "-Node: Class: Growing: 1\n"
      "\n";
  EXPECT_EQ(dump(nullptr), expected);
  EXPECT_EQ(dump(nullptr), expected) << "nothing grows twice";
}

// Writes a number and leaves the stream to hex.
struct HexWriter : QRTVirtualNodeClass<HexWriter> {
  static constexpr const char* kClassName = "HexWriter";
  void dump(std::ostream& os) override { os << ' ' << 255 << std::hex; }
};

TEST_F(QRTVirtualTreeDumpTest, NumbersAreDecimalAndTheStreamsFormatStays) {
  for (int i = 0; i < 2; ++i) {
    root.appendChild(QRTVirtualPin<HexWriter>(HexWriter::create(&tree)).get());
  }
  for (const auto base : {std::ios_base::hex, std::ios_base::oct, std::ios_base::dec}) {
    std::ostringstream os;
    os.setf(base, std::ios_base::basefield);
    const auto before = os.flags();
    tree.dumpTree(QRTVirtualPin<HexWriter>(root.getFirstChild()).get(), os);
    EXPECT_EQ(os.str(),
              "**Dump of Virtual Tree**\n\n"
              "Node: Class: HexWriter 255\n"
              "Node: Class: HexWriter 255\n\n");
    EXPECT_EQ(os.flags(), before);
  }
}

// Takes any amount of text and counts its lines.
class LineCounter : public std::streambuf {
 public:
  unsigned long long lines = 0;

 private:
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
  int overflow(int c) override {
    lines += c == '\n' ? 1 : 0;
    return 0;
  }
};

TEST_F(QRTVirtualTreeDumpTest, DeepChainsNeedNoStack) {
  constexpr int kDepth = 1000000;
  QRTVirtualPin<Letter> at(tree.createNode(Letter::getClassId()));
  root.appendChild(at.get());
  for (int i = 1; i < kDepth; ++i) {
    QRTVirtualPin<Letter> below(tree.createNode(Letter::getClassId()));
    at->appendChild(below.get());
    at = std::move(below);
  }
  at.reset();
  LineCounter counter;
  std::ostream os(&counter);
  tree.dumpTree(nullptr, os);
  EXPECT_EQ(counter.lines, kDepth + 4U);
}

struct Raising : QRTVirtualNodeClass<Raising> {
  static constexpr const char* kClassName = "Raising";
  void dump(std::ostream&) override { throw std::runtime_error("no dump"); }
};

TEST_F(QRTVirtualTreeDumpTest, AnErrorInTheMiddleGivesAllPinsBack) {
  QRTVirtualPin<Raising> raising(Raising::create(&tree));
  makeChildren(*makeChildren(root, "a")[0], "b")[0]->appendChild(raising.get());
  EXPECT_THROW(dump(nullptr), std::runtime_error);
}

}  // namespace
