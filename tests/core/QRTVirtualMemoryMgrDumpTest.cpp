#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "QRTCore/QRTThrowable.h"
#include "QRTVirtualMemoryMgr.h"
#include "core/FailingMalloc.h"
#include "support/ErrorMatchers.h"
#include "support/FailingNew.h"
#include "support/RecordingEngine.h"

namespace {

// A statistics record put together byte by byte, as the engine would fill it.
class StatsBytes {
 public:
  explicit StatsBytes(unsigned int pools) : m_bytes(368 + 32 * pools, 0xEE) {
    put32(104, pools);
    put64(56, 0);
    put64(88, 0);
    for (unsigned int offset : {24U, 32U, 40U, 64U, 72U, 80U, 96U}) {
      put64(offset, 0);
    }
  }

  StatsBytes& put32(std::size_t offset, std::uint32_t value) {
    std::memcpy(&m_bytes.at(offset), &value, sizeof value);
    return *this;
  }

  StatsBytes& put64(std::size_t offset, std::uint64_t value) {
    std::memcpy(&m_bytes.at(offset), &value, sizeof value);
    return *this;
  }

  StatsBytes& putName(const std::string& name) {
    std::memcpy(&m_bytes.at(108), name.c_str(), name.size() + 1);
    return *this;
  }

  const std::vector<unsigned char>& bytes() const { return m_bytes; }

 private:
  std::vector<unsigned char> m_bytes;
};

const char kHeading[] = "**Dump of Virtual Mapper**\n\n";
const char kClosing[] = "Diagnostic Options are not supported!\n\n";

class QRTVirtualMemoryMgrDumpTest : public testing::Test {
 protected:
  void SetUp() override {
    record.stats = StatsBytes(0).put32(0, 4096).bytes();
    manager = std::make_unique<QRTVirtualMemoryMgr>(1000000U, 0U, 64);
  }

  std::string dump(int flags) {
    std::ostringstream os;
    manager->dumpMapper(os, flags);
    return os.str();
  }

  std::string references() {
    std::ostringstream os;
    manager->dumpReferences(os);
    return os.str();
  }

  // Allocates an object that holds the text and leaves it with so many pins.
  QRTVirtualPageItem pinned(const std::string& text, unsigned int pins) {
    QRTVirtualPageItem item;
    std::memcpy(manager->alloc(static_cast<unsigned int>(text.size()), item), text.data(),
                text.size());
    for (unsigned int i = 1; i < pins; ++i) {
      manager->getAddress(item, 1);
    }
    return item;
  }

