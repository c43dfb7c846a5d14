// The gzip stream over one of the compression libraries. What it makes is judged by zlib's inflate,
// not by the project's own; what the project's own inflater reads is made by zlib as well.

#include "HZSStreams/HZSGZIPOutputStream.h"

#include <gmock/gmock.h>
#include <zlib.h>

#include <random>
#include <stdexcept>
#include <string>

#include "HZSStreams/GzipDecompressor.h"
#include "support/ErrorMatchers.h"
#include "support/TestSeed.h"

namespace {

class StringSink : public HZSOutputStream {
 public:
  void write(const char* data, unsigned int n) override {
    if (bytes.size() + n > room) {
      throw std::runtime_error("the sink is full");
    }
    bytes.append(data, n);
    largest = std::max(largest, n);
  }
  void flush() override { ++flushes; }
  void close() override { ++closes; }

  std::string bytes;
  std::size_t room = SIZE_MAX;
  unsigned int largest = 0;
  int flushes = 0;
  int closes = 0;
};

/// What zlib reads, member after member; stops where the input does.
std::string inflated(const std::string& gzip, int* members = nullptr) {
  z_stream stream{};
  inflateInit2(&stream, 15 + 16);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(gzip.data()));
  stream.avail_in = static_cast<uInt>(gzip.size());
  std::string text;
  std::string piece(1U << 16, '\0');
  int result = Z_OK;
  while (result == Z_OK) {
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    result = inflate(&stream, Z_SYNC_FLUSH);
    text.append(piece, 0, piece.size() - stream.avail_out);
    if (result == Z_STREAM_END) {
      *(members != nullptr ? members : &result) += 1;
      result = stream.avail_in != 0 ? inflateReset(&stream) : Z_STREAM_END;
    }
  }
  EXPECT_TRUE(result == Z_STREAM_END || result == Z_BUF_ERROR) << result;
  inflateEnd(&stream);
  return text;
}

/// Text that compresses, with runs that do not.
std::string someText(std::size_t size, unsigned int seed) {
  std::mt19937 random(seed);
  std::string text;
  while (text.size() < size) {
    if (random() % 500 == 0) {
      for (int i = 0; i < 3000; ++i) {
        text.push_back(static_cast<char>(random()));
      }
    }
    text += "entry " + std::to_string(random() % 1000) + ": some words, as they come\n";
  }
  text.resize(size);
  return text;
}

class HZSGZIPOutputStreamTest : public testing::Test {
 protected:
  HZSGZIPOutputStreamTest() { stream.setSink(&sink); }
  void write(const std::string& text) {
    stream.write(text.data(), static_cast<unsigned int>(text.size()));
  }

  StringSink sink;
  HZSGZIPOutputStream stream;
};

TEST_F(HZSGZIPOutputStreamTest, WhatIsWrittenInAnyPiecesComesBackAtEveryLevel) {
  const unsigned int seed = testSeed();
  std::mt19937 random(seed);
  for (int level = -1; level <= 10; ++level) {
    const std::string text = someText(300000 + random() % 100000, seed);
    sink.bytes.clear();
    stream.setLevel(level);
    for (std::size_t at = 0; at < text.size();) {
      const std::size_t most = random() % 3 == 0 ? 100000 : 300;
      const std::string piece = text.substr(at, random() % most);
      write(piece);
      at += piece.size();
    }
    stream.finish();
    ASSERT_EQ(inflated(sink.bytes), text) << "level " << level;
    EXPECT_LT(sink.bytes.size(), text.size() / 2);
    EXPECT_LE(sink.largest, 32U << 10);
  }
}

TEST_F(HZSGZIPOutputStreamTest, FinishEndsAMemberAndWritingBeginsTheNext) {
  int members = 0;
  stream.finish();
  EXPECT_EQ(inflated(sink.bytes, &members), "");
  EXPECT_EQ(members, 1) << "nothing written makes an empty member";
  const std::size_t size = sink.bytes.size();
  stream.finish();
  EXPECT_EQ(sink.bytes.size(), size) << "a second finish adds nothing";

  write("first ");
  stream.finish();
  write("second");
  stream.close();
  EXPECT_EQ(sink.closes, 1);
  members = 0;
  EXPECT_EQ(inflated(sink.bytes, &members), "first second");
  EXPECT_EQ(members, 3);
}

TEST_F(HZSGZIPOutputStreamTest, AFlushedMemberCanBeReadSoFar) {
  stream.flush();
  EXPECT_EQ(sink.bytes, "");
  for (const std::string& text : {someText(100000, 3), std::string("a little")}) {
    sink.bytes.clear();
    write(text);
    stream.flush();
    stream.flush();
    EXPECT_EQ(inflated(sink.bytes), text);
    stream.finish();
    EXPECT_EQ(inflated(sink.bytes), text);
  }
  EXPECT_EQ(sink.flushes, 5);
}