  EngineRecord& record = EngineRecord::reset();
  std::unique_ptr<QRTVirtualMemoryMgr> manager;
};

TEST_F(QRTVirtualMemoryMgrDumpTest, WritesEverySection) {
  StatsBytes stats(2);
  stats.put32(0, 65536)
      .put64(24, 4294967297)
      .put64(32, 4294967298)
      .put64(40, 18446744073709551615ULL)
      .put64(56, 34359738368)
      .put64(64, 11)
      .put64(72, 12)
      .put64(80, 13)
      .put64(88, 1048576)
      .put64(96, 14)
      .putName("/tmp/spill (deleted)");
  stats.put64(368, 21).put64(376, 22).put32(384, 23).put32(388, 24).put32(392, 25);
  stats.put64(400, 4294967296).put64(408, 32).put32(416, 33).put32(420, 4294967295).put32(424, 35);
  record.stats = stats.bytes();
  pinned("a", 2);
  manager->setDiagnosticMode(QRTVirtualMemoryMgr::eDumpMapper);
  EXPECT_EQ(dump(3),
            "**Dump of Virtual Mapper**\n"
            "\n"
            "Paging File - /tmp/spill (deleted)\n"
            "Page file size: 34359738368 bytes\n"
            "\n"
            "Mapping Mode - libtcmalloc_virtualmm\n"
            "Page size: 65536 bytes\n"
            "Mapping Statistics - Virtual Objects (Current/Max/Cumulative): "
            "4294967297/4294967298/18446744073709551615\n"
            "Paging Statistics - Reads: 11, Writes: 13, Page Outs: 12\n"
            "\n"
            "Large size block breakdown\n"
            "--------------------------\n"
            "Pages: 1048576, Spans: 14, Alloc: 68719476736 bytes\n"
            "Fixed-size pool breakdown\n"
            "-------------------------\n"
            "  Pool [0] - Size: 25\n"
            "      Pages: 24, Spans: 23, Alloc: 21 bytes, Free: 22 bytes\n"
            "  Pool [1] - Size: 35\n"
            "      Pages: 4294967295, Spans: 33, Alloc: 4294967296 bytes, Free: 32 bytes\n"
            "\n"
            "QRTVirtualMemoryMgr::eDumpMapper is not supported - consider using Windbg to debug "
            "leaks in the virtual memory system!\n"
            "\n"
            "Total Objects with reference count > 0 : 1\n"
            "\n"
            "Diagnostic Options are not supported!\n"
            "\n");
}

TEST_F(QRTVirtualMemoryMgrDumpTest, LeavesOutWhatIsNotThere) {
  record.stats = StatsBytes(0).put32(0, 4096).put64(96, 14).putName("/tmp/former").bytes();
  const std::string statistics =
      "Mapping Mode - libtcmalloc_virtualmm\n"
      "Page size: 4096 bytes\n"
      "Mapping Statistics - Virtual Objects (Current/Max/Cumulative): 0/0/0\n"
      "Paging Statistics - Reads: 0, Writes: 0, Page Outs: 0\n"
      "\n"
      "Fixed-size pool breakdown\n"
      "-------------------------\n"
      "\n";
  const std::string notice =
      "QRTVirtualMemoryMgr::eDumpMapper is not supported - consider using Windbg to debug leaks in "
      "the virtual memory system!\n\n";
  EXPECT_EQ(dump(0), std::string(kHeading) + kClosing);
  EXPECT_EQ(dump(1), kHeading + statistics + kClosing);
  EXPECT_EQ(dump(2), kHeading + notice + kClosing);
  EXPECT_EQ(dump(3), kHeading + statistics + notice + kClosing);
  EXPECT_EQ(dump(5), kHeading + statistics + kClosing);
  EXPECT_EQ(dump(~3), std::string(kHeading) + kClosing);
}

TEST_F(QRTVirtualMemoryMgrDumpTest, IsDecimalOnAnyStreamWhoseFormatStays) {
  std::ostringstream os;
  os << std::hex << std::showbase << std::setfill('*');
  manager->dumpMapper(os, 1);
  EXPECT_NE(os.str().find("Page size: 4096 bytes"), std::string::npos);
  manager->dumpReferences(os);
  os.str("");
  os << 255;
  EXPECT_EQ(os.str(), "0xff");
}

TEST_F(QRTVirtualMemoryMgrDumpTest, WithoutMemoryForTheRecordNothingIsWritten) {
  const FailingMalloc noMemory(record.stats.size());
  std::ostringstream os;
  const auto error = expectRaised<QRTOutOfMemoryError>([&] { manager->dumpMapper(os, 3); });
  EXPECT_EQ(traceOf(error),
            (std::vector<TraceEntry>{{"QRTVirtualMemoryMgr.cpp", "", "QRT_THROW"},
                                     {"QRTVirtualMemoryMgr.cpp", "", "QRT_RETHROW"}}));
  EXPECT_EQ(os.str(), "");
}

// dumpReferences

TEST_F(QRTVirtualMemoryMgrDumpTest, ListsPinnedObjectsMostPinsFirst) {
  EXPECT_EQ(references(), "Objects with reference count > 0: 0\n");
  pinned("one pin", 1);
  pinned(std::string("three\n\0\x7F\xC3 pins, long", 20), 3);
  QRTVirtualPageItem none = pinned("no pin", 1);
  manager->dismiss(none);
  pinned("z", 1);
  record.take();
  EXPECT_EQ(references(),
            "Objects with reference count > 0: 3\n"
            "  offset 2, 20 bytes, pins 3: 74 68 72 65 65 0a 00 7f c3 20 70 69 6e 73 2c 20"
            "  |three.... pins, |\n"
            "  offset 1, 7 bytes, pins 1: 6f 6e 65 20 70 69 6e  |one pin|\n"
            "  offset 4, 1 bytes, pins 1: 7a  |z|\n");
  EXPECT_EQ(record.objects.at(1).pins, 1U);
  EXPECT_EQ(record.objects.at(2).pins, 3U);
  EXPECT_EQ(record.objects.at(4).pins, 1U);
  EXPECT_EQ(record.take(),
            (std::vector<std::string>{"GetAddress(2, false)", "Dismiss(2)", "GetAddress(1, false)",
                                      "Dismiss(1)", "GetAddress(4, false)", "Dismiss(4)"}));
  record.budgetExcess = "pins that took memory beyond the budget: 1";
  EXPECT_NE(references().find("|z|\npins that took memory beyond the budget: 1\n"),
            std::string::npos);
  record.refuseGetAddress = true;
  EXPECT_NE(references().find("  offset 4, 1 bytes, pins 1: not readable\n"), std::string::npos);
}

TEST_F(QRTVirtualMemoryMgrDumpTest, ListsAHundredAndCountsTheRest) {
  for (int i = 0; i < 250; ++i) {
    pinned("x", i == 249 ? 2 : 1);
  }
  const auto lines = [](const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
  };
  const std::string all = references();
  EXPECT_EQ(lines(all), 102);
  EXPECT_NE(all.find(": 250\n  offset 250, 1 bytes, pins 2:"), std::string::npos);
  EXPECT_NE(all.find("  ... and 150 more\n"), std::string::npos);
  EXPECT_EQ(all.find("memory was short"), std::string::npos);

  // Without memory, the hundred that the stack has room for.
  std::ostringstream os;
  os << std::string(20000, ' ');  // so that the stream itself has room
  os.seekp(0);
  {
    const FailingNew noMemory(1, FailingNew::eFromThenOn);
    manager->dumpReferences(os);
  }
  EXPECT_NE(os.str().find("only 100 objects were looked at"), std::string::npos);
  EXPECT_EQ(record.objects.at(250).pins, 2U);
}

TEST_F(QRTVirtualMemoryMgrDumpTest, AStreamThatThrowsCostsNoPin) {
  pinned("x", 1);
  // Room for the heading, not for the object's line.
  class SmallBuffer : public std::streambuf {
   public:
    SmallBuffer() { setp(m_room, m_room + sizeof m_room); }

   private:
    char m_room[40];
  } buffer;
  std::ostream os(&buffer);
  os.exceptions(std::ios_base::badbit);
  EXPECT_THROW(manager->dumpReferences(os), std::ios_base::failure);
  EXPECT_EQ(record.calls.back(), "Dismiss(1)");
  EXPECT_EQ(record.objects.at(1).pins, 1U);
}

}  // namespace