TEST_F(HZSGZIPOutputStreamTest, WithoutASinkOrDataItAsserts) {
  EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { stream.write(nullptr, 1); })),
            "QRT_ASSERT(data);");
  stream.write(nullptr, 0);
  stream.setSink(nullptr);
  for (const auto& call :
       {+[](HZSGZIPOutputStream& s) { s.write("a", 1); },
        +[](HZSGZIPOutputStream& s) { s.finish(); }, +[](HZSGZIPOutputStream& s) { s.flush(); }}) {
    EXPECT_EQ(textOf(expectRaised<QRTAssertError>([&] { call(stream); })), "QRT_ASSERT(m_sink);");
  }
}

TEST_F(HZSGZIPOutputStreamTest, AnErrorOfTheSinkPassesThroughAndTheMemberIsLost) {
  sink.room = 0;
  write("held back");
  EXPECT_FALSE(stream.isLost());
  EXPECT_THROW(stream.finish(), std::runtime_error);
  EXPECT_TRUE(stream.isLost());
  sink.room = SIZE_MAX;
  const auto error = expectRaised<QRTIllegalStateError>([&] { stream.finish(); });
  EXPECT_THAT(textOf(error), testing::HasSubstr(": 9 bytes were given"));
  expectRaised<QRTIllegalStateError>([&] { write("more"); });
  expectRaised<QRTIllegalStateError>([&] { stream.flush(); });
  EXPECT_EQ(sink.bytes, "");
}

/// Reads members in a row, input in pieces of one size, output in pieces of another.
std::string decompressed(const std::string& gzip, std::size_t in, std::size_t out,
                         std::string& problem) {
  const auto decompressor = GzipDecompressor::make();
  decompressor->begin();
  std::string text;
  std::string room(out, '\0');
  bool inside = false;
  for (std::size_t at = 0; at < gzip.size() || inside;) {
    const std::size_t size = std::min(in, gzip.size() - at);
    const auto step = decompressor->inflate(gzip.data() + at, size, room.data(), room.size());
    at += step.consumed;
    text.append(room, 0, step.produced);
    inside = !step.memberEnds;
    if (step.damage != nullptr) {
      problem = step.damage;
      return text;
    }
    if (step.memberEnds) {
      decompressor->begin();
    } else if (step.consumed == 0 && step.produced == 0 && at == gzip.size()) {
      problem = "truncated";
      return text;
    }
  }
  return text;
}

std::string byZlib(const std::string& text, bool withName) {
  z_stream stream{};
  deflateInit2(&stream, 6, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
  gz_header header{};
  std::string name = "a name";
  header.name = reinterpret_cast<Bytef*>(name.data());
  if (withName) {
    deflateSetHeader(&stream, &header);
  }
  std::string gzip(deflateBound(&stream, static_cast<uLong>(text.size())) + 64, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(gzip.data());
  stream.avail_out = static_cast<uInt>(gzip.size());
  EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
  gzip.resize(stream.total_out);
  deflateEnd(&stream);
  return gzip;
}

TEST(GzipDecompressorTest, MembersInARowComeBackHoweverTheyAreCutUp) {
  std::string gzip;
  std::string text;
  for (const std::size_t size : {0U, 1U, 100U, 0U, 70000U, 3U}) {
    const std::string part = someText(size, 9);
    gzip += byZlib(part, size == 100);
    text += part;
  }
  for (const std::size_t in : {1U, 2U, 7U, 19U, 4096U, 1000000U}) {
    for (const std::size_t out : {1U, 13U, 32768U, 1000000U}) {
      std::string problem;
      EXPECT_EQ(decompressed(gzip, in, out, problem), text) << in << " in, " << out << " out";
      EXPECT_EQ(problem, "") << in << " in, " << out << " out";
    }
  }
}

TEST(GzipDecompressorTest, DamageAndCutsNeverPassForAMember) {
  const std::string text = someText(5000, 4);
  const std::string gzip = byZlib(text, false);
  for (std::size_t size = 1; size < gzip.size(); size += 1 + size / 50) {
    std::string problem;
    const std::string got = decompressed(gzip.substr(0, size), 4096, 4096, problem);
    EXPECT_EQ(problem, "truncated") << size;
    EXPECT_EQ(got, text.substr(0, got.size()));
  }
  for (std::size_t at = 0; at < gzip.size(); at += 3) {
    if (at >= 3 && at < 10) {
      continue;  // flags, time and system, which say nothing about the content
    }
    std::string damaged = gzip;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x21);
    std::string problem;
    decompressed(damaged, 4096, 4096, problem);
    EXPECT_NE(problem, "") << at;
  }
}

}  // namespace
